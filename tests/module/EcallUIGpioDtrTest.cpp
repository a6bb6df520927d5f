// DTR through the serial driver's attributes, and the recovery of a lost sensor interrupt.
#include <gmock/gmock.h>

#include <cerrno>

#include "GpioTest.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void SetDtr(Module& module, const char* enable, const char* dtr) {
    module.SetAttribute(line::kDtrEnable, enable);
    module.SetAttribute(line::kDtr, dtr);
}

Texts Commands(Module& module) {
    return module.journal.Texts(IsKind(Kind::NetIoctl));
}

/// The number in "descriptors = 7".
int Descriptors(const std::string& result) {
    return std::stoi(result.substr(sizeof "descriptors ="));
}

TEST(EcallUIGpioDtr, DtrIsAssertedWhenWatchedAndLow) {
    Module module;
    SetDtr(module, "1\n", "0\n");

    const Performed performed = Perform(module, {"ReadDtrStatus"});

    EXPECT_THAT(performed.results, ElementsAre("ReadDtrStatus = 1"));
    EXPECT_THAT(performed.messages, ElementsAre("DTR is enalbed "));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Console)), Contains("DTR is enalbed "));
}

TEST(EcallUIGpioDtr, DtrIsNotAssertedWhenHigh) {
    Module module;
    SetDtr(module, "1\n", "1\n");

    const Performed performed = Perform(module, {"ReadDtrStatus"});

    EXPECT_THAT(performed.results, ElementsAre("ReadDtrStatus = 0"));
    EXPECT_THAT(performed.messages, ElementsAre("DTR is disabled "));
}

TEST(EcallUIGpioDtr, DtrThatIsNotWatchedIsNotRead) {
    Module module;
    SetDtr(module, "0\n", "0\n");

    const Performed performed = Perform(module, {"ReadDtrStatus"});

    EXPECT_THAT(performed.results, ElementsAre("ReadDtrStatus = 0"));
    EXPECT_THAT(performed.messages, ElementsAre("DTR is disabled "));
    EXPECT_THAT(module.journal.All(IsOpened(line::kDtr)), IsEmpty());
}

TEST(EcallUIGpioDtr, AnythingButOneIsNotWatchedAndAnythingButZeroIsNotAsserted) {
    struct Status {
        const char* enable;
        const char* dtr;
        bool isWatched;
    };
    for (const auto& [enable, dtr, isWatched] : {Status{"2\n", "0\n", false},
                                                 {"\n", "0\n", false},
                                                 {" 1\n", "0\n", false},
                                                 {"1\n", "2\n", true},
                                                 {"1\n", "\n", true}}) {
        Module module;
        SetDtr(module, enable, dtr);

        const Performed performed = Perform(module, {"ReadDtrStatus"});

        EXPECT_THAT(performed.results, ElementsAre("ReadDtrStatus = 0")) << enable << dtr;
        EXPECT_THAT(performed.messages, ElementsAre("DTR is disabled ")) << enable << dtr;
        EXPECT_EQ(isWatched ? 1U : 0U, module.journal.Count(IsOpened(line::kDtr))) << enable << dtr;
    }
}

TEST(EcallUIGpioDtr, OnlyTheFirstCharactersCount) {
    Module module;
    SetDtr(module, "1234567890123456789012345\n", "0123456789012345678901234\n");

    const Performed performed = Perform(module, {"ReadDtrStatus"});

    EXPECT_THAT(performed.results, ElementsAre("ReadDtrStatus = 1"));
}

TEST(EcallUIGpioDtr, SwitchWithoutAnAnswerIsSaidAndItsPipeStaysOpen) {
    Module module;
    module.attributes.SetMissing(line::kDtrEnable);

    // The first message makes the C library open the system log, which then stays open too.
    const Performed performed = Perform(module, {"ReadDtrStatus", "descriptors", "ReadDtrStatus", "descriptors"});

    ASSERT_EQ(4U, performed.results.size());
    EXPECT_EQ("ReadDtrStatus = -1", performed.results[2]);
    EXPECT_EQ(Descriptors(performed.results[1]) + 1, Descriptors(performed.results[3]));
    constexpr char kMessage[] =
        "can't read data from cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr_enable file with "
        "Success";
    EXPECT_THAT(performed.messages, ElementsAre(kMessage, "", kMessage, ""));
    EXPECT_EQ(
        "can't read data from cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr_enable file with "
        "Success\n",
        module.journal.Await(IsInSyslog("can't read")).text);
}

