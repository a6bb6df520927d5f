#include "EcallUIGpioUevent.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

/// NO_EVENT when nothing in the datagram is known.
EcallHwEvent EventOf(std::string_view datagram) {
    const UeventText* const known = ClassifyUevent(datagram);
    return known != nullptr ? known->event : NO_EVENT;
}

struct Announcement {
    const char* text;
    EcallHwEvent event;
    const char* logLine;

    friend void PrintTo(const Announcement& announcement, std::ostream* out) { *out << announcement.text; }
};

class EcallUIGpioUeventText : public testing::TestWithParam<Announcement> {};

TEST_P(EcallUIGpioUeventText, IsFoundInTheSecondStringOfADatagram) {
    const std::string datagram = "change@/devices/vantu_pwm.3\0PWM_STATE="s + GetParam().text + "\0SEQNUM=7\0"s;

    const UeventText* const known = ClassifyUevent(datagram);

    ASSERT_NE(nullptr, known);
    EXPECT_EQ(GetParam().event, known->event);
    EXPECT_STREQ(GetParam().logLine, known->logLine);
}

TEST_P(EcallUIGpioUeventText, IsFoundInsideAString) {
    EXPECT_EQ(GetParam().event, EventOf("x"s + GetParam().text + "x"));
}

TEST_P(EcallUIGpioUeventText, IsNotFoundWithItsLastCharacterMissing) {
    const std::string text = GetParam().text;

    const EcallHwEvent event = EventOf(text.substr(0, text.size() - 1));

    // What is left of INVALID_NO_IRQ still says INVALID.
    EXPECT_EQ(GetParam().event == AIRBAG_SENSOR_INVALID_NO_IRQ ? NO_EVENT_ERROR : NO_EVENT, event);
}

TEST_P(EcallUIGpioUeventText, IsNotPiecedTogetherFromTwoStrings) {
    std::string text = GetParam().text;
    text.insert(3, 1, '\0');

    EXPECT_EQ(NO_EVENT, EventOf(text));
}

INSTANTIATE_TEST_SUITE_P(
    All, EcallUIGpioUeventText,
    testing::Values(Announcement{"ECALL ACTIVATED", BUTTON_MANUAL_ECALL_ACTIVATED,
                                 "uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED"},
                    Announcement{"DTR ACTIVATED", DTR_ACTIVATED, "uevent_hdlr ==> DTR is activated"},
                    Announcement{"DTR INACTIVATED", DTR_INACTIVATED, "uevent_hdlr ==> DTR is inactivated"},
                    Announcement{"SENSOR NOT DETECTED", AIRBAG_SENSOR_NOT_DETECTED,
                                 "ecall-ens : sensor not detected (No PWM)"},
                    Announcement{"NORMAL", AIRBAG_SENSOR_NORMAL_MODE_10HZ, "ecall-ens ==> sensor detected (PWM 10 Hz)"},
                    Announcement{"EMERGENCY", AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ,
                                 "ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)"},
                    Announcement{"INVALID_NO_IRQ", AIRBAG_SENSOR_INVALID_NO_IRQ, "ecall-ens : NO_IRQ"},
                    Announcement{"INVALID", NO_EVENT_ERROR, "ecall-ens : uevent INVALID"}));

TEST(EcallUIGpioUevent, EachTextGoesBeforeTheOnesBelowItInOneString) {
    constexpr std::pair<const char*, EcallHwEvent> kInOrder[] = {{"ECALL ACTIVATED", BUTTON_MANUAL_ECALL_ACTIVATED},
                                                                 {"DTR ACTIVATED", DTR_ACTIVATED},
                                                                 {"DTR INACTIVATED", DTR_INACTIVATED},
                                                                 {"SENSOR NOT DETECTED", AIRBAG_SENSOR_NOT_DETECTED},
                                                                 {"NORMAL", AIRBAG_SENSOR_NORMAL_MODE_10HZ},
                                                                 {"EMERGENCY", AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ},
                                                                 {"INVALID_NO_IRQ", AIRBAG_SENSOR_INVALID_NO_IRQ},
                                                                 {"INVALID", NO_EVENT_ERROR}};

    std::string line;
    for (auto row = std::rbegin(kInOrder); row != std::rend(kInOrder); ++row) {
        line += row->first + " "s;  // the later tested ones stand first in the string
        EXPECT_EQ(row->second, EventOf(line)) << line;
    }
}

TEST(EcallUIGpioUevent, TheFirstStringThatIsKnownDecides) {
    EXPECT_EQ(AIRBAG_SENSOR_INVALID_NO_IRQ, EventOf("change@/x\0A=INVALID_NO_IRQ\0B=ECALL ACTIVATED\0"s));
    EXPECT_EQ(AIRBAG_SENSOR_NORMAL_MODE_10HZ, EventOf("\0\0\0NORMAL\0EMERGENCY"s));
}

TEST(EcallUIGpioUevent, ADatagramAboutSomethingElseIsNoEvent) {
    EXPECT_EQ(NO_EVENT, EventOf("add@/devices/usb\0ACTION=add\0SUBSYSTEM=usb\0SEQNUM=9\0"s));
    EXPECT_EQ(NO_EVENT, EventOf("STATE=emergency"));
    EXPECT_EQ(NO_EVENT, EventOf(std::string(512, '\0')));
    EXPECT_EQ(NO_EVENT, EventOf(""));
}

TEST(EcallUIGpioUevent, TheLastStringNeedsNoEnd) {
    EXPECT_EQ(AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ, EventOf(std::string(503, 'x') + "EMERGENCY"));
    EXPECT_EQ(NO_EVENT, EventOf((std::string(504, 'x') + "EMERGENCY").substr(0, 512)));
}

}  // namespace
