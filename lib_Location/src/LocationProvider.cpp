#include "LocationProvider.h"

#include <cstdio>

#include "LocationProviderRecords.h"
#include "XirRpcClient.h"
#include "XirRpcExchange.h"

struct LocationProviderPubProxy : XirRpcProxy {};

namespace {

/// Method indices on the wire.
enum Method : uint16_t {
    kGetLastKnownPosition,
    kGetCurrentPosition,
    kClose,
    kNotifyTheCurrentLocation,
    kNotifyTheCurrentProviderState
};

// Places of the notifications in the table.
constexpr std::size_t kLocationPlace = 0;
constexpr std::size_t kProviderStatePlace = 1;

/// Without memory for the record the position is dropped: the next one is newer.
void OnLocation(const ProtobufCMessage& message, XirRpcCallback callback) {
    const auto& update = reinterpret_cast<const Com__Vantu__Ms__Location__NotifyTheCurrentLocationUpdate&>(message);
    XirRecord<TLocation>* location = nullptr;
    if (!MakeRecord(*update.location, &location)) {
        std::fprintf(stderr, "LocationProvider: no memory for a position, it is dropped\n");
        return;
    }
    if (callback != nullptr) {
        reinterpret_cast<LocationCallback>(callback)(location);
    }
    location->release(location);
}

void OnProviderState(const ProtobufCMessage& message, XirRpcCallback callback) {
    const auto& update =
        reinterpret_cast<const Com__Vantu__Ms__Location__NotifyTheCurrentProviderStateUpdate&>(message);
    uint32_t status = 0;
    CopyToRecord{}(update.status, status);
    if (callback != nullptr) {
        reinterpret_cast<LocationProviderStateCallback>(callback)(status);
    }
}

const XirRpcClientService kService{
    .threadName = "LocationProvider",
    .createName = "loc_createProxy",
    .releaseName = "releaseLocationProviderPubProxy",
    .interfaceName = "com.vantu.ms.location.locationprovider",
    .interface = {129, 0, 2},
    .descriptor = &com__vantu__ms__location__location_provider__descriptor,
    .getVersion = com__vantu__ms__location__location_provider__get_location_provider_version,
    .subscribe = com__vantu__ms__location__location_provider__subscribe,
    .unsubscribe = com__vantu__ms__location__location_provider__unsubscribe,
    .notifications = {{{kNotifyTheCurrentLocation, OnLocation}, {kNotifyTheCurrentProviderState, OnProviderState}}}};

}  // namespace

int32_t loc_createProxy(LocationProviderPubProxy** proxy, const XirConnection* connection) {
    return XirRpcCreateProxy(proxy, kService, *connection);
}

void loc_releaseProxy(LocationProviderPubProxy* proxy) {
    XirRpcReleaseProxy(proxy);
}

int32_t loc_getLastKnownPosition(LocationProviderPubProxy* proxy, XirRecord<TLocation>** location) {
    return XirRpcGet(proxy, kGetLastKnownPosition, com__vantu__ms__location__location_provider__get_last_known_position,
                     kXirRpcNoArguments, location, [](const auto& response) -> const wire::Location* {
                         const bool hasValue = response.result_case ==
                                               COM__VANTU__MS__LOCATION__GET_LAST_KNOWN_POSITION_RESPONSE__RESULT_VALUE;
                         return hasValue ? response.value->lastknownlocation : nullptr;
                     });
}

int32_t loc_getCurrentPosition(LocationProviderPubProxy* proxy, uint32_t timeoutInMs, XirRecord<TLocation>** location) {
    return XirRpcGet(
        proxy, kGetCurrentPosition, com__vantu__ms__location__location_provider__get_current_position,
        [timeoutInMs](auto& request) { request.timeoutinms = timeoutInMs; }, location,
        [](const auto& response) -> const wire::Location* {
            const bool hasValue =
                response.result_case == COM__VANTU__MS__LOCATION__GET_CURRENT_POSITION_RESPONSE__RESULT_VALUE;
            return hasValue ? response.value->location : nullptr;
        });
}

int32_t loc_close(LocationProviderPubProxy* proxy) {
    return XirRpcSend(proxy, kClose, com__vantu__ms__location__location_provider__close, kXirRpcNoArguments);
}

int32_t loc_registerTheCurrentLocation(LocationProviderPubProxy* proxy, LocationCallback callback) {
    return XirRpcRegister(proxy, kLocationPlace, reinterpret_cast<XirRpcCallback>(callback));
}

int32_t loc_deregisterTheCurrentLocation(LocationProviderPubProxy* proxy, LocationCallback callback) {
    return XirRpcDeregister(proxy, kLocationPlace, reinterpret_cast<XirRpcCallback>(callback));
}

int32_t loc_registerTheCurrentProviderState(LocationProviderPubProxy* proxy, LocationProviderStateCallback callback) {
    return XirRpcRegister(proxy, kProviderStatePlace, reinterpret_cast<XirRpcCallback>(callback));
}

int32_t loc_deregisterTheCurrentProviderState(LocationProviderPubProxy* proxy, LocationProviderStateCallback callback) {
    return XirRpcDeregister(proxy, kProviderStatePlace, reinterpret_cast<XirRpcCallback>(callback));
}
