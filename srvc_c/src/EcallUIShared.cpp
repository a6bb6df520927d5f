#include "EcallUIShared.h"

#include "XirEcallapp.h"

EcallappHandle pProxyEcallapp;
Relaxed<uint8_t> SelfTestRequest{0};
Relaxed<uint8_t> GnssReportRequest{0};
Relaxed<uint32_t> LastSelfTestState{TSelfTestState_Unknown};
