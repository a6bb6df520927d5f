#include "EcallUIDataState.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "Faults.h"
#include "ServiceTest.h"
#include "Trace.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kSoundBytes[] = "\x00\x00\x01\xBD\xDC";
const std::string kSound(kSoundBytes, 5);

EcallUIState State() {
    EcallUIState state;
    GetUIStateAndLock(state, false);
    return state;
}

std::string BytesOf(const EcallUIState& state) {
    const auto bytes = MakeStateFileBytes(state);
    return {bytes.begin(), bytes.end()};
}

void Store(EcallUIState state) {
    EcallUIState before;
    GetUIStateAndLock(before, true);
    SetUIStateAndUnlock(state);
}

std::string ThreadText() {
    char text[32];
    snprintf(text, sizeof text, "thread = 0x%x", static_cast<unsigned>(pthread_self()));
    return text;
}

/// Starts each test from the initial state and without a file.
class EcallUIDataState : public testing::Test {
  protected:
    EcallUIDataState() {
        Store({0, 0, 1});
        Remove(kStateFile);
    }
    ~EcallUIDataState() override { EXPECT_EQ(0, XirMutexHoldCount()); }
};

}  // namespace

MATCHER_P3(IsState, antenna, detection, trigger, "") {
    return arg.EcallAntennaSelected == antenna && arg.EcallAntennaDetectionActivated == detection &&
           arg.CanTriggerAutoEcall == trigger;
}

// The bytes of the file.

TEST_F(EcallUIDataState, TheInitialStateHasTheKnownBytes) {
    EXPECT_EQ(kSound, BytesOf(EcallUIState{}));
}

TEST_F(EcallUIDataState, EveryStateIsReadBackFromItsBytes) {
    for (unsigned value = 0; value < 256; ++value) {
        const auto byte = static_cast<uint8_t>(value);
        const EcallUIState state{byte, static_cast<uint8_t>(~byte), static_cast<uint8_t>(byte * 7)};
        EcallUIState read;

        EXPECT_EQ(StateFileAnswer::Sound, ReadStateFileBytes(MakeStateFileBytes(state), read));
        EXPECT_THAT(
            read, IsState(state.EcallAntennaSelected, state.EcallAntennaDetectionActivated, state.CanTriggerAutoEcall));
    }
}

// Restoring.

TEST_F(EcallUIDataState, ASoundFileIsRestored) {
    WriteFile(kStateFile, BytesOf({3, 2, 0}));
    bool isRestored = false;

    const Logged logged = LogOf([&] { isRestored = GetUIStateFromSavedFile(); });

    EXPECT_TRUE(isRestored);
    EXPECT_THAT(State(), IsState(3, 2, 0));
    EXPECT_THAT(logged.Messages(),
                ElementsAre("GetUIStateFromSavedFile - Enter", "Crc16 - Enter", "Crc16 - Exit", "pEcallUIStateSaved : ",
                            "EcallUIState : EcallAntennaSelected=2, EcallAntennaDetectionActivated=2, "
                            "CanTriggerAutoEcall=0",
                            "GetUIStateFromSavedFile - Exit"));
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataState, TheInitialStateIsRestoredFromItsKnownBytes) {
    Store({1, 1, 0});
    WriteFile(kStateFile, kSound);

    EXPECT_TRUE(GetUIStateFromSavedFile());

    EXPECT_THAT(State(), IsState(0, 0, 1));
}

TEST_F(EcallUIDataState, WhatFollowsTheFifthByteIsIgnored) {
    WriteFile(kStateFile, BytesOf({1, 1, 1}) + "more");

    EXPECT_TRUE(GetUIStateFromSavedFile());

    EXPECT_THAT(State(), IsState(1, 1, 1));
}

TEST_F(EcallUIDataState, AMissingFileLeavesTheState) {
    bool isRestored = true;

    const Logged logged = LogOf([&] { isRestored = GetUIStateFromSavedFile(); });

    EXPECT_FALSE(isRestored);
    EXPECT_THAT(State(), IsState(0, 0, 1));
    EXPECT_THAT(logged.system, ElementsAre("5 Error opening the configuration file"));
    EXPECT_THAT(logged.Messages(),
                ElementsAre("GetUIStateFromSavedFile - Enter", "Error opening the configuration file",
                            "GetUIStateFromSavedFile - Exit"));
    EXPECT_EQ(std::nullopt, ReadFile(kStateFile));
}

