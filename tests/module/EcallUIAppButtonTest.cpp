// The eCall button watched by reading its line, on the whole unit.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>

#include "GpioTest.h"
#include "ServiceWorld.h"

using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char kThread[] = "ButtonPolling";
constexpr char kActivated[] = "ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated";
constexpr char kSpurious[] = "spurious signal on ecall-nrqst ==> do nothing";
constexpr char kNotUsed[] = "EcallUI_Configuration.EcallButtonUsed == false ==> do nothing";

using Members = std::vector<std::pair<std::string, std::string>>;

Members Polling(Members more = {}) {
    more.emplace_back("EcallButtonPullingDetectionMode", "true");
    return more;
}

/// Looks at the button find these levels, one after the other; the last one stays. Levels that went by the clock would
/// be others on a machine that is busy. Waits until the thread has acted upon them all.
void LetLooksFind(Unit& unit, std::vector<std::string> levels) {
    const auto next = std::make_shared<std::atomic<size_t>>(0);
    const size_t count = levels.size();
    unit.module.attributes.OnRead(line::kButton, [next, levels = std::move(levels)] {
        return levels.at(std::min(next->fetch_add(1), levels.size() - 1));
    });
    unit.journal.AwaitCount(count + 2, IsRead(line::kButton), unit.journal.Mark());
}

/// What the polling thread has said, in order, and in information form: the error form shows the source's whole path.
Texts Said(Unit& unit, uint64_t from = 0) {
    return unit.journal.Texts({.kind = Kind::Trace, .subject = "EcallUIAppButton.cpp"}, from);
}

Texts AntennaSelections(Unit& unit, uint64_t from) {
    return unit.journal.Texts(IsWritten(line::kAntennaValue, "hi"), from);
}

}  // namespace

TEST(EcallUIAppButton, TheThreadIsStartedInPollingModeOnlyAndLooksEvery200Milliseconds) {
    Unit polling;
    polling.Start(Polling());
    EXPECT_THAT(polling.journal.Texts(IsTraced("EcallButtonPullingDetectionMode ==")),
                ElementsAre("EcallButtonPullingDetectionMode == true ==> start the Ecall button detection thread"));
    EXPECT_EQ(200ms, AwaitSleep(polling.module.Service(), kThread));
}

TEST(EcallUIAppButton, WithoutPollingModeNobodyLooksAtAButtonThatIsHeld) {
    Unit unit;
    unit.Start();
    unit.module.SetButton(true);

    unit.Announce("EVENT=NORMAL");

    EXPECT_THAT(unit.journal.All(IsTraced("EcallButtonPullingDetectionMode ==")), IsEmpty());
    EXPECT_THAT(unit.journal.All(IsRead(line::kButton)), IsEmpty());
}

TEST(EcallUIAppButton, APressThatLastsRequestsAManualCallWithTheAntennaSelectedBefore) {
    Unit unit;
    unit.Start(Polling());
    const uint64_t mark = unit.journal.Mark();

    LetLooksFind(unit, {"1\n", "1\n", "0\n"});

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
    EXPECT_THAT(AntennaSelections(unit, mark), SizeIs(1));
    EXPECT_LT(unit.journal.Await(IsWritten(line::kAntennaValue, "hi"), mark).seq,
              unit.journal.Await(IsRpcRequest("triggerEcall")).seq);
    unit.journal.Await(IsTraced(kActivated));
    EXPECT_THAT(Said(unit), ElementsAre(kActivated));
    unit.journal.Await(IsTraced("NEW UI STATE : EcallAntennaSelected=1, "));
}

TEST(EcallUIAppButton, BothLooksAreThePressTimeApart) {
    Unit unit;
    unit.module.SetButton(true);

    unit.Start(Polling({{"EcallButtonPressMinimalTimeForTrigMs", "60000"}}));

    EXPECT_EQ(60000ms, AwaitSleep(unit.module.Service(), kThread));
    EXPECT_THAT(unit.Triggers(), IsEmpty());
}

TEST(EcallUIAppButton, APressThatIsTooShortIsSpuriousOnce) {
    Unit unit;
    unit.Start(Polling());

    LetLooksFind(unit, {"1\n", "0\n"});

    unit.journal.Await(IsTraced(kSpurious));
    EXPECT_THAT(Said(unit), ElementsAre(kSpurious));
    EXPECT_THAT(unit.Triggers(), IsEmpty());
}