TEST(EcallUIGpioDtr, LineWithoutAnAnswerIsSaidAndItsPipeStaysOpen) {
    Module module;
    module.attributes.AddFault(line::kDtr, Use::Read, Fault::AtMost(0));

    const Performed performed = Perform(module, {"ReadDtrStatus", "descriptors", "ReadDtrStatus", "descriptors"});

    ASSERT_EQ(4U, performed.results.size());
    EXPECT_EQ("ReadDtrStatus = -1", performed.results[2]);
    EXPECT_EQ(Descriptors(performed.results[1]) + 1, Descriptors(performed.results[3]));
    constexpr char kMessage[] =
        "can't read data from cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr file with Success";
    EXPECT_THAT(performed.messages, ElementsAre(kMessage, "", kMessage, ""));
    EXPECT_EQ(kMessage + std::string("\n"), module.journal.Await(IsInSyslog("can't read")).text);
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Console)), Contains(kMessage));
}

TEST(EcallUIGpioDtr, QueryThatCannotBeStartedIsSaid) {
    Module module;

    const Performed performed = Perform(module, {"fail popen " + std::to_string(EMFILE), "ReadDtrStatus"});

    EXPECT_THAT(performed.results, Contains("ReadDtrStatus = -1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("can't open cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr_enable file "
                            "with Too many open files",
                            ""));
    module.journal.Await(
        IsInSyslog("can't open cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr_enable"
                   " file with Too many open files\n"));
}

TEST(EcallUIGpioDtr, SecondQueryThatCannotBeStartedIsSaidOnTheConsole) {
    Module module;

    const Performed performed = Perform(module, {"fail-after 1 popen " + std::to_string(EMFILE), "ReadDtrStatus"});

    EXPECT_THAT(performed.results, Contains("ReadDtrStatus = -1"));
    EXPECT_THAT(performed.messages, ElementsAre("cat open error dtr_status path"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Console)), Contains("cat open error dtr_status path"));
}

TEST(EcallUIGpioDtr, QueryThatIsAnsweredLeavesNothingOpen) {
    Module module;
    SetDtr(module, "1\n", "0\n");

    const Performed performed = Perform(module, {"descriptors", "ReadDtrStatus", "descriptors"});

    ASSERT_EQ(3U, performed.results.size());
    EXPECT_EQ("ReadDtrStatus = 1", performed.results[1]);
    EXPECT_EQ(performed.results.front(), performed.results.back());
}

struct StatusMessage {
    const char* name;
    const char* enable;
    const char* dtr;
    const char* message;
    const char* inSystemLog;

    friend void PrintTo(const StatusMessage& status, std::ostream* out) { *out << status.name; }
};

class EcallUIGpioDtrMessage : public testing::TestWithParam<StatusMessage> {};

