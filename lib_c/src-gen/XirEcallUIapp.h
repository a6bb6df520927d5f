/// The server side of the service's own RPC interface IEcallUIApp: a skeleton that serves requests, and the operations
/// behind its methods, which its user defines.
///
/// The skeleton takes a request apart, calls the method's operation, makes the reply of the record that comes back,
/// sends it and releases the record. All this runs on the thread "IEcallUIAppSrvc", one request at a time: while an
/// operation blocks, the other requests wait.
#ifndef XIR_ECALLUIAPP_H
#define XIR_ECALLUIAPP_H

#include <cstdint>

#include "XirRpcServer.h"
#include "XirRpcTypes.h"
#include "lib_c/src-gen/ecallUIapp.pb-c.h"

using IEcallUIAppServer = XirRpcServer<Com__Vantu__Ecalluiapp__IEcallUIApp_Service>;

/// Makes the server in *out, listening on every URL of the list, which must last as long as the server. Answers 0;
/// kXirRpcNoMemory; kXirRpcNotBound, with *out null; 0 with *out unchanged when the thread could not be made.
int32_t XirCreateIEcallUIAppSrvc(IEcallUIAppServer** out, const XirRpcUrlList& urls);

/// A parameter's value; the member that counts is the one of the parameter's type.
struct TUiCfgParamValue {
    uint8_t boolValue;
    int32_t intValue;
    const char* StrValue;
};

// What the operations answer. A text may be null: then an empty one is sent.

struct TGetCfgParameterResult {
    uint32_t responsecode;
    TUiCfgParamValue paramValue;
};
struct TSetCfgParameterResult {
    uint32_t responsecode;
};
struct TGetVersionResult {
    uint32_t responsecode;
    const char* strVersion;
};
struct TRunAnalogMicTestResult {
    uint32_t responsecode;
    float value;
};

// The operations, called on the server thread. conn is a number of the request, not of its connection, and for the log
// only; texts of a request are borrowed for the call. The answer carries one reference for the skeleton; null, for want
// of memory, refuses the request.

/// cfgParamName: any number that a client has sent.
XirRecord<TGetCfgParameterResult>* get_cfg_parameter_impl(const void* conn, int32_t cfgParamName);
XirRecord<TSetCfgParameterResult>* com_vantu_ecalluiapp_iecalluiapp_set_cfg_parameter_impl(
    const void* conn, int32_t cfgParamName, const TUiCfgParamValue& paramValue);
XirRecord<TGetVersionResult>* com_vantu_ecalluiapp_iecalluiapp_get_version_impl(const void* conn);
XirRecord<TRunAnalogMicTestResult>* com_vantu_ecalluiapp_iecalluiapp_run_analog_mic_test_impl(const void* conn);

#endif
