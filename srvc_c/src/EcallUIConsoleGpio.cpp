// The module's lines and devices by hand: a row per command.
#include <cstring>

#include "EcallUIConsoleMenus.h"
#include "EcallUIConsoleOutput.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioLed.h"
#include "EcallUIGpioRelay.h"

namespace {

constexpr int kMenuWidth = 70;  // of an entry, in characters as shown
constexpr int kNumberWidth = 6;

struct GpioCommand {
    int32_t number;
    EcallGpioId line;  ///< for those that read or set one
    const char* name;
    const char* argument;  ///< as the menu shows it behind the name; empty: the command takes none
    void (*run)(const GpioCommand& command, int32_t value);
};

void PrintEntry(const GpioCommand& command) {
    const int nameWidth = static_cast<int>(strlen(command.name));
    PrintLine("%2d  : %s%-*s", command.number, command.name, kMenuWidth - kNumberWidth - nameWidth, command.argument);
}

void PrintValue(const GpioCommand& command, int32_t value) {
    PrintLine("%s = %d \n", command.name, value);
}

void Read(const GpioCommand& command, int32_t /*value*/) {
    PrintLine("%s : %d \n", command.name, GpioRead(command.line));
}

void Set(const GpioCommand& command, int32_t value) {
    GpioWrite(command.line, static_cast<uint8_t>(value));
    PrintValue(command, value);
}

/// Says what comes before the lock moves.
void SetAnnounced(const GpioCommand& command, int32_t value) {
    PrintEntry(command);
    PrintValue(command, value);
    GpioWrite(command.line, static_cast<uint8_t>(value));
}

void SetLed(const GpioCommand& command, int32_t value) {
    switch (value) {
        case 0:
            ShowLedPattern(LedPattern::Idle);
            break;
        case 1:
            ShowLedPattern(LedPattern::Active);
            break;
        default:
            ShowLedPattern(LedPattern::Error);
            break;
    }
    PrintValue(command, value);
}

void SetRelayTimer(const GpioCommand& /*command*/, int32_t value) {
    PrintLine("TimerAudioRelay(cmd = %d) \n", value);
    TimerAudioRelay(value != 0);
}

void SayUnused(const GpioCommand& /*command*/, int32_t /*value*/) {
    PrintLine("unused ");
}

void SayBadCommand(const GpioCommand& /*command*/, int32_t /*value*/) {
    PrintLine("ERROR bad argument ");
}

constexpr GpioCommand kCommands[] = {
    {1, kGpioAudioRelay, "Set ECALL_AUDIO_RELAY (SPI_MISO / GPIO_33) output value", " <value>", Set},
    {2, kGpioSosButtonDet, "Read sos-button-det (SPI_MOSI / GPIO_34) input value", "", Read},
    {3, kGpioAntSelect, "Read (GPIO_22) output value", "", Read},
    {4, kGpioGnssSystemOn, "Read gnss-system-on (SPI_CLK/GPIO_31) input value", "", Read},
    {5, kGpioGnssAntDet, "Read gnss-ant-det (UART3_CTS) input value", "", Read},
    {6, {}, "removed", "", SayUnused},
    {7, kGpioEcallNrqst, "Read last ecall-nrqst (GPIO_08) event", "", Read},
    {8, kPwmEcallEns, "Read last ecall-ens (GPIO_21) event", "", Read},
    {9, kGpioEcallNlock, "Set ecall-nlock (GPIO_10) output value", " <value>", SetAnnounced},
    {10, kGpioEcallNlock, "Read ecall-nlock (GPIO_10) output value", "", Read},
    {11, kGpioGnssBootSel, "Set gnss-boot-sel (SPI_CS / GPIO_32) output value", " <value>", Set},
    {12, kGpioGnssBootSel, "read gnss-boot-sel (SPI_CS / GPIO_32) output value", "", Read},
    {13, kGpioAmpHwmute, "Set amp-hwmute (UART3_RTS) output value", " <value>", Set},
    {14, kGpioAmpHwmute, "read amp-hwmute (UART3_RTS) output value", "", Read},
    {15, kGpioGnssOnOff, "Set gnss-on-off (GPIO_12) output value", " <value>", Set},
    {16, kGpioGnssOnOff, "read gnss-on-off (GPIO_12) output value", "", Read},
    {17, kGpioAmpNstby, "Set amp-nstby (GPIO_04) output value", " <value>", Set},
    {18, kGpioAmpNstby, "read amp-nstby (GPIO_04) output value", "", Read},
    {19, {}, "Set ecall-led-cntl (GPIO_20)", " <0=idle, 1=active, 2=error>", SetLed},
    {20, {}, "removed", "", SayBadCommand},
    {26, {}, "TimerAudioRelay", " <0=stop, 1=start>", SetRelayTimer},
};

void Run(const GpioCommand& command, ConsoleInput& input) {
    int32_t value = 0;
    if (command.argument[0] != '\0' && !getIntParam(input, value)) {
        PrintLine("%s needs 1 parameter :%s \n", command.name, command.argument);
        return;
    }
    command.run(command, value);
}

}  // namespace

void DisplayGpioMenu() {
    PrintLine(" UI GPIO MENU  ");
    PrintLine(" ------------  ");
    PrintLine("%-*s", kMenuWidth, " .  : display main menu");
    PrintLine("%-*s", kMenuWidth, " 0  : display this menu");
    for (const GpioCommand& command : kCommands) {
        PrintEntry(command);
    }
}

int32_t RunGpioCommand(int32_t number, ConsoleInput& input) {
    for (const GpioCommand& command : kCommands) {
        if (command.number == number) {
            Run(command, input);
            return 0;
        }
    }
    PrintLine("ERROR bad argument ");
    return 0;
}
