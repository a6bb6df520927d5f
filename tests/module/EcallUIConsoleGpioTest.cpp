// The console's menu of lines and devices: what it shows, which line it reads or writes, what it prints of it.
#include <gmock/gmock.h>

#include "ConsoleWorld.h"

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
