// The operations behind the methods; XirEcallUIapp.h declares them. They run on the server's thread, one at a time.
#include "EcallUIapp_impl.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "EcallUIDataParam.h"
#include "EcallUIShared.h"
#include "EcallUIapp_implMic.h"
#include "Trace.h"
#include "XirEcallUIapp.h"
#include "XirRpcRecords.h"

namespace {

constexpr const char* kUrls[] = {"xirtcp://50101"};
constexpr char kPackageVersion[] = "0.1.0-r1";
constexpr std::size_t kParameterTextSize = 128;  ///< bytes; the longest text of a parameter has 63 and a terminator
constexpr std::size_t kVersionTextSize = 23;     ///< bytes, with terminator
constexpr int32_t kMicTestFailed = -16;

struct FreeDeleter {
    void operator()(char* text) const { free(text); }
};

/// Stores the version's text in the result; leaves it null, and so empty, without memory.
void FillVersion(XirRecord<TGetVersionResult>& result) {
    const std::unique_ptr<char, FreeDeleter> pVersion(static_cast<char*>(malloc(kVersionTextSize)));
    if (!pVersion) {
        EcallUITraceError("Error malloc");
        return;
    }
    snprintf(pVersion.get(), kVersionTextSize, "%s, %s", kPackageVersion, kApplicationVersion);
    EcallUITrace("pVersion =  %s \n", pVersion.get());
    result.strVersion = AttachText(&result, pVersion.get());
    if (result.strVersion == nullptr) {
        EcallUITraceError("xir_allocate_and_attach pGetVersionResponse->strVersion ERROR");
    }
}

}  // namespace

void XirCreateIEcallUIApp() {
    IEcallUIAppServer* server = nullptr;
    const int32_t result = XirCreateIEcallUIAppSrvc(&server, {std::size(kUrls), kUrls});
    if (result != 0) {
        EcallUITraceError("XirCreateIEcallUIApp failed (result=%d)", result);
    } else {
        EcallUITrace("XirCreateIEcallUIApp (protobuf) : OK");
    }
}

XirRecord<TGetCfgParameterResult>* get_cfg_parameter_impl(const void* conn, int32_t cfgParamName) {
    EcallUITrace("get_cfg_parameter_impl (conn=%p), cfgParamName=%d\n", conn, cfgParamName);
    auto* const result = NewRecord<TGetCfgParameterResult>();
    if (result == nullptr) {
        return nullptr;
    }
    TUiCfgParamValue& value = result->paramValue;
    std::array<char, kParameterTextSize> text{};
    EcallUIGetParameter(cfgParamName, value.boolValue, value.intValue, text.data());
    value.StrValue = AttachText(result, text.data());
    if (value.StrValue == nullptr) {
        EcallUITraceError("xir_allocate_and_attach pGetCfgParameterResponse->paramValue.StrValue ERROR");
    }
    return result;
}

XirRecord<TSetCfgParameterResult>* com_vantu_ecalluiapp_iecalluiapp_set_cfg_parameter_impl(
    const void* conn, int32_t cfgParamName, const TUiCfgParamValue& paramValue) {
    EcallUITrace(
        "com_vantu_ecalluiapp_iecalluiapp_set_cfg_parameter_impl (conn=%p), cfgParam=%d, bool=%d, int=%d, Str=%s\n",
        conn, cfgParamName, paramValue.boolValue, paramValue.intValue, paramValue.StrValue);
    EcallUISetParameter(cfgParamName, paramValue.boolValue, paramValue.intValue, paramValue.StrValue);
    return NewRecord<TSetCfgParameterResult>();
}

XirRecord<TGetVersionResult>* com_vantu_ecalluiapp_iecalluiapp_get_version_impl(const void* conn) {
    EcallUITrace("com_vantu_ecalluiapp_iecalluiapp_get_version_impl (conn=%p)\n", conn);
    auto* const result = NewRecord<TGetVersionResult>();
    if (result != nullptr) {
        FillVersion(*result);
    }
    return result;
}

XirRecord<TRunAnalogMicTestResult>* com_vantu_ecalluiapp_iecalluiapp_run_analog_mic_test_impl(const void* conn) {
    EcallUITrace("com_vantu_ecalluiapp_iecalluiapp_run_analog_mic_test_impl (conn=%p)\n", conn);
    const std::optional<float> value = RunMicTest();
    auto* const result = NewRecord<TRunAnalogMicTestResult>();
    if (!value) {
        EcallUITraceError("Script run with error");
    } else {
        EcallUITrace("Script run without error, Value = %f", *value);
    }
    if (result != nullptr) {
        result->responsecode = value ? 0 : static_cast<uint32_t>(kMicTestFailed);
        result->value = value.value_or(0);
    }
    return result;
}
