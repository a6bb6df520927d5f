/// The self-test of the devices that this service owns: loudspeaker, crash-sensor line, cellular antenna.
#ifndef ECALL_UI_GPIO_TEST_H
#define ECALL_UI_GPIO_TEST_H

#include "XirEcallapp.h"

/// A result in which no device was tested.
TSelfTestAllDevicesState NothingTested();
/// Sends a result to the eCall service and logs a failure; blocks for the reply. Any thread but the notifications'.
/// proxy: held by the caller; null when there is none.
void SendSelfTestResult(IEcallAppPubProxy* proxy, const TSelfTestAllDevicesState& result);

/// Runs one self-test and reports it to the eCall service. Blocks for some 0.4 s, 2.9 s when the sensor does not
/// answer, and longer when the audio script or the eCall service does. One thread at a time.
void RunSelfTest();

#endif