TEST_F(EcallUIDataState, AFileCutAtAnyLengthLeavesTheStateAndItself) {
    for (size_t length = 0; length < kStateFileSize; ++length) {
        const std::string cut = BytesOf({1, 1, 0}).substr(0, length);
        WriteFile(kStateFile, cut);
        bool isRestored = true;

        const Logged logged = LogOf([&] { isRestored = GetUIStateFromSavedFile(); });

        EXPECT_FALSE(isRestored);
        EXPECT_THAT(State(), IsState(0, 0, 1));
        EXPECT_THAT(logged.system, ElementsAre("5 Error reading the configuration file"));
        EXPECT_THAT(logged.Messages(),
                    ElementsAre("GetUIStateFromSavedFile - Enter", "Error reading the configuration file",
                                "GetUIStateFromSavedFile - Exit"));
        EXPECT_EQ(cut, ReadFile(kStateFile));
    }
}

TEST_F(EcallUIDataState, AFileWithAnyBitFlippedLeavesTheStateAndItself) {
    for (size_t bit = 0; bit < 8 * kStateFileSize; ++bit) {
        std::string damaged = BytesOf({1, 1, 0});
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
        WriteFile(kStateFile, damaged);
        bool isRestored = true;

        const Logged logged = LogOf([&] { isRestored = GetUIStateFromSavedFile(); });

        EXPECT_FALSE(isRestored) << bit;
        EXPECT_THAT(State(), IsState(0, 0, 1)) << bit;
        EXPECT_THAT(logged.system, ElementsAre("5 CRC error, file corrupted")) << bit;
        EXPECT_THAT(logged.Messages(), ElementsAre("GetUIStateFromSavedFile - Enter", "Crc16 - Enter", "Crc16 - Exit",
                                                   "CRC error, file corrupted", "GetUIStateFromSavedFile - Exit"))
            << bit;
        EXPECT_EQ(damaged, ReadFile(kStateFile)) << bit;
    }
}

TEST_F(EcallUIDataState, AFileThatCannotBeReadLeavesTheState) {
    WriteFile(kStateFile, BytesOf({1, 1, 0}));

    const Logged logged = LogOf([] {
        const CallFault fault("read", EIO, {.path = kStateFile});
        EXPECT_FALSE(GetUIStateFromSavedFile());
    });

    EXPECT_THAT(State(), IsState(0, 0, 1));
    EXPECT_THAT(logged.system, ElementsAre("5 Error reading the configuration file"));
}

TEST_F(EcallUIDataState, RestoringGoesOnWithoutTheLock) {
    WriteFile(kStateFile, BytesOf({1, 1, 0}));

    const Logged logged = LogOf([] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.exceptObject = &TraceMutex.mutex});
        EXPECT_TRUE(GetUIStateFromSavedFile());
    });

    EXPECT_THAT(State(), IsState(1, 1, 0));
    EXPECT_THAT(logged.system,
                ElementsAre("5 (State) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) \n",
                            "5 ERROR GetMutex", "5 Error :  Release a resource that is not locked !!! (State)\n"));
}

// Changing.

TEST_F(EcallUIDataState, AChangeIsStoredAndSaved) {
    const Logged logged = LogOf([] {
        EcallUIState state;
        GetUIStateAndLock(state, true);
        state = {4, 1, 0};
        SetUIStateAndUnlock(state);
    });

    EXPECT_THAT(State(), IsState(4, 1, 0));
    EXPECT_EQ(BytesOf({4, 1, 0}), ReadFile(kStateFile));
    EXPECT_THAT(
        logged.Messages(),
        ElementsAre("SetUIStateAndUnlock - Enter, " + ThreadText(), "UI status changed",
                    "OLD UI STATE : EcallAntennaSelected=0, EcallAntennaDetectionActivated=0, CanTriggerAutoEcall=1",
                    "NEW UI STATE : EcallAntennaSelected=4, EcallAntennaDetectionActivated=1, CanTriggerAutoEcall=0",
                    "SaveUIStateFile - Enter", "Crc16 - Enter", "Crc16 - Exit", "SaveUIStateFile - Exit",
                    "SetUIStateAndUnlock - Exit, " + ThreadText()));
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataState, AnEqualStateIsNeitherLoggedNorSaved) {
    const Logged logged = LogOf([] { Store({0, 0, 1}); });

    EXPECT_THAT(logged.Messages(), ElementsAre("SetUIStateAndUnlock - Enter, " + ThreadText(),
                                               "SetUIStateAndUnlock - Exit, " + ThreadText()));
    EXPECT_EQ(std::nullopt, ReadFile(kStateFile));
}

