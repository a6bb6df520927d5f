/// Client of the eCall application service IEcallApp.
///
/// Every operation takes the proxy first and blocks its caller until the dispatch thread "IEcallApp" has the reply, at
/// most for the request limit. Never call one on that thread, and so never from the state callback.
/// Answers 0; a negative status of this layer (XirRpcStatus); otherwise the responsecode of the reply.
/// A null proxy answers kXirRpcNotConnected. Calls of one method by several threads are made one after the other.
/// A get operation writes its out pointer whenever a reply came, whatever the responsecode, and leaves it unchanged
/// otherwise: start with null, and release what came.
#ifndef XIR_ECALLAPP_H
#define XIR_ECALLAPP_H

#include <cstdint>

#include "XirRpcTypes.h"

struct IEcallAppPubProxy;

enum TEcallappServiceState : uint32_t {
    TEcallappServiceState_Disabled = 0,
    TEcallappServiceState_Broken = 1,
    TEcallappServiceState_Initializing = 2,
    TEcallappServiceState_Available_Idle = 3,
    TEcallappServiceState_Available_Idle_TestMode = 4,
    TEcallappServiceState_ActiveManualECall = 100,
    TEcallappServiceState_ActiveAutomaticECall = 101,
    TEcallappServiceState_ActiveManualTestECall = 102,
    TEcallappServiceState_ActiveAutomaticTestECall = 103,
    TEcallappServiceState_ExpectCallback = 104,
    TEcallappServiceState_ActiveManualECallAwaitingT1Expiry = 105,
    TEcallappServiceState_ActiveManualTestECallAwaitingT1Expiry = 106
};

enum TAudioOutState : uint32_t {
    TAudioOutState_Muted = 0,
    TAudioOutState_PlayingVoicePrompt = 1,
    TAudioOutState_VoiceCall = 2
};

enum TSelfTestState : uint32_t {
    TSelfTestState_Success = 0,
    TSelfTestState_Failed = 1,
    TSelfTestState_Unknown = 2,
    TSelfTestState_Requested = 3
};

enum TSelfTestDeviceState : uint32_t {
    TSelfTestDeviceState_Success = 0,
    TSelfTestDeviceState_Failed = 1,
    TSelfTestDeviceState_NotHandled = 2
};

/// Kinds of XirEcallapp_triggerEcall.
constexpr uint8_t kManualEcall = 0;
constexpr uint8_t kAutomaticEcall = 1;

/// Parameter of the eCall service that chooses its audio configuration: 1 the digital microphone, 0 the analog one.
constexpr uint32_t APP_AUDIO_CONFIG_NUMBER = 53;

/// The service's whole state; enumeration values as they came, unchecked.
struct TEcallappState {
    uint32_t serviceState;
    uint32_t simProfileState;
    uint32_t networkState;
    uint32_t callState;
    uint32_t audioOutState;
    uint32_t selfTestState;
};

/// Self-test results, TSelfTestDeviceState each.
struct TSelfTestAllDevicesState {
    uint32_t fwImageIntegrity;
    uint32_t cellularAntennaConnection;
    uint32_t simPresent;
    uint32_t cellularReceiverOperability;
    uint32_t gnssParametersIntegrity;
    uint32_t gnssAntennaConnection;
    uint32_t gnssReceiverOperability;
    uint32_t rtaDetectorOperability;
    uint32_t microphoneConnection;
    uint32_t microphoneOperability;
    uint32_t loudspeakerConnection;
    uint32_t loudspeakerOperability;
    uint32_t backupBatteryLevel;
    uint32_t statusIndicatorOperability;
    uint32_t uimOperability;
};

/// The member that counts is the one of the parameter's type.
struct TCfgParamValue {
    uint8_t boolValue;
    int32_t intValue;
    const char* StrValue;
};

struct TGnssLocation {
    uint8_t isValid;
    uint64_t utcTime;
    double latitude;
    double longitude;
    float altitude;
    float horizontalAccuracy;
    float course;
    float courseAccuracy;
    float speed;
    float speedAccuracy;
    float courseMagnetic;
    float courseMagneticAccuracy;
};

struct TVehicleConfig {
    const char* VIN;
    uint8_t gasolineTankPresent;
    uint8_t dieselTankPresent;
    uint8_t compressedNaturalGas;
    uint8_t liquidPropaneGas;
    uint8_t electricEnergyStorage;
    uint8_t hydrogenStorage;
    uint8_t otherPropulsionStorage;
    uint32_t vehicleType;
    const char* audioTuningSet;
};

