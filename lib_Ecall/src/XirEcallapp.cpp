#include "XirEcallapp.h"

#include "XirEcallappRecords.h"
#include "XirRpcClient.h"
#include "XirRpcExchange.h"

struct IEcallAppPubProxy : XirRpcProxy {};

namespace {

/// Method indices on the wire.
enum Method : uint16_t {
    kTriggerEcall,
    kUserRequestCancelEcall,
    kDisconnectEcall,
    kUpdateVehicleConfig,
    kUpdateVehicleState,
    kGetSelfTestAllDevicesState,
    kUpdateSelfTestAllDevicesState,
    kUpdateGnssLocation,
    kRequestState,
    kGetCfgParameter,
    kSetCfgParameter,
    kGetGnssLocationHistory,
    kGetMsdHistory,
    kSwitchToTestMode,
    kSwitchFromTestMode,
    kGetOperatingMode,
    kGetSimInfo,
    kGetVersion,
    kNotifyNotifyState
};

constexpr std::size_t kStatePlace = 0;  // of the state notification in the table

void OnStateNotification(const ProtobufCMessage& message, XirRpcCallback callback) {
    const auto& update = reinterpret_cast<const Com__Vantu__Ecallapp__NotifyNotifyStateUpdate&>(message);
    TEcallappState state{};
    CopyToRecord copy;
    EachField(static_cast<const wire::EcallappState&>(*update.ecallappstate), state, copy);
    if (callback != nullptr) {
        reinterpret_cast<XirEcallappStateCallback>(callback)(&state);
    }
}

const XirRpcClientService kService{.threadName = "IEcallApp",
                                   .createName = "XirEcallapp_createProxy",
                                   .releaseName = "releaseIEcallAppPubProxy",
                                   .interfaceName = "com.vantu.ecallapp.iecallapp",
                                   .interface = {112, 2, 1},
                                   .descriptor = &com__vantu__ecallapp__iecall_app__descriptor,
                                   .getVersion = com__vantu__ecallapp__iecall_app__get_iecall_app_version,
                                   .subscribe = com__vantu__ecallapp__iecall_app__subscribe,
                                   .unsubscribe = com__vantu__ecallapp__iecall_app__unsubscribe,
                                   .notifications = {{{kNotifyNotifyState, OnStateNotification}}}};

}  // namespace

int32_t XirEcallapp_createProxy(IEcallAppPubProxy** proxy, const XirConnection* connection) {
    return XirRpcCreateProxy(proxy, kService, *connection);
}

void XirEcallapp_releaseProxy(IEcallAppPubProxy* proxy) {
    XirRpcReleaseProxy(proxy);
}

int32_t XirEcallapp_triggerEcall(IEcallAppPubProxy* proxy, uint8_t automatic) {
    return XirRpcSend(proxy, kTriggerEcall, com__vantu__ecallapp__iecall_app__trigger_ecall,
                      [automatic](auto& request) { request.automatic = automatic; });
}

int32_t XirEcallapp_userRequestCancelEcall(IEcallAppPubProxy* proxy) {
    return XirRpcSend(proxy, kUserRequestCancelEcall, com__vantu__ecallapp__iecall_app__user_request_cancel_ecall,
                      kXirRpcNoArguments);
}

int32_t XirEcallapp_disconnectEcall(IEcallAppPubProxy* proxy) {
    return XirRpcSend(proxy, kDisconnectEcall, com__vantu__ecallapp__iecall_app__disconnect_ecall, kXirRpcNoArguments);
}

int32_t XirEcallapp_updateVehicleConfig(IEcallAppPubProxy* proxy, const TVehicleConfig* config) {
    wire::PropulsionStorageType propulsion = COM__VANTU__ECALLAPP__TPROPULSION_STORAGE_TYPE__INIT;
    wire::VehicleConfig message = COM__VANTU__ECALLAPP__TVEHICLE_CONFIG__INIT;
    message.propulsionstoragetype = &propulsion;
    return XirRpcSend(proxy, kUpdateVehicleConfig, com__vantu__ecallapp__iecall_app__update_vehicle_config,
                      [&message, config](auto& request) {
                          FillMessage(message, *config);
                          request.vehicleconfig = &message;
                      });
}

int32_t XirEcallapp_updateVehicleState(IEcallAppPubProxy* proxy, const TVehicleState* state) {
    wire::VehicleState message = COM__VANTU__ECALLAPP__TVEHICLE_STATE__INIT;
    return XirRpcSend(proxy, kUpdateVehicleState, com__vantu__ecallapp__iecall_app__update_vehicle_state,
                      [&message, state](auto& request) {
                          FillMessage(message, *state);
                          request.vehiclestate = &message;
                      });
}

int32_t XirEcallapp_getSelfTestAllDevicesState(IEcallAppPubProxy* proxy, XirRecord<TSelfTestAllDevicesState>** result) {
    return XirRpcGet(proxy, kGetSelfTestAllDevicesState,
                     com__vantu__ecallapp__iecall_app__get_self_test_all_devices_state, kXirRpcNoArguments, result,
                     [](const auto& response) { return response.selftestalldevicesstate; });
}

