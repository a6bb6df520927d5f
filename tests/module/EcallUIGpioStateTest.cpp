// The outputs of the whole unit while the eCall service goes through its states.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr uint32_t kMuted = 0;
constexpr uint32_t kPrompt = 1;
constexpr uint32_t kVoice = 2;

constexpr const char* kLed = "vantu_pwm_led.1/";

/// The writes of a mark's notification without those to the LED.
Texts LineWrites(Unit& unit, uint64_t from) {
    Texts writes = Writes(unit.module, from);
    std::erase_if(writes, [](const std::string& write) { return write.starts_with(kLed); });
    return writes;
}

Texts LedWrites(Unit& unit, uint64_t from) {
    return WritesBelow(unit.module, unit.module.devices.led, from);
}

const Texts kIdlePattern = {"enable = 0",          "cfg = 1",    "cfg1_period = 10000000",
                            "cfg1_duty = 2500000", "toggle = 0", "enable = 1"};
const Texts kActivePattern = {"enable = 0",
                              "cfg = 1",
                              "cfg1_period = 10000000",
                              "cfg1_duty = 9000000",
                              "cfg2_period = 10000000",
                              "cfg2_duty = 1",
                              "toggle_time = 1000",
                              "toggle = 1",
                              "enable = 1"};
const Texts kErrorPattern = {"enable = 0",
                             "cfg = 1",
                             "cfg1_period = 10000000",
                             "cfg1_duty = 2500000",
                             "cfg2_period = 10000000",
                             "cfg2_duty = 1",
                             "toggle_time = 5000",
                             "toggle = 1",
                             "enable = 1"};

TEST(EcallUIGpioState, StateThatStartUpPullsIsNotFollowedBesideItsNotification) {
    Module module;
    EcallPeer peer{module.journal};
    ASSERT_TRUE(peer.Start());
    module.SetSensor(SensorStatus::Emergency);
    module.SetScript(file::kAudioScript, {.duration = std::chrono::milliseconds(1000)});

    module.StartService();

    // The idle unit stops the audio, the call starts it; the closing pull comes while that script runs.
    const auto runs = module.journal.AwaitCount(6, IsKind(Kind::Script));
    for (std::size_t i = 0; i < runs.size(); ++i) {
        EXPECT_THAT(runs[i].text, StartsWith(i % 2 == 0 ? "begin" : "end")) << "run " << i;
    }
}

TEST(EcallUIGpioState, CallIsShownHeardAndUnlocked) {
    Unit unit;
    unit.Start();

    const uint64_t mark = unit.Notify(100, kVoice);

    EXPECT_THAT(LineWrites(unit, mark),
                ElementsAre("lte-ecall-relay/value = 1", "dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out",
                            "dev/vantu_gpio_value = hi", "ecall-nlock/value = 0"));
    EXPECT_EQ(kActivePattern, LedWrites(unit, mark));
    EXPECT_LT(unit.journal.Await(IsWritten(line::kRelay), mark).seq,
              unit.journal.Await(IsWritten(unit.module.Led("enable")), mark).seq);
    EXPECT_LT(unit.journal.Await(IsWritten(unit.module.Led("enable"), "1"), mark).seq,
              unit.journal.Await(IsWritten(line::kAntennaNumber), mark).seq);
    EXPECT_EQ("1 0 1", StateFile(unit.module));
    const Texts messages = unit.journal.Texts(IsKind(Kind::Trace), mark);
    EXPECT_THAT(messages, IsSupersetOf({"SetGpioServiceState - Enter, serviceState = 100",
                                        "GpioOutputNlockInvertedForRevARevB==false ==> ECALL_nLOCK set to 0",
                                        "SetGpioServiceState - exit"}));
}

/// What was begun or decided, in order, without what each of it says on its way.
Texts Steps(Texts messages) {
    std::erase_if(messages, [](const std::string& message) {
        return message.find(" - Enter") == std::string::npos && !message.starts_with("gpio_07 (") &&
               message.find("ECALL_nLOCK") == std::string::npos;
    });
    return messages;
}