TEST_P(EcallUIGpioDtrMessage, GoesToTheSystemLogOnlyWithoutTheTraceMutex) {
    Module module;
    SetDtr(module, GetParam().enable, GetParam().dtr);

    const Performed performed =
        Perform(module, {"ReadDtrStatus", "fail pthread_mutex_lock " + std::to_string(EINVAL), "ReadDtrStatus"});

    module.journal.Await(IsInSyslog("DTR is "));
    const Texts logged = module.journal.Texts({.kind = Kind::Syslog, .subject = "hardware_probe"});
    EXPECT_EQ("ERROR Getting the mutex", *(logged.end() - 2));
    EXPECT_EQ(GetParam().inSystemLog, logged.back());
    EXPECT_EQ(1U, module.journal.Count(IsOnConsole(GetParam().message)));
    EXPECT_THAT(performed.messages, ElementsAre(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    All, EcallUIGpioDtrMessage,
    testing::Values(StatusMessage{"NotWatched", "0\n", "0\n", "DTR is disabled ", "DTR is disabled \n"},
                    StatusMessage{"Asserted", "1\n", "0\n", "DTR is enalbed ", "DTR is enalbed "},
                    StatusMessage{"NotAsserted", "1\n", "1\n", "DTR is disabled ", "DTR is disabled "}),
    [](const auto& tested) { return tested.param.name; });

TEST(EcallUIGpioDtr, FailureGoesToConsoleAndSystemLogAlsoWithoutTheTraceMutex) {
    Module module;
    module.attributes.SetMissing(line::kDtrEnable);

    const Performed performed = Perform(module, {"fail pthread_mutex_lock " + std::to_string(EINVAL), "ReadDtrStatus"});

    constexpr char kMessage[] =
        "can't read data from cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr_enable file with "
        "Success";
    EXPECT_EQ(kMessage + std::string("\n"), module.journal.Await(IsInSyslog("can't read")).text);
    EXPECT_EQ(1U, module.journal.Count(IsOnConsole(kMessage)));
    EXPECT_THAT(performed.messages, IsEmpty());
}

// ---- Recovery ----

TEST(EcallUIGpioDtr, RecoverySendsBothCommandsWhileDtrIsNotAsserted) {
    Module module;

    const Performed performed =
        Perform(module, {"descriptors", "GpioRecoveryThread", "GpioIrqRecovery", "descriptors"});

    EXPECT_THAT(Commands(module), ElementsAre("command 44", "command 43"));
    const auto sent = module.journal.All(IsKind(Kind::NetIoctl));
    EXPECT_EQ("eth0", sent[0].subject);
    EXPECT_EQ(std::string("\0\0\0\0\0\0\0\0\x2c\0\0\0", 12), sent[0].bytes);
    EXPECT_EQ(std::string("\0\0\0\0\0\0\0\0\x2b\0\0\0", 12), sent[1].bytes);
    EXPECT_THAT(performed.sleeps, ElementsAre("slept 1000 ms"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRecoveryThread - Enter", "DTR is disabled ", "GpioRecoveryThread - Exit"));
    EXPECT_EQ(Descriptors(performed.results[0]) + 1, Descriptors(performed.results[3]));
}

TEST(EcallUIGpioDtr, RecoverySendsOneCommandWhileDtrIsAssertedOrUnknown) {
    for (const char* dtr : {"0\n", ""}) {
        Module module;
        SetDtr(module, "1\n", dtr);

        const Performed performed = Perform(module, {"GpioRecoveryThread"});

        EXPECT_THAT(Commands(module), ElementsAre("command 44"));
        EXPECT_EQ("GpioRecoveryThread - Exit", performed.messages.back());
    }
}

TEST(EcallUIGpioDtr, FirstCommandThatIsRefusedEndsTheRecoveryForGood) {
    Module module;
    Configure(module, {{"GpioIrqRecovery", "false"}});  // as while a recovery runs
    module.ioctls.AddFault("eth0 command 44", Fault::Error(EIO));

    const Performed performed = Perform(module, {"GpioRecoveryThread", "GpioIrqRecovery"});

    EXPECT_THAT(performed.results, Contains("GpioIrqRecovery = 0"));
    EXPECT_THAT(performed.sleeps, IsEmpty());
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRecoveryThread - Enter", "IOCTL ERROR (1) ==> GpioRecoveryThread - Exit"));
    module.journal.Await(IsInSyslog("IOCTL ERROR (1) ==> GpioRecoveryThread - Exit"));
    EXPECT_THAT(Commands(module), ElementsAre("command 44"));
}

TEST(EcallUIGpioDtr, RefusedRecoveryLeavesItsSocketOpenToo) {
    Module module;
    module.ioctls.AddFault("eth0 command 44", Fault::Error(EIO));

    // The first message makes the C library open the system log, which then stays open too.
    const Performed performed =
        Perform(module, {"GpioRecoveryThread", "descriptors", "GpioRecoveryThread", "descriptors"});

    EXPECT_EQ(Descriptors(performed.results[1]) + 1, Descriptors(performed.results[3]));
}

TEST(EcallUIGpioDtr, RecoveryWithoutASocketEndsAsOneThatIsRefused) {
    Module module;
    Configure(module, {{"GpioIrqRecovery", "false"}});

    const Performed performed =
        Perform(module, {"fail socket " + std::to_string(EMFILE), "GpioRecoveryThread", "GpioIrqRecovery"});

    EXPECT_THAT(performed.results, Contains("GpioIrqRecovery = 0"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRecoveryThread - Enter", "IOCTL ERROR (1) ==> GpioRecoveryThread - Exit"));
    EXPECT_THAT(Commands(module), IsEmpty());
}

TEST(EcallUIGpioDtr, SecondCommandThatIsRefusedIsOnlySaid) {
    Module module;
    Configure(module, {{"GpioIrqRecovery", "false"}});
    module.ioctls.AddFault("eth0 command 43", Fault::Error(EIO));

    const Performed performed = Perform(module, {"GpioRecoveryThread", "GpioIrqRecovery"});

    EXPECT_THAT(performed.results, Contains("GpioIrqRecovery = 1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRecoveryThread - Enter", "DTR is disabled ",
                            "IOCTL ERROR (2) ==> GpioRecoveryThread - Exit", "GpioRecoveryThread - Exit"));
    EXPECT_THAT(Commands(module), ElementsAre("command 44", "command 43"));
    module.journal.Await(IsInSyslog("IOCTL ERROR (2) ==> GpioRecoveryThread - Exit"));
}

}  // namespace
