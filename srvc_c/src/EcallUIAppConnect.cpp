#include "EcallUIAppConnect.h"

#include <cstdint>
#include <cstdlib>

#include "EcallUIAppNotify.h"
#include "EcallUIData.h"
#include "EcallUIShared.h"
#include "Received.h"
#include "Trace.h"
#include "XirEcallapp.h"

namespace {

/// exit, not _exit: what was printed must reach the console. The proxy's dispatch thread goes on meanwhile; it uses
/// nothing that exit destroys.
[[noreturn]] void GiveUp() {
    std::exit(EXIT_FAILURE);
}

void CreateProxy() {
    IEcallAppPubProxy* proxy = nullptr;
    const int32_t result = XirEcallapp_createProxy(&proxy, &kEcallConnection);
    if (result != 0 || proxy == nullptr) {
        EcallUITraceError("XirEcallapp_createProxy error :  srvcResult = %d, pProxyEcallapp = 0x%x ", result,
                          static_cast<unsigned>(reinterpret_cast<uintptr_t>(proxy)));
        GiveUp();
    }
    pProxyEcallapp.exchange(proxy);
}

/// A state that comes with a bad responsecode counts too; only a missing reply leaves nothing to hand over.
void PullEcallState() {
    XirRecord<TEcallappState>* record = nullptr;
    XirEcallapp_requestState(pProxyEcallapp.hold().get(), &record);
    const Received<TEcallappState> state(record);
    if (state != nullptr) {
        EcallStateNotification(state.get());
    }
}

Received<TCfgParamValue> ReadAudioConfiguration() {
    XirRecord<TCfgParamValue>* record = nullptr;
    const int32_t result = XirEcallapp_getCfgParameter(pProxyEcallapp.hold().get(), APP_AUDIO_CONFIG_NUMBER, &record);
    Received<TCfgParamValue> value(record);
    if (result != 0) {
        EcallUITraceError("XirEcallapp_getCfgParameter error :  srvcResult = %d", result);
        GiveUp();
    }
    return value;
}

void WriteAudioConfiguration(int32_t microphone) {
    const TCfgParamValue value{0, microphone, ""};
    const int32_t result = XirEcallapp_setCfgParameter(pProxyEcallapp.hold().get(), APP_AUDIO_CONFIG_NUMBER, &value);
    if (result != 0) {
        EcallUITraceError("XirEcallapp_setCfgParameter error :  srvcResult = %d", result);
        GiveUp();
    }
}

/// A configured source that is no microphone of ours agrees with everything.
void AlignMicrophone() {
    const int32_t source = EcallUI_Configuration.EcallMicrophoneSource;
    const Received<TCfgParamValue> used = ReadAudioConfiguration();
    const bool known = source == kDefaultAnalogMic || source == kExternalDigitalMic;
    if (!known || used->intValue == source) {
        EcallUITrace("Ecall & EcallUI are using the same audio micro configuration (%d)", source);
        return;
    }
    if (source == kExternalDigitalMic) {
        EcallUITrace("EXTERNAL_DIGITAL_MIC ==> set the Ecall APP_AUDIO_CONFIG_NUMBER configuration");
    } else {
        EcallUITrace("DEFAULT_ANALOG_MIC ==> set the Ecall APP_AUDIO_CONFIG_NUMBER configuration");
    }
    WriteAudioConfiguration(source);
}

}  // namespace

void ConnectEcallService() {
    if (EcallUI_Configuration.ConnectEcallService == 0) {
        return;
    }
    CreateProxy();
    if (const int32_t result = XirEcallapp_registerNotifyState(pProxyEcallapp.hold().get(), EcallStateNotification);
        result != 0) {
        EcallUITraceError("XirEcallapp_registerNotifyState error :  srvcResult = %d", result);
    }
    PullEcallState();
    AlignMicrophone();
}

void PullEcallStateOnceMore() {
    if (pProxyEcallapp.hold() != nullptr) {
        // On the console this line has a line end of its own before the usual one.
        EcallUITraceEnded("\n", "", "XirEcallapp_requestState ");
        PullEcallState();
    }
}
