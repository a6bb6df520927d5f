#include "EcallUIShared.h"

#include "XirEcallapp.h"

Relaxed<IEcallAppPubProxy*> pProxyEcallapp{nullptr};
Relaxed<uint8_t> SelfTestRequest{0};
Relaxed<uint8_t> GnssReportRequest{0};
Relaxed<uint32_t> LastSelfTestState{TSelfTestState_Unknown};
