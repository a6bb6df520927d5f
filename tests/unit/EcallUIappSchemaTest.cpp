// What the service has agreed on with the clients of its own interface: every name and number of its messages and
// methods. The descriptors say what the generated code does; the tables here are written by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "Schema.h"
#include "UiParameters.h"
#include "lib_c/src-gen/ecallUIapp.pb-c.h"

namespace {

std::string ParameterNames() {
    std::string names;
    for (const UiParameter& parameter : kUiParameters) {
        names.append(names.empty() ? "" : ", ").append(parameter.name).append(" ");
        names.append(std::to_string(parameter.number));
    }
    return names;
}

const SchemaRows kEnums = {
    {"TEcallUICfgParamName", ParameterNames()},
    {"TServiceState", "Disabled 0, Broken 1, Initializing 2, Available_Idle 3, Available_Idle_TestMode 4"},
    {"TNetworkState", "Disabled 0, OutOfCoverage 1, Searching 2, DormantMode 3, LimitedService 4, CsFullService 5"},
    {"TSimProfileState", "Commercial 0, Glonass 1"},
    {"TCallState", "Inactive 0, Ringing 1, Dialing 2, Connected 3"},
    {"TAudioOutState", "Muted 0, PlayingVoicePrompt 1, VoiceCall 2"},
};

const SchemaRows kMessages = {
    {"TCfgParamValue", "1 boolValue bool, 2 intValue int32, 3 StrValue string"},
    {"GetUiCfgParameterRequest", "1 cfgParamName TEcallUICfgParamName"},
    {"GetUiCfgParameterResponse", "1 responsecode uint32, 2 paramValue TCfgParamValue"},
    {"SetUiCfgParameterRequest", "1 cfgParamName TEcallUICfgParamName, 2 paramValue TCfgParamValue"},
    {"GetUiVersionRequest", ""},
    {"GetUiVersionResponse", "1 responsecode uint32, 2 strVersion string"},
    {"RunAnalogMicTestRequest", ""},
    {"RunAnalogMicTestResponse", "1 responsecode uint32, 2 value float"},
    {"TGnssLocation",
     "1 isValid bool, 2 utcTime uint64, 3 latitude double, 4 longitude double, 5 altitude float, 6 horizontalAccuracy "
     "float, 7 course float, 8 courseAccuracy float, 9 speed float, 10 speedAccuracy float, 11 courseMagnetic float, "
     "12 courseMagneticAccuracy float"},
    {"com.vantu.ms.protobuf.VoidResponse", "1 responsecode uint32"},
    {"com.vantu.ms.protobuf.GetRemoteVersionRequest", ""},
    {"com.vantu.ms.protobuf.GetRemoteVersionResponse",
     "1 responsecode uint32, 2 major uint32, 3 minor uint32, 4 name string"},
};

const std::vector<SchemaMethod> kMethods = {
    {"getUiCfgParameter", "GetUiCfgParameterRequest", "GetUiCfgParameterResponse"},
    {"setUiCfgParameter", "SetUiCfgParameterRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"getUiVersion", "GetUiVersionRequest", "GetUiVersionResponse"},
    {"runAnalogMicTest", "RunAnalogMicTestRequest", "RunAnalogMicTestResponse"},
    {"getIEcallUIAppVersion", "com.vantu.ms.protobuf.GetRemoteVersionRequest",
     "com.vantu.ms.protobuf.GetRemoteVersionResponse"},
};

const ProtobufCServiceDescriptor& kService = com__vantu__ecalluiapp__iecall_uiapp__descriptor;

/// With what no method uses.
Schema WholeSchema() {
    Schema schema(kService);
    schema.Add(com__vantu__ecalluiapp__tservice_state__descriptor);
    schema.Add(com__vantu__ecalluiapp__tnetwork_state__descriptor);
    schema.Add(com__vantu__ecalluiapp__tsim_profile_state__descriptor);
    schema.Add(com__vantu__ecalluiapp__tcall_state__descriptor);
    schema.Add(com__vantu__ecalluiapp__taudio_out_state__descriptor);
    schema.Add(com__vantu__ecalluiapp__tgnss_location__descriptor);
    return schema;
}

TEST(EcallUIappSchema, EnumerationsHaveTheseValues) {
    EXPECT_EQ(kEnums, WholeSchema().enums);
}

TEST(EcallUIappSchema, MessagesHaveTheseFieldsAndAllAreRequired) {
    EXPECT_EQ(kMessages, WholeSchema().messages);
}

TEST(EcallUIappSchema, MethodsHaveTheseIndices) {
    EXPECT_STREQ("com.vantu.ecalluiapp.IEcallUIApp", kService.name);
    EXPECT_EQ(kMethods, Schema(kService).methods);
}

}  // namespace