TEST(EcallUIAppButton, ALongPressRequestsACallEachTimeItHasLastedLongEnough) {
    Unit unit;
    unit.Start(Polling());
    const uint64_t mark = unit.journal.Mark();

    LetLooksFind(unit, {"1\n", "1\n", "1\n", "1\n", "1\n", "1\n", "0\n"});

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall, kManualCall, kManualCall));
    EXPECT_THAT(AntennaSelections(unit, mark), SizeIs(1)) << "it is selected once";
}

TEST(EcallUIAppButton, TheAntennaIsLeftAloneWhenItIsSelected) {
    Unit unit;
    SaveState(unit.module, {.antennaSelected = true});
    unit.Start(Polling());
    const uint64_t mark = unit.journal.Mark();
    LetLooksFind(unit, {"1\n", "1\n", "0\n"});

    const uint64_t request = unit.journal.Await(IsRpcRequest("triggerEcall")).seq;
    EXPECT_THAT(unit.journal.All(IsWritten(line::kAntennaValue), mark, request), IsEmpty());
    EXPECT_THAT(unit.journal.All(IsWritten(line::kAntennaNumber), mark, request), IsEmpty());
}

TEST(EcallUIAppButton, TheActiveLevelIsAsConfigured) {
    Unit unit;
    unit.module.SetButton(true);
    unit.Start(Polling({{"GpioInputButton_nRQST_ActiveLow", "true"}}));
    const uint64_t mark = unit.journal.Mark();
    unit.journal.AwaitCount(2, IsRead(line::kButton), mark);
    EXPECT_THAT(unit.Triggers(), IsEmpty());

    LetLooksFind(unit, {"0\n", "0\n", "1\n"});

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
}

TEST(EcallUIAppButton, ALineThatCannotBeReadIsNotPressed) {
    for (const char* activeLow : {"false", "true"}) {
        Unit unit;
        unit.module.attributes.AddFault(line::kButton, Use::Read, Fault::Error(EIO));
        unit.Start(Polling({{"GpioInputButton_nRQST_ActiveLow", activeLow}}));

        EXPECT_EQ(200ms, AwaitSleep(unit.module.Service(), kThread));
        EXPECT_THAT(Said(unit), IsEmpty());
    }
}

TEST(EcallUIAppButton, WithoutEcallServiceEachPressSaysSo) {
    Unit unit;
    unit.StartAlone(Polling());
    const uint64_t mark = unit.journal.Mark();

    LetLooksFind(unit, {"1\n", "1\n", "1\n", "1\n", "0\n"});

    unit.journal.AwaitCount(2, IsTraced("pProxyEcallapp == NULL ==> do nothing"));
    EXPECT_THAT(Said(unit), ElementsAre(kActivated, "pProxyEcallapp == NULL ==> do nothing", kActivated,
                                        "pProxyEcallapp == NULL ==> do nothing"));
    EXPECT_THAT(AntennaSelections(unit, mark), IsEmpty());
}

TEST(EcallUIAppButton, ARefusedCallIsNotLookedAt) {
    Unit unit;
    unit.Start(Polling());
    unit.peer.Answer(EcallMethod::TriggerEcall, {.code = 7});

    LetLooksFind(unit, {"1\n", "1\n", "1\n", "1\n", "0\n"});

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall, kManualCall));
    unit.journal.AwaitCount(2, IsTraced(kActivated));
    EXPECT_THAT(Said(unit), ElementsAre(kActivated, kActivated));
}

// The notification wants the state that the polling thread keeps until it has its reply.
TEST(EcallUIAppButton, ANotificationThatOvertakesTheReplyHoldsNobodyUp) {
    Unit unit;
    unit.Start(Polling());
    unit.peer.Answer(EcallMethod::TriggerEcall, {.notifyFirst = true});

    LetLooksFind(unit, {"1\n", "1\n", "0\n"});

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
    unit.journal.Await(IsTraced("TEcallappServiceState_ActiveManualECall (100)"));
}

