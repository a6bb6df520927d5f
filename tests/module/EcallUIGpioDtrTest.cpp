// DTR through the serial driver's attributes, and the recovery of a lost sensor interrupt.
#include <gmock/gmock.h>

#include <cerrno>

#include "GpioTest.h"

using namespace std::chrono_literals;
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

TEST(EcallUIGpioDtr, LineWithoutAnAnswerIsSaid) {
    Module module;
    module.attributes.AddFault(line::kDtr, Use::Read, Fault::AtMost(0));

    const Performed performed = Perform(module, {"ReadDtrStatus"});

    EXPECT_THAT(performed.results, ElementsAre("ReadDtrStatus = -1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("can't read data from cat "
                            "/sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr file with Success",
                            ""));
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
    EXPECT_GE(sent[1].time - sent[0].time, 1s);
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRecoveryThread - Enter", "DTR is disabled ", "GpioRecoveryThread - Exit"));
    EXPECT_EQ(Descriptors(performed.results[0]) + 1, Descriptors(performed.results[3]));
}

TEST(EcallUIGpioDtr, RecoverySendsOneCommandWhileDtrIsAssertedOrUnknown) {
    for (const char* dtr : {"0\n", ""}) {
        Module module;
        SetDtr(module, "1\n", dtr);

        Perform(module, {"GpioRecoveryThread"});

        EXPECT_THAT(Commands(module), ElementsAre("command 44"));
    }
}

TEST(EcallUIGpioDtr, FirstCommandThatIsRefusedEndsTheRecoveryForGood) {
    Module module;
    Configure(module, {{"GpioIrqRecovery", "false"}});  // as while a recovery runs
    module.ioctls.AddFault("eth0 command 44", Fault::Error(EIO));

    const Performed performed = Perform(module, {"GpioRecoveryThread", "GpioIrqRecovery"});

    EXPECT_THAT(performed.results, Contains("GpioIrqRecovery = 0"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRecoveryThread - Enter", "IOCTL ERROR (1) ==> GpioRecoveryThread - Exit"));
    module.journal.Await(IsInSyslog("IOCTL ERROR (1) ==> GpioRecoveryThread - Exit"));
    EXPECT_THAT(Commands(module), ElementsAre("command 44"));
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
}

}  // namespace
