// The UI state of the whole service across restarts, and what a damaged state file may not do.
#include <gmock/gmock.h>

#include "ServiceWorld.h"

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Written as bytes, so that a wrong CRC routine cannot agree with itself. {0, 0, 1}
const std::string kInitial("\x00\x00\x01\xBD\xDC", 5);

std::string Content(ServiceWorld& world) {
    return world.module.root.ReadFile(file::kState).value_or("none");
}

/// Waits until the file holds that a crash was reported.
void AwaitCrashSaved(ServiceWorld& world) {
    const Entry change = world.module.journal.Await({.kind = Kind::Trace, .also = [](const Entry& entry) {
                                                         return entry.text.starts_with("NEW UI STATE") &&
                                                                entry.text.ends_with("CanTriggerAutoEcall=0");
                                                     }});
    world.module.journal.Await(IsTraced("SaveUIStateFile - Exit"), change.seq);
}

/// The service restarts; waits until it waits for events.
void Restart(ServiceWorld& world) {
    world.module.Service().Kill();  // first: its last lines must not be taken for those of the next
    const uint64_t mark = world.module.journal.Mark();
    world.module.RestartService();
    world.AwaitReady(mark);
}

/// Starts the service over this state file: it must say so, keep its initial state, and report a crash.
void ExpectInitialState(const std::string& content, const char* complaint) {
    ServiceWorld world;
    world.module.root.WriteFile(file::kState, content);

    world.Start();

    EXPECT_THAT(world.SystemLog(), Contains(complaint)) << testing::PrintToString(content);
    EXPECT_TRUE(world.IsCrashReported()) << testing::PrintToString(content);
}

}  // namespace

TEST(EcallUIDataStateOfTheService, ACrashIsRememberedInTheFile) {
    ServiceWorld world;
    world.Start();

    EXPECT_TRUE(world.IsCrashReported());

    AwaitCrashSaved(world);
    EXPECT_EQ('\0', Content(world)[2]);
    EXPECT_EQ(5U, Content(world).size());
}

TEST(EcallUIDataStateOfTheService, AfterARestartAReportedCrashIsNotReportedAgain) {
    ServiceWorld world;
    world.Start();
    const uint64_t mark = world.module.journal.Mark();
    EXPECT_TRUE(world.IsCrashReported());
    AwaitCrashSaved(world);
    world.peer.SetState({});  // the call is over
    world.module.journal.Await(IsTraced("service state    : TEcallappServiceState_Available_Idle (3) "), mark);

    Restart(world);
    world.module.SensorBecomes(SensorStatus::Emergency);
    world.module.SensorBecomes(SensorStatus::NotDetected);

    // The later event has come, so the earlier one has been dealt with.
    world.module.journal.Await(IsTraced("AIRBAG_SENSOR_NOT_DETECTED"));
    EXPECT_EQ(1U, world.peer.Requests(EcallMethod::TriggerEcall));
    EXPECT_THAT(world.TraceMessages(), Contains("pEcallUIStateSaved : "));
}

TEST(EcallUIDataStateOfTheService, WithoutRestoringEveryStartIsArmed) {
    ServiceWorld world;
    world.Configure(R"("RestoreContextOnBoot": false)");
    world.module.root.WriteFile(file::kState, std::string("\x01\x01\x00\x00\x00", 5));

    world.Start();

    world.module.journal.Await(IsTraced(
        "lEcallHLAPConfiguration.RestoreContextOnBoot == false ==> do not init the state from the saved file"));
    EXPECT_THAT(world.TraceMessages(), Not(Contains(HasSubstr("GetUIStateFromSavedFile"))));
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIDataStateOfTheService, TheInitialStateIsRestoredFromItsKnownBytes) {
    ServiceWorld world;
    world.module.root.WriteFile(file::kState, kInitial);

    world.Start();

    world.module.journal.Await(
        IsTraced("EcallUIState : EcallAntennaSelected=0, EcallAntennaDetectionActivated=0, CanTriggerAutoEcall=1"));
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIDataStateOfTheService, AMissingFileLeavesTheServiceArmed) {
    ServiceWorld world;

    world.Start();

    EXPECT_THAT(world.SystemLog(), Contains("Error opening the configuration file"));
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIDataStateOfTheService, AFileCutAtAnyLengthLeavesTheServiceArmed) {
    for (size_t length = 0; length < kInitial.size(); ++length) {
        ExpectInitialState(kInitial.substr(0, length), "Error reading the configuration file");
    }
}

TEST(EcallUIDataStateOfTheService, AFileWithAnyBitFlippedLeavesTheServiceArmed) {
    for (size_t bit = 0; bit < 8 * kInitial.size(); ++bit) {
        std::string damaged = kInitial;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));

        ExpectInitialState(damaged, "CRC error, file corrupted");
    }
}

TEST(EcallUIDataStateOfTheService, AFolderInTheFilesPlaceStopsNothing) {
    ServiceWorld world;
    world.module.root.MakeDirectory(file::kState);

    world.Start();

    EXPECT_TRUE(world.IsCrashReported());
    EXPECT_THAT(world.SystemLog(), Contains("Error reading the configuration file"));
    world.module.journal.Await(IsInSyslog("fopen ERROR"));
}

TEST(EcallUIDataStateOfTheService, AFullDiskStopsNothing) {
    ServiceWorld world;
    world.module.root.LimitSpace("/data/etc/ecall", 4096);
    world.module.root.WriteFile("/data/etc/ecall/filler", std::string(4096, 'x'));

    world.Start();

    EXPECT_TRUE(world.IsCrashReported());
    world.module.journal.Await(IsInSyslog("Error writing the state structure in SaveState file"));
    world.module.journal.Await(IsInSyslog("Error writing crc in the SaveState file"));
    world.module.root.Restore("/data/etc/ecall");
}

TEST(EcallUIDataStateOfTheService, AReadOnlyFolderStopsNothing) {
    ServiceWorld world;
    world.module.root.MakeReadOnly("/data/etc/ecall");

    world.Start();

    EXPECT_TRUE(world.IsCrashReported());
    world.module.journal.Await(IsInSyslog("fopen ERROR"));
    world.module.root.Restore("/data/etc/ecall");
}
