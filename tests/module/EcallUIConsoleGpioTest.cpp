// The console's menu of lines and devices: what it shows, which line it reads or writes, what it prints of it.
#include <gmock/gmock.h>

#include "ConsoleWorld.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

std::string Menu() {
    std::string text = " UI GPIO MENU  \n ------------  \n";
    for (const char* entry : {
             " .  : display main menu",
             " 0  : display this menu",
             " 1  : Set ECALL_AUDIO_RELAY (SPI_MISO / GPIO_33) output value <value>",
             " 2  : Read sos-button-det (SPI_MOSI / GPIO_34) input value",
             " 3  : Read (GPIO_22) output value",
             " 4  : Read gnss-system-on (SPI_CLK/GPIO_31) input value",
             " 5  : Read gnss-ant-det (UART3_CTS) input value",
             " 6  : removed",
             " 7  : Read last ecall-nrqst (GPIO_08) event",
             " 8  : Read last ecall-ens (GPIO_21) event",
             " 9  : Set ecall-nlock (GPIO_10) output value <value>",
             "10  : Read ecall-nlock (GPIO_10) output value",
             "11  : Set gnss-boot-sel (SPI_CS / GPIO_32) output value <value>",
             "12  : read gnss-boot-sel (SPI_CS / GPIO_32) output value",
             "13  : Set amp-hwmute (UART3_RTS) output value <value>",
             "14  : read amp-hwmute (UART3_RTS) output value",
             "15  : Set gnss-on-off (GPIO_12) output value <value>",
             "16  : read gnss-on-off (GPIO_12) output value",
             "17  : Set amp-nstby (GPIO_04) output value <value>",
             "18  : read amp-nstby (GPIO_04) output value",
             "19  : Set ecall-led-cntl (GPIO_20) <0=idle, 1=active, 2=error>",
             "20  : removed",
             "26  : TimerAudioRelay <0=stop, 1=start>",
         }) {
        text += Padded(entry, 70) + "\n";
    }
    return text;
}

}  // namespace

TEST(EcallUIConsoleGpio, TheMenuIsShownPaddedTo70Characters) {
    ConsoleWorld world;
    world.StartAlone();

    EXPECT_EQ(Menu(), world.Type("3"));
    EXPECT_EQ(Menu(), world.Type("0"));
    EXPECT_EQ(kNoNumber + Menu(), world.Type(""));
}

namespace {

/// At the menu of lines and devices.
struct GpioMenu : ConsoleWorld {
    explicit GpioMenu(const std::string& members = "") {
        StartAlone(members);
        Type("3");
    }
};

/// What the console says at the end, behind the last trace message.
std::string Said(const std::string& output) {
    const size_t trace = output.rfind("\n\r");
    return trace == std::string::npos ? output : output.substr(trace + 2);
}

struct LineCommand {
    const char* number;
    const char* text;
    const char* line;
};

constexpr LineCommand kSets[] = {
    {"1", "Set ECALL_AUDIO_RELAY (SPI_MISO / GPIO_33) output value", line::kRelay},
    {"11", "Set gnss-boot-sel (SPI_CS / GPIO_32) output value", line::kGnssBoot},
    {"13", "Set amp-hwmute (UART3_RTS) output value", line::kAmplifierMute},
    {"15", "Set gnss-on-off (GPIO_12) output value", line::kGnssOnOff},
    {"17", "Set amp-nstby (GPIO_04) output value", line::kAmplifierStandby},
};
constexpr LineCommand kReads[] = {
    {"2", "Read sos-button-det (SPI_MOSI / GPIO_34) input value", line::kSosButton},
    {"3", "Read (GPIO_22) output value", line::kGpio22},
    {"4", "Read gnss-system-on (SPI_CLK/GPIO_31) input value", line::kGnssSystemOn},
    {"5", "Read gnss-ant-det (UART3_CTS) input value", line::kGnssAntenna},
    {"7", "Read last ecall-nrqst (GPIO_08) event", line::kButton},
    {"10", "Read ecall-nlock (GPIO_10) output value", line::kNlock},
    {"12", "read gnss-boot-sel (SPI_CS / GPIO_32) output value", line::kGnssBoot},
    {"14", "read amp-hwmute (UART3_RTS) output value", line::kAmplifierMute},
    {"16", "read gnss-on-off (GPIO_12) output value", line::kGnssOnOff},
    {"18", "read amp-nstby (GPIO_04) output value", line::kAmplifierStandby},
};

/// The uses of attribute files from the mark on, opening apart: "Write path value".
std::vector<std::string> Uses(Module& module, uint64_t from) {
    std::vector<std::string> uses;
    for (const Entry& entry : module.journal.All({}, from)) {
        if (entry.kind == Kind::Read || entry.kind == Kind::Write) {
            uses.push_back(std::string(KindName(entry.kind)) + " " + entry.subject + " " + entry.text);
        }
    }
    return uses;
}

}  // namespace

