// The ioctls as a process of the module makes them.
#include "IoctlSupervisor.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "Module.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Runs the probe to its end; answers its output.
std::string RunProbe(Module& module, std::vector<std::string> words) {
    ModuleProcess& probe = module.Start(MODULE_PROBE, std::move(words));
    EXPECT_EQ(0, probe.WaitForEnd());
    return probe.Output();
}

Match IsI2c(std::string text) {
    Match match = IsKind(Kind::I2c);
    match.text = std::move(text);
    return match;
}

}  // namespace

TEST(IoctlSupervisor, AWriteReachesTheAmplifiersRegisters) {
    Module module;

    EXPECT_EQ("put 1 ok\n\rput 1 ok\n\r", RunProbe(module, {"put", "0x72", "1", "0x41", "put", "0x72", "14", "0x07"}));

    EXPECT_EQ(0x41, module.ioctls.AmplifierRegister(1));
    EXPECT_EQ(0x07, module.ioctls.AmplifierRegister(14));
    const std::vector<Entry> transfers = module.journal.All(IsKind(Kind::I2c));
    ASSERT_EQ(2U, transfers.size());
    EXPECT_EQ("/dev/i2c-2", transfers[0].subject);
    EXPECT_EQ("write 0x72 flags 0x0000: 01 41", transfers[0].text);
    EXPECT_EQ("\x01\x41", transfers[0].bytes);
    EXPECT_EQ(1, transfers[0].result);
    EXPECT_NE(0, transfers[0].pid);
}

TEST(IoctlSupervisor, TheConverterShowsTheSelectedInput) {
    Module module;
    module.ioctls.SetConverterInput(0, 0x0102);
    module.ioctls.SetConverterInput(3, 0xA1B2);

    EXPECT_EQ("convert 1 2 0102\n\r", RunProbe(module, {"convert", "0x4583"}));
    EXPECT_EQ("convert 1 2 a1b2\n\r", RunProbe(module, {"convert", "0x7583"}));
}

TEST(IoctlSupervisor, OneByteAloneLeavesTheConvertersSetting) {
    Module module;
    module.ioctls.SetConverterInput(2, 0x7788);

    RunProbe(module, {"convert", "0x6583"});

    // Register 1 with a single byte of data, then the conversion register once more.
    EXPECT_EQ("put 1 ok\n\r", RunProbe(module, {"put", "0x90", "1", "0"}));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::I2c)).back(), "write 0x90 flags 0x0000: 01 00");
    EXPECT_EQ("convert 1 2 7788\n\r", RunProbe(module, {"convert", "0x6583"}));
}

TEST(IoctlSupervisor, AnAddressWithoutDeviceAnswersNoSuchDevice) {
    Module module;

    EXPECT_EQ("put -1 No such device or address\n\r", RunProbe(module, {"put", "0x50", "1", "2"}));

    EXPECT_EQ(-ENXIO, module.journal.Await(IsI2c("write 0x50 flags 0x0000: 01 02")).result);
}

TEST(IoctlSupervisor, TheRecoveryCommandIsSeenWithJunkInTheUpperHalfOfTheRequest) {
    Module module;

    EXPECT_EQ("recover 0 ok\n\r", RunProbe(module, {"recover", "44"}));

    const std::vector<Entry> commands = module.journal.All(IsKind(Kind::NetIoctl));
    ASSERT_EQ(1U, commands.size());
    EXPECT_EQ("eth0", commands[0].subject);
    EXPECT_EQ("command 44", commands[0].text);
    EXPECT_EQ(std::string("\0\0\0\0\0\0\0\0\x2c\0\0\0", 12), commands[0].bytes);
}

TEST(IoctlSupervisor, OtherIoctlsAreTheKernels) {
    Module module;

    EXPECT_EQ("passthrough 0 lo is up\n\r", RunProbe(module, {"passthrough"}));

    EXPECT_THAT(module.journal.All(IsKind(Kind::NetIoctl)), IsEmpty());
}

TEST(IoctlSupervisor, ArgumentsThatLieNowhereAreABadAddress) {
    Module module;

    EXPECT_EQ("badpointer Bad address\n\rbadpointer Bad address\n\rbadpointer Bad address\n\r",
              RunProbe(module, {"badpointer"}));
}

TEST(IoctlSupervisor, AFaultStrikesTheRequestsThatItsPatternMeans) {
    Module module;
    module.ioctls.AddFault("write 0x72 flags 0x0000: 08 *", Fault::Error(EREMOTEIO));
    module.ioctls.AddFault("eth0 command 43", Fault::Error(EPERM).Once());

    EXPECT_EQ("put 1 ok\n\rput -1 Remote I/O error\n\rput 1 ok\n\r",
              RunProbe(module, {"put", "0x72", "1", "0x41", "put", "0x72", "8", "0xE1", "put", "0x72", "14", "7"}));
    EXPECT_EQ("recover 0 ok\n\rrecover -1 Operation not permitted\n\rrecover 0 ok\n\r",
              RunProbe(module, {"recover", "44", "recover", "43", "recover", "43"}));

    EXPECT_EQ(0, module.ioctls.AmplifierRegister(8)) << "a failed write changes nothing";
    EXPECT_EQ(-EREMOTEIO, module.journal.Await(IsI2c("write 0x72 flags 0x0000: 08 e1")).result);
}

