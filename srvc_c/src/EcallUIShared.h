/// What units on different floors share, so that no lower unit includes the top one.
#ifndef ECALL_UI_SHARED_H
#define ECALL_UI_SHARED_H

#include <cstdint>

#include "EcallappHandle.h"
#include "Relaxed.h"

constexpr char kApplicationVersion[] = "V0.22";

/// The proxy of the eCall application service; none while the service is not used or not reached.
extern EcallappHandle pProxyEcallapp;
/// 1: a self-test is asked for, or running. Set by the state notifications, cleared by the self-test worker.
extern Relaxed<uint8_t> SelfTestRequest;
/// 1: the next position also reports the GNSS items of the self-test.
extern Relaxed<uint8_t> GnssReportRequest;
/// selfTestState of the last record that the eCall service notified (TSelfTestState).
extern Relaxed<uint32_t> LastSelfTestState;

#endif