TEST(EcallUIConsoleGpio, ASetCommandWritesItsLineAndShowsTheValueAsTyped) {
    GpioMenu world;

    for (const LineCommand& command : kSets) {
        for (const char* value : {"1", "0", "256"}) {
            const uint64_t mark = world.module.journal.Mark();
            const std::string output = world.Type(std::string(command.number) + " " + value);

            const std::string written = std::string(value) == "1" ? "1" : "0";  // 256 is sent as its low byte
            EXPECT_THAT(Uses(world.module, mark), ElementsAre("Write " + std::string(command.line) + " " + written));
            EXPECT_EQ(std::string(command.text) + " = " + value + " \n", Said(output));
            EXPECT_THAT(output, EndsWith("GpioWrite - Exit : ret = 0\n\r" + Said(output)));  // written first
        }
    }
}

TEST(EcallUIConsoleGpio, ASetCommandNeedsAValue) {
    GpioMenu world;
    const uint64_t mark = world.module.journal.Mark();

    for (const LineCommand& command : kSets) {
        const std::string help = std::string(command.text) + " needs 1 parameter : <value> \n";
        EXPECT_EQ(kNoNumber + help, world.Type(command.number));
        EXPECT_EQ(kNoNumber + help, world.Type(std::string(command.number) + " on"));
        EXPECT_EQ(kNoNumber + help, world.Type(std::string(command.number) + "  1"));
    }
    EXPECT_EQ(kNoNumber + "Set ecall-nlock (GPIO_10) output value needs 1 parameter : <value> \n", world.Type("9"));
    EXPECT_EQ(kNoNumber + "Set ecall-led-cntl (GPIO_20) needs 1 parameter : <0=idle, 1=active, 2=error> \n",
              world.Type("19"));
    EXPECT_EQ(kNoNumber + "TimerAudioRelay needs 1 parameter : <0=stop, 1=start> \n", world.Type("26"));
    EXPECT_THAT(Uses(world.module, mark), IsEmpty());
}

TEST(EcallUIConsoleGpio, TheLockIsAnnouncedBeforeItIsWritten) {
    GpioMenu world;
    const uint64_t mark = world.module.journal.Mark();

    const std::string output = world.Type("9 1");

    EXPECT_THAT(Uses(world.module, mark), ElementsAre("Write " + std::string(line::kNlock) + " 1"));
    EXPECT_THAT(output, StartsWith(Padded(" 9  : Set ecall-nlock (GPIO_10) output value <value>", 70) +
                                   "\nSet ecall-nlock (GPIO_10) output value = 1 \nGpioWrite - Enter : GpioId = 8"));
}

TEST(EcallUIConsoleGpio, AReadCommandReadsItsLineAndShowsTheValue) {
    GpioMenu world;

    for (const LineCommand& command : kReads) {
        for (const char* value : {"1", "0"}) {
            world.module.SetAttribute(command.line, std::string(value) + "\n");
            const uint64_t mark = world.module.journal.Mark();

            EXPECT_EQ(std::string(command.text) + " : " + value + " \n", Said(world.Type(command.number)));

            EXPECT_THAT(Uses(world.module, mark),
                        ElementsAre("Read " + std::string(command.line) + " " + value + "\n"));
        }
    }
}

TEST(EcallUIConsoleGpio, TheSensorsDeviceIsNoLine) {
    GpioMenu world;
    const uint64_t mark = world.module.journal.Mark();

    // A directory can be opened, but not read: the first character of nothing less '0'.
    EXPECT_EQ("Read last ecall-ens (GPIO_21) event : -48 \n", Said(world.Type("8")));
    world.module.attributes.Remove(world.module.devices.sensor);
    EXPECT_EQ("Read last ecall-ens (GPIO_21) event : -1 \n", Said(world.Type("8")));

    EXPECT_THAT(Uses(world.module, mark), IsEmpty());
}

TEST(EcallUIConsoleGpio, ALineThatIsMissingReadsAsMinusOneAndTakesNothing) {
    GpioMenu world;
    for (const LineCommand& command : kReads) {
        world.module.attributes.SetMissing(command.line);
        EXPECT_EQ(std::string(command.text) + " : -1 \n", Said(world.Type(command.number)));
    }
    world.module.attributes.SetMissing(line::kRelay);

    const std::string output = world.Type("1 1");

    EXPECT_EQ(std::string(kSets[0].text) + " = 1 \n", Said(output));
    EXPECT_THAT(output, HasSubstr("Unable to open 6 pin value file\n"));
}