struct TVehicleState {
    uint8_t numberOfPassengers;
    uint8_t backupBatteryUsed;
    uint8_t ignitionOn;
};

/// Counters are this side's view: larger values on the wire are cut to their size here.
struct TEcallGnssLocationHistory {
    uint8_t totalGnssLocationStoredBeforeCrash;
    uint8_t totalGnssLocationStoredAfterCrash;
    uint16_t index;
    TGnssLocation data;
};

struct TEcallMsdHistory {
    uint8_t totalMsdStored;
    uint8_t index;
    const char* info;
};

struct TEcallSimInfo {
    uint8_t simPresent;
    uint8_t ecallCapable;
    const char* ecallTestNumber;
    const char* ecallReconfigureNumber;
    uint8_t ecallDualProfileEnable;
    uint8_t ecallCurrentProfile;
};

struct TEcallOperatingMode {
    uint32_t mode;
};

struct TEcallVersion {
    const char* strVersion;
};

/// Called on the dispatch thread; the record is valid for the call. Its result is not looked at.
using XirEcallappStateCallback = int (*)(const TEcallappState* state);

/// Starts the dispatch thread, waits without limit for the connection, checks the peer's name and version.
/// connection: never null, nor its texts. *proxy is written on success; null when the client or the version check
/// failed; unchanged, with result 0, when the thread could not be made.
int32_t XirEcallapp_createProxy(IEcallAppPubProxy** proxy, const XirConnection* connection);
/// Ends the thread and the connection. Null is ignored.
void XirEcallapp_releaseProxy(IEcallAppPubProxy* proxy);

int32_t XirEcallapp_triggerEcall(IEcallAppPubProxy* proxy, uint8_t automatic);
int32_t XirEcallapp_userRequestCancelEcall(IEcallAppPubProxy* proxy);
int32_t XirEcallapp_disconnectEcall(IEcallAppPubProxy* proxy);
int32_t XirEcallapp_updateVehicleConfig(IEcallAppPubProxy* proxy, const TVehicleConfig* config);
int32_t XirEcallapp_updateVehicleState(IEcallAppPubProxy* proxy, const TVehicleState* state);
int32_t XirEcallapp_getSelfTestAllDevicesState(IEcallAppPubProxy* proxy, XirRecord<TSelfTestAllDevicesState>** result);
int32_t XirEcallapp_updateSelfTestAllDevicesState(IEcallAppPubProxy* proxy, const TSelfTestAllDevicesState* result);
int32_t XirEcallapp_updateGnssLocation(IEcallAppPubProxy* proxy, const TGnssLocation* location);
int32_t XirEcallapp_requestState(IEcallAppPubProxy* proxy, XirRecord<TEcallappState>** state);
int32_t XirEcallapp_getCfgParameter(IEcallAppPubProxy* proxy, uint32_t number, XirRecord<TCfgParamValue>** value);
int32_t XirEcallapp_setCfgParameter(IEcallAppPubProxy* proxy, uint32_t number, const TCfgParamValue* value);
int32_t XirEcallapp_getGnssLocationHistory(IEcallAppPubProxy* proxy, int32_t index,
                                           XirRecord<TEcallGnssLocationHistory>** history);
int32_t XirEcallapp_getMsdHistory(IEcallAppPubProxy* proxy, uint32_t index, XirRecord<TEcallMsdHistory>** history);
int32_t XirEcallapp_switchToTestMode(IEcallAppPubProxy* proxy);
int32_t XirEcallapp_switchFromTestMode(IEcallAppPubProxy* proxy);
int32_t XirEcallapp_getOperatingMode(IEcallAppPubProxy* proxy, XirRecord<TEcallOperatingMode>** mode);
int32_t XirEcallapp_getSimInfo(IEcallAppPubProxy* proxy, XirRecord<TEcallSimInfo>** info);
int32_t XirEcallapp_getVersion(IEcallAppPubProxy* proxy, XirRecord<TEcallVersion>** version);

/// Registers the callback (it stays registered when the service refuses) and subscribes to state notifications.
int32_t XirEcallapp_registerNotifyState(IEcallAppPubProxy* proxy, XirEcallappStateCallback callback);
/// Clears the registration and withdraws the subscription. Answers 1 for a null callback.
int32_t XirEcallapp_deregisterNotifyState(IEcallAppPubProxy* proxy, XirEcallappStateCallback callback);

#endif
