#include "XirEcallUIapp.h"

#include "XirEcallUIappRecords.h"

namespace {

using Service = Com__Vantu__Ecalluiapp__IEcallUIApp_Service;

constexpr XirRpcServerTexts kTexts{"IEcallUIAppSrvc", "iecalluiapp_srvcThread", "XirCreateIEcallUIAppSrvc"};

constexpr const char* kInterfaceName = "com.vantu.ecalluiapp.iecalluiapp";

/// Sends the reply filled from the record, and releases that. reply: initialised.
template <typename Reply, typename Result>
void Answer(Reply reply, XirRecord<Result>* result, void (*closure)(const Reply*, void*), void* closureData) {
    if (result == nullptr) {
        closure(nullptr, closureData);
        return;
    }
    FillMessage(reply, static_cast<const Result&>(*result));
    closure(&reply, closureData);
    result->release(result);
}

void GetUiCfgParameter(Service* /*service*/, const uiwire::GetParameterRequest* request,
                       Com__Vantu__Ecalluiapp__GetUiCfgParameterResponse_Closure closure, void* closureData) {
    int32_t number = 0;
    BorrowFromWire{}(request->cfgparamname, number);
    uiwire::ParamValue value = COM__VANTU__ECALLUIAPP__TCFG_PARAM_VALUE__INIT;
    uiwire::GetParameterReply reply = COM__VANTU__ECALLUIAPP__GET_UI_CFG_PARAMETER_RESPONSE__INIT;
    reply.paramvalue = &value;
    Answer(reply, get_cfg_parameter_impl(closureData, number), closure, closureData);
}

void SetUiCfgParameter(Service* /*service*/, const uiwire::SetParameterRequest* request,
                       Com__Vantu__Ms__Protobuf__VoidResponse_Closure closure, void* closureData) {
    int32_t number = 0;
    TUiCfgParamValue value{};
    BorrowFromWire borrow;
    borrow(request->cfgparamname, number);
    EachField(static_cast<const uiwire::ParamValue&>(*request->paramvalue), value, borrow);
    Answer(COM__VANTU__MS__PROTOBUF__VOID_RESPONSE__INIT,
           com_vantu_ecalluiapp_iecalluiapp_set_cfg_parameter_impl(closureData, number, value), closure, closureData);
}

void GetUiVersion(Service* /*service*/, const uiwire::VersionRequest* /*request*/,
                  Com__Vantu__Ecalluiapp__GetUiVersionResponse_Closure closure, void* closureData) {
    Answer(COM__VANTU__ECALLUIAPP__GET_UI_VERSION_RESPONSE__INIT,
           com_vantu_ecalluiapp_iecalluiapp_get_version_impl(closureData), closure, closureData);
}

void RunAnalogMicTest(Service* /*service*/, const uiwire::MicTestRequest* /*request*/,
                      Com__Vantu__Ecalluiapp__RunAnalogMicTestResponse_Closure closure, void* closureData) {
    Answer(COM__VANTU__ECALLUIAPP__RUN_ANALOG_MIC_TEST_RESPONSE__INIT,
           com_vantu_ecalluiapp_iecalluiapp_run_analog_mic_test_impl(closureData), closure, closureData);
}

/// The interface's own version, which clients check before they trust it.
void GetIEcallUIAppVersion(Service* /*service*/, const uiwire::InterfaceRequest* /*request*/,
                           Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse_Closure closure, void* closureData) {
    uiwire::InterfaceReply reply = COM__VANTU__MS__PROTOBUF__GET_REMOTE_VERSION_RESPONSE__INIT;
    reply.responsecode = 0;
    reply.major = 1;
    reply.minor = 4;
    CopyToWire{}(reply.name, kInterfaceName);
    closure(&reply, closureData);
}

/// In the order of the methods' indices on the wire.
const Service kService{{&com__vantu__ecalluiapp__iecall_uiapp__descriptor, protobuf_c_service_invoke_internal, nullptr},
                       GetUiCfgParameter,
                       SetUiCfgParameter,
                       GetUiVersion,
                       RunAnalogMicTest,
                       GetIEcallUIAppVersion};

}  // namespace

int32_t XirCreateIEcallUIAppSrvc(IEcallUIAppServer** out, const XirRpcUrlList& urls) {
    return XirRpcCreateServer(out, kService, kTexts, urls);
}