TEST(EcallUIAppButton, TheStateIsKeptUntilTheServiceHasAnswered) {
    Unit unit;
    SaveState(unit.module, {.antennaSelected = true, .canTrigger = false});
    unit.module.SetSensor(SensorStatus::NotDetected);
    unit.Start(Polling());
    unit.peer.Answer(EcallMethod::TriggerEcall, {.held = true});
    unit.module.attributes.OnRead(line::kButton, [looks = std::make_shared<std::atomic<int>>(0)]() -> std::string {
        return looks->fetch_add(1) < 2 ? "1\n" : "0\n";
    });
    ASSERT_TRUE(unit.peer.AwaitRequests(EcallMethod::TriggerEcall, 1));

    // The event thread wants to arm the trigger, and has to wait for the state.
    const uint64_t mark = unit.journal.Mark();
    unit.module.SensorBecomes(SensorStatus::Normal);
    unit.journal.Await(IsTraced("AIRBAG_SENSOR_NORMAL_MODE_10HZ ==> sensor detected"), mark);
    AwaitLockWait(unit.module.Service(), "Thread_GPIO_UEV");
    EXPECT_EQ("1 0 0", StateFile(unit.module));

    const uint64_t answered = unit.journal.Note("answered");
    EXPECT_EQ(1U, unit.peer.Release());
    EXPECT_LT(answered, unit.journal
                            .Await(IsTraced("NEW UI STATE : EcallAntennaSelected=1, "
                                            "EcallAntennaDetectionActivated=0, CanTriggerAutoEcall=1"))
                            .seq);
}

// A button that is held, but not used, is said without a pause.

TEST(EcallUIAppButton, AButtonThatIsNotUsedMakesNoCallHoweverLongItIsHeld) {
    Unit unit;
    unit.Start(Polling({{"EcallButtonUsed", "false"}}));
    const uint64_t mark = unit.journal.Mark();

    unit.module.SetButton(true);
    unit.journal.AwaitCount(100, IsTraced(kNotUsed), mark);
    unit.module.SetButton(false);

    EXPECT_EQ(200ms, AwaitSleep(unit.module.Service(), kThread));
    EXPECT_THAT(Said(unit, mark), Each(kNotUsed));
    EXPECT_THAT(unit.Triggers(), IsEmpty());
}

TEST(EcallUIAppButton, TheThreadNeverSleepsWhileAButtonThatIsNotUsedIsHeld) {
    constexpr size_t kLines = 300;  // a pause of a millisecond after each would be seen
    Unit unit;
    unit.Start(Polling({{"EcallButtonUsed", "false"}}));
    unit.module.SetButton(true);
    unit.journal.Await(IsTraced(kNotUsed));

    while (unit.journal.Count(IsTraced(kNotUsed)) < kLines) {
        ASSERT_FALSE(IsAsleep(unit.module.Service(), kThread));
    }
}

TEST(EcallUIAppButton, ACrashIsReportedWhileTheHeldButtonFillsTheTrace) {
    Unit unit;
    unit.Start(Polling({{"EcallButtonUsed", "false"}}));
    unit.module.SetButton(true);
    unit.journal.Await(IsTraced(kNotUsed));

    unit.module.SensorBecomes(SensorStatus::Emergency);

    EXPECT_TRUE(unit.peer.AwaitRequests(EcallMethod::TriggerEcall, 1));
    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
}

TEST(EcallUIAppButton, TheHeldButtonCannotFillTheDisk) {
    constexpr size_t kLimit = size_t{4} * 1024;
    constexpr size_t kLongestRecord = 512 + 64;  // the line that reaches the limit is still written
    Unit unit;
    unit.Start(Polling({{"EcallButtonUsed", "false"}, {"MaxSizeOfTraceFileInKb", "4"}, {"NbTraceFileStored", "3"}}));

    // Enough for some twenty files.
    unit.module.SetButton(true);
    unit.journal.AwaitCount(1000, IsOnConsole(kNotUsed));
    unit.module.SetButton(false);
    AwaitSleep(unit.module.Service(), kThread);

    Texts names;
    for (const auto& file : std::filesystem::directory_iterator(unit.module.root.Outside(file::kTraceDirectory))) {
        names.push_back(file.path().filename());
        EXPECT_LE(file.file_size(), kLimit + kLongestRecord) << names.back();
    }
    std::sort(names.begin(), names.end());
    EXPECT_THAT(names, ElementsAre("XirEcallUIappSrvc_traces.txt", "XirEcallUIappSrvc_traces_1.txt",
                                   "XirEcallUIappSrvc_traces_2.txt"));
}
