/// From the bytes of a kernel uevent to the event that they announce.
#ifndef ECALL_UI_GPIO_UEVENT_H
#define ECALL_UI_GPIO_UEVENT_H

#include <cstdint>
#include <span>

/// What the hardware announces. 0 to 4 are also the statuses of GpioRead_EcallEns.
enum EcallHwEvent : int32_t {
    AIRBAG_SENSOR_INVALID = 0,  ///< never announced by a uevent
    AIRBAG_SENSOR_NOT_DETECTED = 1,
    AIRBAG_SENSOR_NORMAL_MODE_10HZ = 2,
    AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ = 3,
    AIRBAG_SENSOR_INVALID_NO_IRQ = 4,
    BUTTON_MANUAL_ECALL_ACTIVATED = 5,
    DTR_ACTIVATED = 6,
    DTR_INACTIVATED = 7,
    NO_EVENT = 8,       ///< a datagram about something else
    NO_EVENT_ERROR = 9  ///< an invalid sensor signal, or nothing could be received
};

/// A text that a driver puts into its uevents, and what it means.
struct UeventText {
    const char* text;
    EcallHwEvent event;
    const char* logLine;
};

/// Finds the meaning of a datagram: a sequence of strings, each ended by a NUL, the last perhaps cut off. The first
/// string that contains a known text anywhere decides. Null: none does.
/// datagram: borrowed for this call. Takes no lock, logs nothing, any thread.
const UeventText* ClassifyUevent(std::span<const char> datagram);

#endif