TEST(EcallUIGpioState, OutputsFollowInTheirOrder) {
    Module module;
    Configure(module, {{"ConfigureExternalAudioAmp", "true"}, {"EcallMicrophoneSource", "0"}});

    const Performed performed = Perform(module, {"SetGpioServiceState 102 2", "SetGpioServiceState 3 0"});

    EXPECT_THAT(
        Steps(performed.messages),
        ElementsAre("SetGpioServiceState - Enter, serviceState = 102", "GpioWrite - Enter : GpioId = 9, value = 1 ",
                    "GpioWrite - Enter : GpioId = 12, value = 1 ", "ControlAudioRelay (SetRelayOn=1) - Enter",
                    "TimerAudioRelay (activateTimer=0) - Enter", "GpioWrite - Enter : GpioId = 6, value = 1 ",
                    "SetGpioEcallLed - Enter : PeriodMs=10, Brightness1PerCent=90, Brightness2PerCent=0, "
                    "Blicking12PeriodInMs=1000",
                    "gpio_07 (ANT_SEL_GPIO) configured at hi level", "GpioWrite - Enter : GpioId = 8, value = 0 ",
                    "GpioOutputNlockInvertedForRevARevB==false ==> ECALL_nLOCK set to 0",
                    "SetGpioServiceState - Enter, serviceState = 3", "GpioWrite - Enter : GpioId = 9, value = 0 ",
                    "GpioWrite - Enter : GpioId = 12, value = 0 ", "gpio_07 (ANT_SEL_GPIO) configured at lo level",
                    "ControlAudioRelay (SetRelayOn=0) - Enter", "TimerAudioRelay (activateTimer=1) - Enter",
                    "SetGpioEcallLed - Enter : PeriodMs=10, Brightness1PerCent=25, Brightness2PerCent=0, "
                    "Blicking12PeriodInMs=0",
                    "GpioWrite - Enter : GpioId = 8, value = 1 ",
                    "GpioOutputNlockInvertedForRevARevB==false ==> ECALL_nLOCK set to 1"));
    EXPECT_EQ("SetGpioServiceState - exit", performed.messages.back());
}

TEST(EcallUIGpioState, OutputThatFailsDoesNotStopTheOthers) {
    Module module;
    Configure(module, {{"ConfigureExternalAudioAmp", "true"}, {"EcallMicrophoneSource", "0"}});
    module.ioctls.AddFault("write 0x72*", Fault::Error(EIO).Times(3));
    module.attributes.AddFault(line::kRelay, Use::Open, Fault::Error(EACCES));
    module.attributes.AddFault(module.Led("enable"), Use::Open, Fault::Error(EACCES).Once());
    module.attributes.AddFault(line::kAntennaNumber, Use::Open, Fault::Error(EACCES).Once());

    const Performed performed =
        Perform(module, {"SetGpioServiceState 100 0", "SetGpioServiceState 100 2", "SetGpioServiceState 4 0"});

    EXPECT_THAT(performed.messages,
                IsSupersetOf({"Unable to send data", "Unable to open 6 pin value file",
                              "Unable to open pwm led enable file : /sys/devices/vantu_pwm_led.1/enable",
                              "Unable to open /dev/vantu_gpio_num file"}));
    EXPECT_THAT(module.journal.Texts(IsWritten(line::kNlock)), ElementsAre("0", "0", "1"));
    // The antenna, which is not selected yet, is tried again; the amplifier counts as switched on all the same.
    EXPECT_THAT(module.journal.Texts(IsWritten(line::kAntennaValue)), ElementsAre("hi"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::I2c)),
                ElementsAre("write 0x72 flags 0x0000: 01 41", "write 0x72 flags 0x0000: 08 e1",
                            "write 0x72 flags 0x0000: 0e 07", "write 0x72 flags 0x0000: 01 40",
                            "write 0x72 flags 0x0000: 08 c0", "write 0x72 flags 0x0000: 0e 09"));
}

TEST(EcallUIGpioState, OnlyFailuresReachTheSystemLog) {
    for (const char* const isLockUsed : {"true", "false"}) {
        Module module;
        Configure(module, {{"EcallMicrophoneSource", "0"}, {"GpioOutputNlock_Used", isLockUsed}});

        Perform(module, {"SetGpioServiceState 100 2", "SetGpioServiceState 3 0", "SetGpioServiceState 50 0"});

        module.journal.Await(IsInSyslog("bad parameter"));
        EXPECT_THAT(module.journal.Texts(IsKind(Kind::Syslog)),
                    ElementsAre("SetGpioServiceState - bad parameter: serviceState = 50"));
    }
}