TEST_F(EcallUIDataState, EachFieldCountsAsAChange) {
    for (const EcallUIState& state : {EcallUIState{1, 0, 1}, EcallUIState{1, 1, 1}, EcallUIState{1, 1, 0}}) {
        const Logged logged = LogOf([&] { Store(state); });

        EXPECT_THAT(logged.Messages(), Contains("UI status changed"));
        EXPECT_EQ(BytesOf(state), ReadFile(kStateFile));
    }
}

TEST_F(EcallUIDataState, ALockedStateIsSeenByOthersOnlyAfterItsRelease) {
    EcallUIState state;
    GetUIStateAndLock(state, true);

    std::thread reader([] { EXPECT_THAT(State(), IsState(9, 0, 1)); });
    state.EcallAntennaSelected = 9;
    SetUIStateAndUnlock(state);
    reader.join();
}

TEST_F(EcallUIDataState, TheLockMayBeTakenAgainByItsHolder) {
    EcallUIState outer;
    EcallUIState inner;
    GetUIStateAndLock(outer, true);
    GetUIStateAndLock(inner, true);

    inner.EcallAntennaSelected = 5;
    SetUIStateAndUnlock(inner);
    EXPECT_EQ(1, XirMutexHoldCount());
    outer.EcallAntennaSelected = 6;
    SetUIStateAndUnlock(outer);

    EXPECT_THAT(State(), IsState(6, 0, 1));
}

TEST_F(EcallUIDataState, AStateSetWithoutTheLockIsStoredAndSaid) {
    const Logged logged = LogOf([] { SetUIStateAndUnlock({7, 0, 1}); });

    EXPECT_THAT(State(), IsState(7, 0, 1));
    EXPECT_EQ(BytesOf({7, 0, 1}), ReadFile(kStateFile));
    EXPECT_THAT(logged.system, ElementsAre("5 ERROR : ressource not locked !!!!",
                                           "5 Error :  Release a resource that is not locked !!! (State)\n"));
}

TEST_F(EcallUIDataState, AnEqualStateSetWithoutTheLockIsSaidToo) {
    const Logged logged = LogOf([] { SetUIStateAndUnlock({0, 0, 1}); });

    EXPECT_THAT(logged.Messages(),
                ElementsAre("SetUIStateAndUnlock - Enter, " + ThreadText(), "ERROR : ressource not locked !!!!",
                            "Error :  Release a resource that is not locked !!! (State)", "",
                            "SetUIStateAndUnlock - Exit, " + ThreadText()));
    EXPECT_EQ(std::nullopt, ReadFile(kStateFile));
}

TEST_F(EcallUIDataState, AStateSetWhileAnotherThreadHoldsTheLockIsStoredAndOnlyItsReleaseFails) {
    // In a process of its own, since the mutex stays with its holder.
    const Ended ended = EndOf([] {
        EcallUIState held;
        GetUIStateAndLock(held, true);
        {
            const ForeignUnlock misuse;
            std::thread([] { SetUIStateAndUnlock({7, 0, 1}); }).join();
        }
        fprintf(stderr, "%d", State().EcallAntennaSelected);
    });

    EXPECT_EQ("7", ended.errors);
    EXPECT_EQ(BytesOf({7, 0, 1}), ReadFile(kStateFile));
    EXPECT_THAT(ended.logged.system, ElementsAre("5 Error :  pthread_mutex_unlock !!! (State)\n"));
}

TEST_F(EcallUIDataState, AStateIsReadWithoutTheLockWhenThatFails) {
    const char* const kNotTaken = "5 (State) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) \n";
    const char* const kSaid = "5 ERROR : GetMutex !!!!";
    const char* const kNotReleased = "5 Error :  Release a resource that is not locked !!! (State)\n";
    for (const bool keepLocked : {true, false}) {
        EcallUIState state{9, 9, 9};

        const Logged logged = LogOf([&] {
            const CallFault fault("pthread_mutex_lock", EINVAL, {.exceptObject = &TraceMutex.mutex});
            GetUIStateAndLock(state, keepLocked);
        });

        EXPECT_THAT(state, IsState(0, 0, 1));
        const std::vector<std::string> said = keepLocked ? std::vector<std::string>{kNotTaken, kSaid}
                                                         : std::vector<std::string>{kNotTaken, kSaid, kNotReleased};
        EXPECT_EQ(said, logged.system);
    }
}