int32_t XirEcallapp_updateSelfTestAllDevicesState(IEcallAppPubProxy* proxy, const TSelfTestAllDevicesState* result) {
    wire::SelfTestAllDevicesState message = COM__VANTU__ECALLAPP__TSELF_TEST_ALL_DEVICES_STATE__INIT;
    return XirRpcSend(proxy, kUpdateSelfTestAllDevicesState,
                      com__vantu__ecallapp__iecall_app__update_self_test_all_devices_state,
                      [&message, result](auto& request) {
                          FillMessage(message, *result);
                          request.selftestalldevicesstate = &message;
                      });
}

int32_t XirEcallapp_updateGnssLocation(IEcallAppPubProxy* proxy, const TGnssLocation* location) {
    wire::GnssLocation message = COM__VANTU__ECALLAPP__TGNSS_LOCATION__INIT;
    return XirRpcSend(proxy, kUpdateGnssLocation, com__vantu__ecallapp__iecall_app__update_gnss_location,
                      [&message, location](auto& request) {
                          FillMessage(message, *location);
                          request.location = &message;
                      });
}

int32_t XirEcallapp_requestState(IEcallAppPubProxy* proxy, XirRecord<TEcallappState>** state) {
    return XirRpcGet(proxy, kRequestState, com__vantu__ecallapp__iecall_app__request_state, kXirRpcNoArguments, state,
                     [](const auto& response) { return response.ecallappstate; });
}

int32_t XirEcallapp_getCfgParameter(IEcallAppPubProxy* proxy, uint32_t number, XirRecord<TCfgParamValue>** value) {
    return XirRpcGet(
        proxy, kGetCfgParameter, com__vantu__ecallapp__iecall_app__get_cfg_parameter,
        [number](auto& request) { CopyToWire{}(request.cfgparamname, number); }, value,
        [](const auto& response) { return response.paramvalue; });
}

int32_t XirEcallapp_setCfgParameter(IEcallAppPubProxy* proxy, uint32_t number, const TCfgParamValue* value) {
    wire::CfgParamValue message = COM__VANTU__ECALLAPP__TCFG_PARAM_VALUE__INIT;
    return XirRpcSend(proxy, kSetCfgParameter, com__vantu__ecallapp__iecall_app__set_cfg_parameter,
                      [&message, number, value](auto& request) {
                          FillMessage(message, *value);
                          CopyToWire{}(request.cfgparamname, number);
                          request.paramvalue = &message;
                      });
}

int32_t XirEcallapp_getGnssLocationHistory(IEcallAppPubProxy* proxy, int32_t index,
                                           XirRecord<TEcallGnssLocationHistory>** history) {
    return XirRpcGet(
        proxy, kGetGnssLocationHistory, com__vantu__ecallapp__iecall_app__get_gnss_location_history,
        [index](auto& request) { request.index = index; }, history,
        [](const auto& response) { return response.ecallgnsslocationhistory; });
}

int32_t XirEcallapp_getMsdHistory(IEcallAppPubProxy* proxy, uint32_t index, XirRecord<TEcallMsdHistory>** history) {
    return XirRpcGet(
        proxy, kGetMsdHistory, com__vantu__ecallapp__iecall_app__get_msd_history,
        [index](auto& request) { request.historyindnumber = index; }, history,
        [](const auto& response) { return response.ecallmsdhistory; });
}

int32_t XirEcallapp_switchToTestMode(IEcallAppPubProxy* proxy) {
    return XirRpcSend(proxy, kSwitchToTestMode, com__vantu__ecallapp__iecall_app__switch_to_test_mode,
                      kXirRpcNoArguments);
}

int32_t XirEcallapp_switchFromTestMode(IEcallAppPubProxy* proxy) {
    return XirRpcSend(proxy, kSwitchFromTestMode, com__vantu__ecallapp__iecall_app__switch_from_test_mode,
                      kXirRpcNoArguments);
}

int32_t XirEcallapp_getOperatingMode(IEcallAppPubProxy* proxy, XirRecord<TEcallOperatingMode>** mode) {
    return XirRpcGet(proxy, kGetOperatingMode, com__vantu__ecallapp__iecall_app__get_operating_mode, kXirRpcNoArguments,
                     mode, [](const auto& response) { return &response; });
}

int32_t XirEcallapp_getSimInfo(IEcallAppPubProxy* proxy, XirRecord<TEcallSimInfo>** info) {
    return XirRpcGet(proxy, kGetSimInfo, com__vantu__ecallapp__iecall_app__get_sim_info, kXirRpcNoArguments, info,
                     [](const auto& response) { return response.siminfo; });
}

int32_t XirEcallapp_getVersion(IEcallAppPubProxy* proxy, XirRecord<TEcallVersion>** version) {
    return XirRpcGet(proxy, kGetVersion, com__vantu__ecallapp__iecall_app__get_version, kXirRpcNoArguments, version,
                     [](const auto& response) { return &response; });
}

int32_t XirEcallapp_registerNotifyState(IEcallAppPubProxy* proxy, XirEcallappStateCallback callback) {
    return XirRpcRegister(proxy, kStatePlace, reinterpret_cast<XirRpcCallback>(callback));
}

int32_t XirEcallapp_deregisterNotifyState(IEcallAppPubProxy* proxy, XirEcallappStateCallback callback) {
    return XirRpcDeregister(proxy, kStatePlace, reinterpret_cast<XirRpcCallback>(callback));
}
