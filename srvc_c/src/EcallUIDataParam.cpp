#include "EcallUIDataParam.h"

#include <cstring>

#include "EcallUIData.h"
#include "EcallUIDataFields.h"
#include "EcallUIShared.h"
#include "Trace.h"
#include "XirEcallapp.h"
#include "lib_c/src-gen/CommonTypes.pb-c.h"

namespace {

constexpr int32_t kMicrophoneSource =
    COM__VANTU__ECALLUIAPP__TECALL_UICFG_PARAM_NAME__TEcallUICfgParamName_ECALL_MICROPHONE_SOURCE;

struct Outputs {
    uint8_t& boolValue;
    int32_t& intValue;
    char* strValue;
};

struct Inputs {
    uint8_t boolValue;
    int32_t intValue;
    const char* strValue;
};

// Each kind of field, from and to the member that stands for it.

void Read(const Relaxed<uint8_t>& field, const Outputs& out) {
    out.boolValue = field;
}

template <typename Number>
void Read(const Relaxed<Number>& field, const Outputs& out) {
    out.intValue = field;
}

template <std::size_t Capacity>
void Read(const RelaxedText<Capacity>& field, const Outputs& out) {
    const auto text = field.get();
    std::memcpy(out.strValue, text.c_str(), std::strlen(text.c_str()));
}

void Store(Relaxed<uint8_t>& field, const Inputs& in, FieldStore /*store*/) {
    field = in.boolValue;
}

template <typename Number>
void Store(Relaxed<Number>& field, const Inputs& in, FieldStore store) {
    field = static_cast<Number>(store == FieldStore::Low16Bits ? static_cast<uint16_t>(in.intValue) : in.intValue);
}

template <std::size_t Capacity>
void Store(RelaxedText<Capacity>& field, const Inputs& in, FieldStore /*store*/) {
    field.set(in.strValue);
}

/// The eCall service must use the same microphone as the audio script.
void SetMicrophoneSource(int32_t source) {
    if (source != kDefaultAnalogMic && source != kExternalDigitalMic) {
        EcallUITraceError("bad TEcallUICfgParamName_ECALL_MICROPHONE_SOURCE parameter : %d", source);
        return;
    }
    EcallUI_Configuration.EcallMicrophoneSource = source;
    const TCfgParamValue value{.boolValue = 0, .intValue = source, .StrValue = ""};
    const int32_t srvcResult =
        XirEcallapp_setCfgParameter(pProxyEcallapp.hold().get(), APP_AUDIO_CONFIG_NUMBER, &value);
    if (srvcResult != 0) {
        EcallUITraceError("XirEcallapp_setCfgParameter error :  srvcResult = %d", srvcResult);
    }
}

void SetField(int32_t number, const Inputs& in) {
    const ConfigurationField* const field = FindConfigurationField(number);
    if (field == nullptr) {
        EcallUITraceError("EcallUISetParameter - bad parameter : %d", number);
        return;
    }
    std::visit([&](auto member) { Store(EcallUI_Configuration.*member, in, field->store); }, field->member);
}

}  // namespace

void EcallUIGetParameter(int32_t cfgParamName, uint8_t& boolValue, int32_t& intValue, char* strValue) {
    EcallUITrace("EcallUIGetParameter - Enter");
    boolValue = 0;
    intValue = 0;
    strValue[0] = '\0';
    const ConfigurationField* const field = FindConfigurationField(cfgParamName);
    if (field != nullptr) {
        const Outputs out{boolValue, intValue, strValue};
        std::visit([&](auto member) { Read(EcallUI_Configuration.*member, out); }, field->member);
    } else {
        EcallUITraceError("bad parameter %d", cfgParamName);
    }
    EcallUITrace("cfgParamName=%d, BoolValue=%d, IntValue=%d, StrValue=%s", cfgParamName, boolValue, intValue,
                 strValue);
    EcallUITrace("EcallGetParameter - Exit");
}

void EcallUISetParameter(int32_t cfgParamName, uint8_t boolValue, int32_t intValue, const char* strValue) {
    const Inputs in{boolValue, intValue, strValue == nullptr ? "" : strValue};
    EcallUITrace("EcallUISetParameter - Enter, cfgParamName=%d, BoolValue=%d, IntValue=%d, StrValue=%s", cfgParamName,
                 boolValue, intValue, in.strValue);
    if (cfgParamName == kMicrophoneSource) {
        SetMicrophoneSource(intValue);
    } else {
        SetField(cfgParamName, in);
    }
    SaveConfiguration();
    EcallUITrace("EcallUISetParameter - Exit");
}