TEST(EcallUIGpioState, EveryCallSelectsTheAntenna) {
    Unit unit;
    unit.Start();

    for (const uint32_t state : {100U, 101U, 102U, 103U, 104U, 105U, 106U}) {
        unit.Notify(102, kPrompt);
        unit.Notify(3, kMuted);  // gives the antenna back
        const uint64_t mark = unit.Notify(state, kMuted);
        EXPECT_THAT(unit.journal.Texts(IsWritten(line::kAntennaValue), mark), ElementsAre("hi")) << state;
    }
}

TEST(EcallUIGpioState, RelayDropsFiveSecondsAfterTheCall) {
    Unit unit;
    unit.Start();
    unit.Notify(100, kVoice);
    EXPECT_EQ("1", unit.module.Attribute(line::kRelay));

    const uint64_t mark = unit.Notify(3, kMuted);

    const Entry over = unit.journal.Await(IsKind(Kind::RpcNotify), mark);
    const Entry off = unit.journal.Await(IsWritten(line::kRelay), mark);
    EXPECT_EQ("0", off.text);
    EXPECT_GE(off.time - over.time, 5000ms);
    unit.journal.Await(IsTraced("RelayTimer_callback: sig = 0 => switch off the audio relay"), mark);
}

TEST(EcallUIGpioState, CallWithinTheDelayKeepsTheRelayOn) {
    Unit unit;
    unit.Start();
    unit.Notify(100, kVoice);
    unit.Notify(3, kMuted);

    const uint64_t mark = unit.Notify(101, kVoice);

    EXPECT_EQ(std::nullopt, unit.journal.WaitFor(IsWritten(line::kRelay, "0"), mark, 5500ms));
    EXPECT_EQ("1", unit.module.Attribute(line::kRelay));
}

TEST(EcallUIGpioState, RepeatedNotificationChangesNothing) {
    Unit unit;
    unit.Start({{"AudioRelayUsed", "false"}});  // no delayed switch-off that may fall into the silence
    unit.Notify(3, kVoice);

    const uint64_t mark = unit.Notify(3, kVoice);

    EXPECT_THAT(unit.journal.All(IsKind(Kind::Open), mark), IsEmpty());
    EXPECT_EQ(0U, unit.journal.Count(IsTraced("ControlAudioRelay ("), mark));
    EXPECT_THAT(unit.journal.Texts({.kind = Kind::Trace, .subject = "EcallUIGpioState.cpp"}, mark),
                ElementsAre("SetGpioServiceState - Enter, serviceState = 3", "SetGpioServiceState - exit"));
}

TEST(EcallUIGpioState, FirstNotificationOfDisabledAndMutedIsIgnored) {
    Unit unit;
    unit.peer.Start();
    unit.peer.SetState({.serviceState = 0, .audioOutState = kMuted});
    unit.Start();

    EXPECT_THAT(LedWrites(unit, 0), Not(Contains("cfg = 1")));
    EXPECT_THAT(unit.journal.All(IsOpened(line::kNlock)), IsEmpty());

    const uint64_t mark = unit.Notify(0, kPrompt);  // the audio alone makes a difference

    EXPECT_EQ(kErrorPattern, LedWrites(unit, mark));
    EXPECT_THAT(LineWrites(unit, mark), ElementsAre("ecall-nlock/value = 1"));
}

TEST(EcallUIGpioState, IdleAfterATestCallGivesTheAntennaBack) {
    for (const uint32_t testCall : {102U, 103U}) {
        Unit unit;
        unit.Start();
        unit.Notify(testCall, kVoice);

        const uint64_t mark = unit.Notify(3, kMuted);

        EXPECT_THAT(LineWrites(unit, mark), ElementsAre("dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out",
                                                        "dev/vantu_gpio_value = lo", "ecall-nlock/value = 1"));
        EXPECT_EQ(kIdlePattern, LedWrites(unit, mark));
        EXPECT_EQ("0 0 1", StateFile(unit.module));
        EXPECT_THAT(unit.journal.Texts(IsKind(Kind::Trace), mark),
                    Contains("TimerAudioRelay (activateTimer=1) - Enter"));
    }
}

