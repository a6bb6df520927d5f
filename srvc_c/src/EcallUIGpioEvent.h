/// The hardware event thread: kernel events become emergency calls.
#ifndef ECALL_UI_GPIO_EVENT_H
#define ECALL_UI_GPIO_EVENT_H

#include <cstdint>

#include "EcallUIGpioUevent.h"

/// Starts the event thread, when the configuration uses the sensor or the button, and sets the outputs that do not
/// follow the eCall service. Called once by start-up, after the UI state was restored.
void InitGpio();

/// Entry of the event thread. Returns when select fails for good; then no event is handled any more. Ends the process
/// with status 1 when there can be no event socket.
void Thread_GPIO_UEVNET();
/// Waits for one datagram on the event socket and classifies it. Event thread only.
EcallHwEvent uevent_hdlr();

/// Sets the sensor's PWM detector up: how often it measures, and that it repeats its events.
void ConfigureEcallEns();
/// Sets the button's interrupt up. The first failure ends it, with the interrupt off when it had got so far.
void ConfigureEcallButtonNrqst(uint8_t activeLow);

/// Reports the crash sensor as failed (1) or sound (0) to the eCall service, if that has shown a self-test state.
/// Blocks for the reply.
void SendRtaDetectorErrorStatus(uint8_t rtaDetectorError);

#endif
