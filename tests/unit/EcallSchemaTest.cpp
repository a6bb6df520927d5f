// What both sides of the eCall service's interface have agreed on: every name and number of its messages and methods.
// The descriptors say what the generated code does; the tables here are written by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "Schema.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"

namespace {

const SchemaRows kEnums = {
    {"TServiceState", "Disabled 0, Broken 1, Initializing 2, Available_Idle 3, Available_Idle_TestMode 4"},
    {"TEcallappServiceState",
     "Disabled 0, Broken 1, Initializing 2, Available_Idle 3, Available_Idle_TestMode 4, ActiveManualECall 100, "
     "ActiveAutomaticECall 101, ActiveManualTestECall 102, ActiveAutomaticTestECall 103, ExpectCallback 104, "
     "ActiveManualECallAwaitingT1Expiry 105, ActiveManualTestECallAwaitingT1Expiry 106"},
    {"TNetworkState", "Disabled 0, OutOfCoverage 1, Searching 2, DormantMode 3, LimitedService 4, CsFullService 5"},
    {"TSimProfileState", "Commercial 0, Glonass 1"},
    {"TCallState", "Inactive 0, Ringing 1, Dialing 2, Connected 3"},
    {"TEcallappCallState",
     "Inactive 0, Ringing 1, Dialing 2, Connected_Voice 3, Connected_Data_WaitingMsdRequest 4, "
     "Connected_Data_TransferingMsd 5, Connected_Data_LLACKReceived 6, Connected_Voice_MsdTransferFailed 7"},
    {"TAudioOutState", "Muted 0, PlayingVoicePrompt 1, VoiceCall 2"},
    {"TSelfTestState", "Success 0, Failed 1, Unknown 2, Requested 3"},
    {"TSelfTestDeviceState", "Success 0, Failed 1, NotHandled 2"},
    {"TEcallOperatingMode", "Test 0, EcallEra 1, EmergencyCall 2"},
    {"TVehicleType",
     "ClassM1 0, ClassM2 1, ClassM3 2, ClassN1 3, ClassN2 4, ClassN3 5, ClassL1e 6, ClassL2e 7, ClassL3e 8, ClassL4e "
     "9, ClassL5e 10, ClassL6e 11, ClassL7e 12"},
    {"TEcallCfgParamName",
     "PROMPT_ECALL_TRIGGER 0, PROMPT_ECALL_CANCELLED 1, PROMPT_ECALL_DIALING 2, PROMPT_ECALL_MSD_TRANSFER 3, "
     "PROMPT_ECALL_MSD_TRANSFER_COMPLETE 4, PROMPT_ECALL_NOT_POSSIBLE 5, PROMPT_ECALL_RECEIVING_CALL 6, "
     "PROMPT_ECALL_END 7, PROMPT_ECALL_ERROR 8, PHONES_NUMBERS_FROM_USIM 9, ECALL_PHONE_NUMBER 10, "
     "ECALL_TEST_PHONE_NUMBER 11, ECALL_PUSH_MODE 12, ECALL_TIMER_T1_VALUE 13, ECALL_TIMER_T2_VALUE 14, "
     "ECALL_TIMER_T9_VALUE 15, ECALL_STANDARD_MODE 16, EGTS_INT_MEM_TRANSMIT_INTERVAL 17, "
     "EGTS_INT_MEM_TRANSMIT_ATTEMPTS 18, EGTS_TEST_NUMBER 19, EGTS_POST_TEST_REGISTRATION_TIME 20, "
     "EGTS_ECALL_TEST__END_DISTANCE 21, EGTS_GNSS_DATA_RATE 22, EGTS_GNSS_MIN_ELEVATION 23, EGTS_UNIT_IMEI 24, "
     "EGTS_UNIT_MIC_LEVEL 25, EGTS_UNIT_SPK_LEVEL 26, EGTS_ECALL_NO_AUTOMATIC_TRIGGERING 27, EGTS_ECALL_CCFT 28, "
     "EGTS_ECALL_INVITATION_SIGNAL_DURATION 29, EGTS_ECALL_SEND_MSG_PERIOD 30, EGTS_ECALL_AL_ACK_PERIOD 31, "
     "EGTS_ECALL_MSD_MAX_TRANSMISSION_TIME 32, EGTS_ECALL_NAD_DEREGISTRATION_TIMER 33, EGTS_ECALL_DIAL_DURATION 34, "
     "EGTS_ECALL_MANUAL_DIAL_ATTEMPTS 35, EGTS_ECALL_AUTO_DIAL_ATTEMPTS 36, EGTS_ECALL_MANUAL_CAN_CANCEL 37, "
     "EGTS_ECALL_SMS_FALLBACK_NUMBER 38, EGTS_VEHICLE_VIN 39, EGTS_VEHICLE_PROPULSION_STORAGE_TYPE 40, "
     "EGTS_VEHICLE_TYPE 41, ERA_SIM_DUAL_PROFILE_USED 42, ERA_CALL_AUTO_ANSWER_TIME 43, ERA_NUMBER_OF_MSD_STORED 44, "
     "APP_TRACE_FILE_SIZE_IN_KB 45, APP_NUMBER_OF_TRACE_FILES 46, APP_RESTORE_CONTEXT_ON_BOOT 47, "
     "APP_DATA_ENABLE_DURING_ECALL 48, ECALL_TIMER_CLEARMSD_VALUE 49, APP_T9_TIMER_FORCED_AT_ZERO_FOR_TEST_MODE 50, "
     "APP_EXIT_TESTMODE_AFTER_ECALL_DEACTIVATION 51, APP_USE_GNSS_FOR_MSD_TIMESTAMP 52, APP_AUDIO_CONFIG_NUMBER 53"},
};

const SchemaRows kMessages = {
    {"TCfgParamValue", "1 boolValue bool, 2 intValue int32, 3 StrValue string"},
    {"TGnssLocation",
     "1 isValid bool, 2 utcTime uint64, 3 latitude double, 4 longitude double, 5 altitude float, 6 horizontalAccuracy "
     "float, 7 course float, 8 courseAccuracy float, 9 speed float, 10 speedAccuracy float, 11 courseMagnetic float, "
     "12 courseMagneticAccuracy float"},
    {"TEcallappState",
     "1 serviceState TEcallappServiceState, 2 simProfileState TSimProfileState, 3 networkState TNetworkState, 4 "
     "callState TEcallappCallState, 5 audioOutState TAudioOutState, 6 selfTestState TSelfTestState"},
    {"TSelfTestAllDevicesState",
     "1 fwImageIntegrity TSelfTestDeviceState, 2 cellularAntennaConnection TSelfTestDeviceState, 3 simPresent "
     "TSelfTestDeviceState, 4 cellularReceiverOperability TSelfTestDeviceState, 5 gnssParametersIntegrity "
     "TSelfTestDeviceState, 6 gnssAntennaConnection TSelfTestDeviceState, 7 gnssReceiverOperability "
     "TSelfTestDeviceState, 8 rtaDetectorOperability TSelfTestDeviceState, 9 microphoneConnection "
     "TSelfTestDeviceState, 10 microphoneOperability TSelfTestDeviceState, 11 loudspeakerConnection "
     "TSelfTestDeviceState, 12 loudspeakerOperability TSelfTestDeviceState, 13 backupBatteryLevel "
     "TSelfTestDeviceState, 14 statusIndicatorOperability TSelfTestDeviceState, 15 uimOperability "
     "TSelfTestDeviceState"},
    {"TPropulsionStorageType",
     "1 gasolineTankPresent bool, 2 dieselTankPresent bool, 3 compressedNaturalGas bool, 4 liquidPropaneGas bool, 5 "
     "electricEnergyStorage bool, 6 hydrogenStorage bool, 7 otherPropulsionStorage bool"},
    {"TVehicleConfig",
     "1 VIN string, 2 propulsionStorageType TPropulsionStorageType, 3 vehicleType TVehicleType, 4 audioTuningSet "
     "string"},
    {"TVehicleState", "1 numberOfPassengers uint32, 2 backupBatteryUsed uint32, 3 ignitionOn uint32"},
    {"TEcallGnssLocationHistory",
     "1 totalGnssLocationStoredBeforeCrash uint32, 2 totalGnssLocationStoredAfterCrash uint32, 3 index int32, 4 data "
     "TGnssLocation"},
    {"TEcallMsdHistory", "1 totalMsdStored uint32, 2 index uint32, 3 info string"},
    {"TEcallSimInfo",
     "1 simPresent uint32, 2 ecallCapable uint32, 3 ecallTestNumber string, 4 ecallReconfigureNumber string, 5 "
     "ecallDualProfileEnable uint32, 6 ecallCurrentProfile uint32"},
    {"TriggerEcallRequest", "1 automatic bool"},
    {"UserRequestCancelEcallRequest", ""},
    {"DisconnectEcallRequest", ""},
    {"GetSelfTestAllDevicesStateRequest", ""},
    {"RequestStateRequest", ""},
    {"SwitchToTestModeRequest", ""},
    {"SwitchFromTestModeRequest", ""},
    {"GetOperatingModeRequest", ""},
    {"GetSimInfoRequest", ""},
    {"GetVersionRequest", ""},
    {"UpdateVehicleConfigRequest", "1 vehicleConfig TVehicleConfig"},
    {"UpdateVehicleStateRequest", "1 vehicleState TVehicleState"},
    {"UpdateSelfTestAllDevicesStateRequest", "1 selfTestAllDevicesState TSelfTestAllDevicesState"},
    {"UpdateGnssLocationRequest", "1 location TGnssLocation"},
    {"GetCfgParameterRequest", "1 cfgParamName TEcallCfgParamName"},
    {"SetCfgParameterRequest", "1 cfgParamName TEcallCfgParamName, 2 paramValue TCfgParamValue"},
    {"GetGnssLocationHistoryRequest", "1 Index int32"},
    {"GetMsdHistoryRequest", "1 historyIndNumber uint32"},
    {"GetSelfTestAllDevicesStateResponse", "1 responsecode uint32, 2 selfTestAllDevicesState TSelfTestAllDevicesState"},
    {"RequestStateResponse", "1 responsecode uint32, 2 ecallappState TEcallappState"},
    {"GetCfgParameterResponse", "1 responsecode uint32, 2 paramValue TCfgParamValue"},
    {"GetGnssLocationHistoryResponse", "1 responsecode uint32, 2 ecallGnssLocationHistory TEcallGnssLocationHistory"},
    {"GetMsdHistoryResponse", "1 responsecode uint32, 2 ecallMsdHistory TEcallMsdHistory"},
    {"GetOperatingModeResponse", "1 responsecode uint32, 2 mode TEcallOperatingMode"},
    {"GetSimInfoResponse", "1 responsecode uint32, 2 simInfo TEcallSimInfo"},
    {"GetVersionResponse", "1 responsecode uint32, 2 strVersion string"},
    {"NotifyNotifyStateUpdate", "2 ecallappState TEcallappState"},
};

const std::vector<SchemaMethod> kMethods = {
    {"triggerEcall", "TriggerEcallRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"userRequestCancelEcall", "UserRequestCancelEcallRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"DisconnectEcall", "DisconnectEcallRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"updateVehicleConfig", "UpdateVehicleConfigRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"updateVehicleState", "UpdateVehicleStateRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"getSelfTestAllDevicesState", "GetSelfTestAllDevicesStateRequest", "GetSelfTestAllDevicesStateResponse"},
    {"updateSelfTestAllDevicesState", "UpdateSelfTestAllDevicesStateRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"updateGnssLocation", "UpdateGnssLocationRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"requestState", "RequestStateRequest", "RequestStateResponse"},
    {"getCfgParameter", "GetCfgParameterRequest", "GetCfgParameterResponse"},
    {"setCfgParameter", "SetCfgParameterRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"getGnssLocationHistory", "GetGnssLocationHistoryRequest", "GetGnssLocationHistoryResponse"},
    {"getMsdHistory", "GetMsdHistoryRequest", "GetMsdHistoryResponse"},
    {"switchToTestMode", "SwitchToTestModeRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"switchFromTestMode", "SwitchFromTestModeRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"getOperatingMode", "GetOperatingModeRequest", "GetOperatingModeResponse"},
    {"getSimInfo", "GetSimInfoRequest", "GetSimInfoResponse"},
    {"getVersion", "GetVersionRequest", "GetVersionResponse"},
    {"notifyNotifyState", "com.vantu.ms.protobuf.VoidResponse", "NotifyNotifyStateUpdate"},
    {"subscribe", "com.vantu.ms.protobuf.SubscribeRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"unsubscribe", "com.vantu.ms.protobuf.SubscribeRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"getIEcallAppVersion", "com.vantu.ms.protobuf.GetRemoteVersionRequest",
     "com.vantu.ms.protobuf.GetRemoteVersionResponse"},
};

const ProtobufCServiceDescriptor& kService = com__vantu__ecallapp__iecall_app__descriptor;

TEST(EcallSchema, EnumerationsHaveTheseValues) {
    Schema schema(kService);
    schema.Add(com__vantu__ecallapp__tservice_state__descriptor);  // these two are in no message
    schema.Add(com__vantu__ecallapp__tcall_state__descriptor);

    EXPECT_EQ(kEnums, schema.enums);
}

TEST(EcallSchema, MessagesHaveTheseFieldsAndAllAreRequired) {
    EXPECT_EQ(WithBaseMessages(kMessages), Schema(kService).messages);
}

TEST(EcallSchema, MethodsHaveTheseIndices) {
    EXPECT_STREQ("com.vantu.ecallapp.IEcallApp", kService.name);
    EXPECT_EQ(kMethods, Schema(kService).methods);
}

}  // namespace