TEST(IoctlSupervisor, AFaultCanStrikeTheThirdTransferOnly) {
    Module module;
    module.ioctls.AddFault("*", Fault::Error(EIO).FromThe(3).Once());

    EXPECT_EQ("convert 1 2 0000\n\rconvert -1 2 0000\n\r",
              RunProbe(module, {"convert", "0x4583", "convert", "0x4583"}));

    module.ioctls.AddFault("*", Fault::Error(EIO));
    module.ioctls.ClearFaults();
    EXPECT_EQ("convert 1 2 0000\n\r", RunProbe(module, {"convert", "0x4583"}));
}

TEST(IoctlSupervisor, ASlowTransferIsNotInterruptedByAFasterTimer) {
    Module module;
    constexpr auto kDelay = 100ms;  // a hundred ticks of the probe's timer
    module.ioctls.AddFault("write 0x72*", Fault::Slow(kDelay));
    const auto begin = Journal::Clock::now();

    EXPECT_EQ("put 1 ok\n\r", RunProbe(module, {"tick", "put", "0x72", "1", "0x41"}));

    EXPECT_GE(Journal::Clock::now() - begin, kDelay);
    EXPECT_EQ(1U, module.journal.Count(IsKind(Kind::I2c))) << "asked once, not again and again";
}

TEST(IoctlSupervisor, ASlowTransferHoldsUpNoOther) {
    Module module;
    module.ioctls.AddFault("*command 44", Fault::Slow(24h));
    ModuleProcess& slow = module.Start(MODULE_PROBE, {"run",
                                                      "/usr/bin/module_probe recover 44 & "
                                                      "until [ -e /tmp/go ]; do sleep 0.01; done; "
                                                      "/usr/bin/module_probe recover 43; wait"});
    module.journal.Await({.kind = Kind::NetIoctl, .text = "command 44"});

    module.root.WriteFile("/tmp/go", "");

    EXPECT_TRUE(module.journal.Await(IsOnConsole("recover 0 ok")).seq > 0);
    slow.Kill();
}

TEST(IoctlSupervisor, AProcessKilledInATransferTroublesNobody) {
    Module module;
    module.ioctls.AddFault("*", Fault::Slow(24h).Once());
    ModuleProcess& killed = module.Start(MODULE_PROBE, {"put", "0x72", "1", "0x41"});
    module.journal.Await(IsKind(Kind::I2c));

    killed.Kill();

    EXPECT_EQ("put 1 ok\n\r", RunProbe(module, {"put", "0x72", "1", "0x40"}));
}

TEST(IoctlSupervisor, ChildrenOfTheServiceAreAnsweredToo) {
    Module module;

    EXPECT_EQ("put 1 ok\n\rrun 0\n\r", RunProbe(module, {"run", "/usr/bin/module_probe put 0x72 1 0x41"}));

    EXPECT_EQ(0x41, module.ioctls.AmplifierRegister(1));
}

TEST(IoctlSupervisor, TwoProcessesAreServedSideBySide) {
    Module module;
    ModuleProcess& first = module.Start(MODULE_PROBE, {"echo", "put", "0x72", "1", "0x41"}, true);
    ModuleProcess& second = module.Start(MODULE_PROBE, {"put", "0x72", "8", "0xE1"});
    EXPECT_EQ(0, second.WaitForEnd());

    first.Input("\n");

    EXPECT_EQ(0, first.WaitForEnd());
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::I2c)),
                ElementsAre("write 0x72 flags 0x0000: 08 e1", "write 0x72 flags 0x0000: 01 41"));
}

TEST(IoctlSupervisor, WithoutTheBusDeviceNothingIsAnswered) {
    Module module;
    module.root.Remove("/dev/i2c-2");

    EXPECT_EQ("put -1 Bad file descriptor\n\r", RunProbe(module, {"put", "0x72", "1", "0x41"}));

    EXPECT_THAT(module.journal.All(IsKind(Kind::I2c)), IsEmpty());
}

TEST(IoctlSupervisor, ATransferOnAnotherFileIsTheKernels) {
    Module module;

    EXPECT_EQ("wrongfile Inappropriate ioctl for device\n\r", RunProbe(module, {"wrongfile"}));

    EXPECT_THAT(module.journal.All(IsKind(Kind::I2c)), IsEmpty());
}
