/// How the records of the operations and the messages of IEcallUIApp correspond; see XirRpcRecords.h.
#ifndef XIR_ECALLUIAPP_RECORDS_H
#define XIR_ECALLUIAPP_RECORDS_H

#include "XirEcallUIapp.h"
#include "XirRpcRecords.h"

/// The generated messages under readable names.
namespace uiwire {
using GetParameterRequest = Com__Vantu__Ecalluiapp__GetUiCfgParameterRequest;
using GetParameterReply = Com__Vantu__Ecalluiapp__GetUiCfgParameterResponse;
using InterfaceRequest = Com__Vantu__Ms__Protobuf__GetRemoteVersionRequest;
using InterfaceReply = Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse;
using MicTestRequest = Com__Vantu__Ecalluiapp__RunAnalogMicTestRequest;
using MicTestReply = Com__Vantu__Ecalluiapp__RunAnalogMicTestResponse;
using ParamValue = Com__Vantu__Ecalluiapp__TCfgParamValue;
using SetParameterRequest = Com__Vantu__Ecalluiapp__SetUiCfgParameterRequest;
using VersionRequest = Com__Vantu__Ecalluiapp__GetUiVersionRequest;
using VersionReply = Com__Vantu__Ecalluiapp__GetUiVersionResponse;
using VoidReply = Com__Vantu__Ms__Protobuf__VoidResponse;
}  // namespace uiwire

/// Request to arguments: its texts are borrowed. Hides the copying of them, so the signature must be the same.
struct BorrowFromWire : CopyToRecord {
    using CopyToRecord::operator();
    void operator()(char* const& from, const char*& to) { to = from; }
};

void EachField(Either<uiwire::ParamValue> auto& w, Either<TUiCfgParamValue> auto& r, auto& copy) {
    copy(w.boolvalue, r.boolValue);
    copy(w.intvalue, r.intValue);
    copy(w.strvalue, r.StrValue);
}

/// w.paramvalue points at its message.
void EachField(uiwire::GetParameterReply& w, const TGetCfgParameterResult& r, auto& copy) {
    copy(w.responsecode, r.responsecode);
    EachField(*w.paramvalue, r.paramValue, copy);
}

void EachField(uiwire::VoidReply& w, const TSetCfgParameterResult& r, auto& copy) {
    copy(w.responsecode, r.responsecode);
}

void EachField(uiwire::VersionReply& w, const TGetVersionResult& r, auto& copy) {
    copy(w.responsecode, r.responsecode);
    copy(w.strversion, r.strVersion);
}

void EachField(uiwire::MicTestReply& w, const TRunAnalogMicTestResult& r, auto& copy) {
    copy(w.responsecode, r.responsecode);
    copy(w.value, r.value);
}

#endif