TEST(EcallUIGpioState, IdleTwoStatesAfterATestCallGivesTheAntennaBack) {
    Unit unit;
    unit.Start();
    unit.Notify(102, kVoice);
    unit.Notify(104, kMuted);

    const uint64_t mark = unit.Notify(3, kMuted);

    EXPECT_THAT(LineWrites(unit, mark), Contains("dev/vantu_gpio_value = lo"));
}

TEST(EcallUIGpioState, IdleAfterARealCallKeepsTheAntenna) {
    Unit unit;
    unit.Start();
    unit.Notify(102, kVoice);
    unit.Notify(104, kMuted);
    unit.Notify(101, kMuted);

    const uint64_t mark = unit.Notify(3, kMuted);

    EXPECT_THAT(LineWrites(unit, mark), ElementsAre("ecall-nlock/value = 1"));
    EXPECT_EQ("1 0 1", StateFile(unit.module));
}

TEST(EcallUIGpioState, AntennaThatIsSelectedAlreadyIsNotDrivenAgain) {
    Unit unit;
    SaveState(unit.module, {.antennaSelected = true});
    unit.Start();

    const uint64_t mark = unit.Notify(101, kMuted);

    EXPECT_THAT(LineWrites(unit, mark), ElementsAre("lte-ecall-relay/value = 1", "ecall-nlock/value = 0"));
}

TEST(EcallUIGpioState, RelayStaysAsItIsWhileACallBackIsAwaitedWithAPrompt) {
    Unit unit;
    unit.Start();

    const uint64_t mark = unit.Notify(104, kPrompt);

    EXPECT_THAT(unit.journal.All(IsOpened(line::kRelay), mark), IsEmpty());
    EXPECT_THAT(unit.journal.Texts(IsKind(Kind::Trace), mark), Not(Contains(HasSubstr("ControlAudioRelay"))));
    EXPECT_EQ(kActivePattern, LedWrites(unit, mark));
}

TEST(EcallUIGpioState, BrokenServiceSwitchesTheRelayOffEvenInAVoiceCall) {
    Unit unit;
    unit.Start({{"ConfigureExternalAudioAmp", "true"}});
    unit.Notify(100, kVoice);

    const uint64_t mark = unit.Notify(1, kVoice);

    EXPECT_THAT(unit.journal.Texts(IsKind(Kind::Trace), mark), Contains("TimerAudioRelay (activateTimer=1) - Enter"));
    EXPECT_THAT(unit.journal.All(IsKind(Kind::I2c), mark), IsEmpty());
    EXPECT_EQ(kErrorPattern, LedWrites(unit, mark));
    EXPECT_THAT(LineWrites(unit, mark), ElementsAre("ecall-nlock/value = 1"));
}

TEST(EcallUIGpioState, ExternalAmplifierIsSwitchedOnceEachWay) {
    Unit unit;
    unit.Start({{"ConfigureExternalAudioAmp", "true"}});

    const uint64_t call = unit.Notify(101, kMuted);
    const uint64_t goesOn = unit.Notify(101, kVoice);
    const uint64_t idle = unit.Notify(3, kMuted);
    const uint64_t test = unit.Notify(4, kMuted);

    EXPECT_THAT(unit.journal.Texts(IsKind(Kind::I2c), call, goesOn),
                ElementsAre("write 0x72 flags 0x0000: 01 41", "write 0x72 flags 0x0000: 08 e1",
                            "write 0x72 flags 0x0000: 0e 07"));
    EXPECT_THAT(unit.journal.All(IsKind(Kind::I2c), goesOn, idle), IsEmpty());
    EXPECT_THAT(unit.journal.Texts(IsKind(Kind::I2c), idle, test),
                ElementsAre("write 0x72 flags 0x0000: 01 40", "write 0x72 flags 0x0000: 08 c0",
                            "write 0x72 flags 0x0000: 0e 09"));
    EXPECT_THAT(unit.journal.All(IsKind(Kind::I2c), test), IsEmpty());
    EXPECT_LT(unit.journal.Await(IsKind(Kind::I2c), call).seq, unit.journal.Await(IsWritten(line::kRelay), call).seq);
}