TEST_F(EcallUIDataState, WhatManyThreadsChangeIsCountedAndSavedWhole) {
    constexpr int kThreads = 4;
    constexpr int kChanges = 25;
    std::vector<std::thread> threads;

    LogOf([&] {
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([] {
                for (int change = 0; change < kChanges; ++change) {
                    EcallUIState state;
                    GetUIStateAndLock(state, true);
                    ++state.EcallAntennaSelected;
                    SetUIStateAndUnlock(state);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });

    EXPECT_THAT(State(), IsState(kThreads * kChanges, 0, 1));
    EXPECT_EQ(BytesOf({kThreads * kChanges, 0, 1}), ReadFile(kStateFile));
}

// Saving.

namespace {

/// What the log shows from the entry of the save to its exit.
std::vector<std::string> MessagesOfSave(const Logged& logged) {
    const std::vector<std::string> all = logged.Messages();
    const auto enter = std::find(all.begin(), all.end(), "SaveUIStateFile - Enter");
    const auto exit = std::find(enter, all.end(), "SaveUIStateFile - Exit");
    return {enter, exit == all.end() ? exit : exit + 1};
}

}  // namespace

TEST_F(EcallUIDataState, AFileThatCannotBeOpenedLeavesTheChangeInMemory) {
    const Logged logged = LogOf([] {
        const CallFault fault("open", EROFS, {.path = kStateFile});
        Store({1, 0, 1});
    });

    EXPECT_THAT(State(), IsState(1, 0, 1));
    EXPECT_THAT(logged.system, ElementsAre("5 fopen ERROR"));
    EXPECT_THAT(MessagesOfSave(logged), ElementsAre("SaveUIStateFile - Enter", "Crc16 - Enter", "Crc16 - Exit",
                                                    "fopen ERROR", "SaveUIStateFile - Exit"));
}

TEST_F(EcallUIDataState, WritesThatFailAreSaidAndNotRepeated) {
    int writes = 0;

    const Logged logged = LogOf([&] {
        const CallFault fault("write", ENOSPC, {.path = kStateFile});
        Store({1, 0, 1});
        writes = fault.Calls();
    });

    EXPECT_EQ(2, writes);
    EXPECT_THAT(State(), IsState(1, 0, 1));
    EXPECT_THAT(logged.system, ElementsAre("5 Error writing the state structure in SaveState file",
                                           "5 Error writing crc in the SaveState file"));
    EXPECT_THAT(MessagesOfSave(logged),
                ElementsAre("SaveUIStateFile - Enter", "Crc16 - Enter", "Crc16 - Exit",
                            "Error writing the state structure in SaveState file",
                            "Error writing crc in the SaveState file", "SaveUIStateFile - Exit"));
}

TEST_F(EcallUIDataState, ShortWritesAreSaidEach) {
    const Logged record = LogOf([] {
        const CallFault fault("write", 0, {.path = kStateFile, .failing = 1, .bytes = 2});
        Store({1, 0, 1});
    });
    EXPECT_THAT(record.system, ElementsAre("5 Error writing the state structure in SaveState file"));
    EXPECT_EQ(4, ReadFile(kStateFile)->size());

    const Logged crc = LogOf([] {
        const CallFault fault("write", 0, {.path = kStateFile, .passing = 1, .bytes = 1});
        Store({2, 0, 1});
    });
    EXPECT_THAT(crc.system, ElementsAre("5 Error writing crc in the SaveState file"));
    EXPECT_EQ(4, ReadFile(kStateFile)->size());
}

TEST_F(EcallUIDataState, TheNextChangeMakesADamagedFileWhole) {
    WriteFile(kStateFile, "damaged, and longer than a state file is");

    Store({1, 0, 1});

    EXPECT_EQ(BytesOf({1, 0, 1}), ReadFile(kStateFile));
}

TEST_F(EcallUIDataState, AFileThatCannotBeClosedIsNotSpokenOf) {
    const Logged logged = LogOf([] {
        const CallFault fault("close", EIO, {.path = kStateFile});
        Store({1, 0, 1});
    });

    EXPECT_THAT(logged.system, IsEmpty());
}
