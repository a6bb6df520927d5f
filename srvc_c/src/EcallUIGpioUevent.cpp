#include "EcallUIGpioUevent.h"

#include <algorithm>
#include <string_view>

namespace {

// In the order in which a string is tested for them: a text that is contained in another one comes after it.
constexpr UeventText kUeventTexts[] = {
    {"ECALL ACTIVATED", BUTTON_MANUAL_ECALL_ACTIVATED, "uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED"},
    {"DTR ACTIVATED", DTR_ACTIVATED, "uevent_hdlr ==> DTR is activated"},
    {"DTR INACTIVATED", DTR_INACTIVATED, "uevent_hdlr ==> DTR is inactivated"},
    {"SENSOR NOT DETECTED", AIRBAG_SENSOR_NOT_DETECTED, "ecall-ens : sensor not detected (No PWM)"},
    {"NORMAL", AIRBAG_SENSOR_NORMAL_MODE_10HZ, "ecall-ens ==> sensor detected (PWM 10 Hz)"},
    {"EMERGENCY", AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ, "ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)"},
    {"INVALID_NO_IRQ", AIRBAG_SENSOR_INVALID_NO_IRQ, "ecall-ens : NO_IRQ"},
    {"INVALID", NO_EVENT_ERROR, "ecall-ens : uevent INVALID"},
};

const UeventText* FindKnownText(std::string_view line) {
    const auto* const found = std::ranges::find_if(
        kUeventTexts, [line](const UeventText& known) { return line.find(known.text) != std::string_view::npos; });
    return found != std::end(kUeventTexts) ? found : nullptr;
}

}  // namespace

const UeventText* ClassifyUevent(std::span<const char> datagram) {
    std::string_view rest(datagram.data(), datagram.size());
    while (!rest.empty()) {
        const std::size_t length = std::min(rest.find('\0'), rest.size());
        if (const UeventText* const known = FindKnownText(rest.substr(0, length))) {
            return known;
        }
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
    return nullptr;
}