TEST(EcallUIGpioState, AmplifierThatIsNotConfiguredIsLeftAlone) {
    Unit unit;
    unit.Start();

    unit.Notify(101, kVoice);
    unit.Notify(3, kMuted);

    EXPECT_THAT(unit.journal.All(IsKind(Kind::I2c)), IsEmpty());
    EXPECT_THAT(unit.journal.All(IsOpened(line::kAmplifierStandby)), IsEmpty());
}

TEST(EcallUIGpioState, AmplifierThatWasSwitchedOnIsSwitchedOffWhateverIsConfiguredSince) {
    Module module;
    Configure(module, {{"ConfigureExternalAudioAmp", "true"}, {"EcallMicrophoneSource", "0"}});

    Perform(module, {"SetGpioServiceState 100 2", "ConfigureExternalAudioAmp 0", "SetGpioServiceState 3 0",
                     "SetGpioServiceState 101 2", "SetGpioServiceState 4 0"});

    EXPECT_THAT(module.journal.Texts(IsKind(Kind::I2c)),
                ElementsAre("write 0x72 flags 0x0000: 01 41", "write 0x72 flags 0x0000: 08 e1",
                            "write 0x72 flags 0x0000: 0e 07", "write 0x72 flags 0x0000: 01 40",
                            "write 0x72 flags 0x0000: 08 c0", "write 0x72 flags 0x0000: 0e 09"));
}

TEST(EcallUIGpioState, AmplifierThatIsConfiguredInACallIsSwitchedOnByItsNextState) {
    Module module;
    Configure(module, {{"EcallMicrophoneSource", "0"}});

    Perform(module, {"SetGpioServiceState 100 0", "ConfigureExternalAudioAmp 1", "SetGpioServiceState 100 2"});

    EXPECT_THAT(module.journal.Texts(IsKind(Kind::I2c)),
                ElementsAre("write 0x72 flags 0x0000: 01 41", "write 0x72 flags 0x0000: 08 e1",
                            "write 0x72 flags 0x0000: 0e 07"));
}

TEST(EcallUIGpioState, StateThatDoesNotExistIsOnlySaidAndRemembered) {
    Unit unit;
    unit.Start();
    unit.Notify(102, kVoice);

    const uint64_t unknown = unit.Notify(50, kVoice);
    const uint64_t again = unit.Notify(50, kVoice);
    const uint64_t unknownAudio = unit.Notify(50, kMuted);
    const uint64_t audioAgain = unit.Notify(50, kMuted);
    const uint64_t idle = unit.Notify(3, kMuted);

    EXPECT_THAT(unit.journal.All(IsKind(Kind::Open), unknown, idle), IsEmpty());
    const Match isBadParameter = IsTraced("SetGpioServiceState - bad parameter: serviceState = 50");
    EXPECT_EQ(1U, unit.journal.Count(isBadParameter, unknown, again));
    EXPECT_EQ(0U, unit.journal.Count(isBadParameter, again, unknownAudio));
    EXPECT_EQ(1U, unit.journal.Count(isBadParameter, unknownAudio, audioAgain));
    EXPECT_EQ(0U, unit.journal.Count(isBadParameter, audioAgain, idle));
    unit.journal.Await(IsInSyslog("SetGpioServiceState - bad parameter: serviceState = 50"));
    unit.journal.Await(IsWithinConsoleLine("SetGpioServiceState - bad parameter: serviceState = 50"));
    // Two notifications of 50 lie between the test call and now.
    EXPECT_THAT(LineWrites(unit, idle), ElementsAre("ecall-nlock/value = 1"));
}

TEST(EcallUIGpioState, LockLineFollowsEveryState) {
    Unit unit;
    unit.Start();
    unit.Notify(50, kMuted);  // known to nobody: whatever follows is a change

    for (const uint32_t state : {0U, 1U, 2U, 3U, 4U, 100U, 101U, 102U, 103U, 104U, 105U, 106U}) {
        const uint64_t mark = unit.Notify(state, kMuted);
        const bool isCall = state >= 100;
        EXPECT_THAT(unit.journal.Texts(IsWritten(line::kNlock), mark), ElementsAre(isCall ? "0" : "1")) << state;
        unit.journal.Await(IsTraced(isCall ? "GpioOutputNlockInvertedForRevARevB==false ==> ECALL_nLOCK set to 0"
                                           : "GpioOutputNlockInvertedForRevARevB==false ==> ECALL_nLOCK set to 1"),
                           mark);
    }
}