TEST(EcallUIConsoleGpio, RemovedAndUnknownCommandsSaySo) {
    GpioMenu world;
    const uint64_t mark = world.module.journal.Mark();

    EXPECT_EQ("unused \n", world.Type("6"));
    EXPECT_EQ("unused \n", world.Type("6 1"));
    for (const char* line : {"20", "20 1", "21", "22", "23", "24", "25", "27", "99", "-2"}) {
        EXPECT_EQ("ERROR bad argument \n", world.Type(line)) << line;
    }
    EXPECT_THAT(Uses(world.module, mark), IsEmpty());
}

TEST(EcallUIConsoleGpio, TheLedShowsTheChosenPattern) {
    const auto uses = [](const Module& module, const std::vector<std::pair<const char*, const char*>>& writes) {
        std::vector<std::string> expected;
        expected.reserve(writes.size());
        for (const auto& [attribute, value] : writes) {
            expected.push_back("Write " + module.Led(attribute) + " " + value);
        }
        return expected;
    };
    GpioMenu world(R"("LedPwmPeriodMs": 1, "LedEcallIdleBrightness1PerCent": 10, "LedEcallIdleBrightness2PerCent": 20,
                       "LedEcallIdleBlicking12PeriodInMs": 0, "LedEcallActiveBrightness1PerCent": 30,
                       "LedEcallActiveBrightness2PerCent": 40, "LedEcallActiveBlicking12PeriodInMs": 500,
                       "LedEcallErrorBrightness1PerCent": 50, "LedEcallErrorBrightness2PerCent": 60,
                       "LedEcallErrorBlicking12PeriodInMs": 700)");
    const auto idle = uses(world.module, {{"enable", "0"},
                                          {"cfg", "1"},
                                          {"cfg1_period", "1000000"},
                                          {"cfg1_duty", "100000"},
                                          {"toggle", "0"},
                                          {"enable", "1"}});
    const auto blinking = [&](const char* duty1, const char* duty2, const char* interval) {
        return uses(world.module, {{"enable", "0"},
                                   {"cfg", "1"},
                                   {"cfg1_period", "1000000"},
                                   {"cfg1_duty", duty1},
                                   {"cfg2_period", "1000000"},
                                   {"cfg2_duty", duty2},
                                   {"toggle_time", interval},
                                   {"toggle", "1"},
                                   {"enable", "1"}});
    };
    const struct {
        const char* value;
        std::vector<std::string> writes;
    } cases[] = {
        {"0", idle},
        {"1", blinking("300000", "400000", "500")},
        {"2", blinking("500000", "600000", "700")},
        {"3", blinking("500000", "600000", "700")},
        {"-1", blinking("500000", "600000", "700")},
        {"256", blinking("500000", "600000", "700")},
    };
    for (const auto& chosen : cases) {
        const uint64_t mark = world.module.journal.Mark();
        const std::string output = world.Type(std::string("19 ") + chosen.value);

        EXPECT_EQ(chosen.writes, Uses(world.module, mark)) << chosen.value;
        EXPECT_EQ(std::string("Set ecall-led-cntl (GPIO_20) = ") + chosen.value + " \n", Said(output));
    }
}

TEST(EcallUIConsoleGpio, TheRelaysTimerIsStartedAndStopped) {
    GpioMenu world(R"("AudioRelayUsed": true)");
    Journal& journal = world.module.journal;
    const Match off = IsWritten(line::kRelay, "0");

    const std::string started = world.Type("26 1");
    EXPECT_THAT(started, StartsWith("TimerAudioRelay(cmd = 1) \nTimerAudioRelay (activateTimer=1) - Enter\n\r"));
    const std::string stopped = world.Type("26 0");
    EXPECT_THAT(stopped, StartsWith("TimerAudioRelay(cmd = 0) \nTimerAudioRelay (activateTimer=0) - Enter\n\r"));
    const uint64_t mark = journal.Mark();  // the first delay may have ended on a machine that is busy
    const std::chrono::nanoseconds again = journal.Now();
    EXPECT_THAT(world.Type("26 2"), HasSubstr("TimerAudioRelay (activateTimer=1) - Enter\n\r"));

    EXPECT_LE(std::chrono::seconds(5), journal.Await(off, mark).time - again);
}