TEST(EcallUIGpioState, LockLineIsInvertedOnOldBoards) {
    Unit unit;
    unit.Start({{"GpioOutputNlockInvertedForRevARevB", "true"}});

    const uint64_t call = unit.Notify(106, kMuted);
    const uint64_t idle = unit.Notify(3, kMuted);

    EXPECT_THAT(unit.journal.Texts(IsWritten(line::kNlock), call, idle), ElementsAre("1"));
    EXPECT_THAT(unit.journal.Texts(IsWritten(line::kNlock), idle), ElementsAre("0"));
    unit.journal.Await(IsTraced("GpioOutputNlockInvertedForRevARevB==true ==> ECALL_nLOCK set to 1"), call);
    unit.journal.Await(IsTraced("GpioOutputNlockInvertedForRevARevB==true ==> ECALL_nLOCK set to 0"), idle);
}

TEST(EcallUIGpioState, LockLineThatIsNotUsedIsLeftAlone) {
    Unit unit;
    unit.Start({{"GpioOutputNlock_Used", "false"}});

    const uint64_t call = unit.Notify(100, kMuted);
    const uint64_t unknown = unit.Notify(50, kMuted);

    EXPECT_THAT(unit.journal.All(IsOpened(line::kNlock)), IsEmpty());
    const Match isSaid = IsTraced("GpioOutputNlock_Used == false, do not set ECALL_nLOCK");
    EXPECT_EQ(1U, unit.journal.Count(isSaid, call, unknown));
    EXPECT_EQ(1U, unit.journal.Count(isSaid, unknown));
}

TEST(EcallUIGpioState, PatternsComeFromTheConfiguration) {
    Unit unit;
    unit.Start({{"LedPwmPeriodMs", "1"},
                {"LedEcallIdleBrightness1PerCent", "50"},
                {"LedEcallIdleBrightness2PerCent", "10"},
                {"LedEcallIdleBlicking12PeriodInMs", "20"},
                {"LedEcallActiveBrightness1PerCent", "60"},
                {"LedEcallActiveBrightness2PerCent", "30"},
                {"LedEcallActiveBlicking12PeriodInMs", "40"},
                {"LedEcallErrorBrightness1PerCent", "70"},
                {"LedEcallErrorBrightness2PerCent", "-1"},
                {"LedEcallErrorBlicking12PeriodInMs", "-2"}});
    unit.Notify(50, kMuted);

    EXPECT_THAT(
        LedWrites(unit, unit.Notify(4, kMuted)),
        ElementsAre("enable = 0", "cfg = 1", "cfg1_period = 1000000", "cfg1_duty = 500000", "cfg2_period = 1000000",
                    "cfg2_duty = 100000", "toggle_time = 20", "toggle = 1", "enable = 1"));
    EXPECT_THAT(
        LedWrites(unit, unit.Notify(105, kMuted)),
        ElementsAre("enable = 0", "cfg = 1", "cfg1_period = 1000000", "cfg1_duty = 600000", "cfg2_period = 1000000",
                    "cfg2_duty = 300000", "toggle_time = 40", "toggle = 1", "enable = 1"));
    // A negative number counts as the large one with the same bits.
    EXPECT_THAT(
        LedWrites(unit, unit.Notify(2, kMuted)),
        ElementsAre("enable = 0", "cfg = 1", "cfg1_period = 1000000", "cfg1_duty = 700000", "cfg2_period = 1000000",
                    "cfg2_duty = 42949672960000", "toggle_time = -2", "toggle = 1", "enable = 1"));
}

TEST(EcallUIGpioState, WithTheDigitalMicrophoneTheScriptFollowsTheCall) {
    Unit unit;
    unit.Start({{"EcallMicrophoneSource", "1"}});

    const uint64_t call = unit.Notify(101, kVoice);
    const uint64_t idle = unit.Notify(3, kMuted);

    const Match isScript = IsKind(Kind::Script);
    EXPECT_THAT(unit.journal.Texts(isScript, call, idle), ElementsAre("begin start", "end 0"));
    EXPECT_THAT(unit.journal.Texts(isScript, idle), ElementsAre("begin stop", "end 0"));
}

}  // namespace
