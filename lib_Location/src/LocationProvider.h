/// Client of the location service LocationProvider.
///
/// Every operation takes the proxy first and blocks its caller until the dispatch thread "LocationProvider" has the
/// reply, at most for the request limit. Never call one on that thread, and so never from a callback.
/// Answers 0; a negative status of this layer (XirRpcStatus); otherwise the responsecode of the reply.
/// A null proxy answers kXirRpcNotConnected. Calls of one method by several threads are made one after the other.
#ifndef LOCATION_PROVIDER_H
#define LOCATION_PROVIDER_H

#include <cstdint>

#include "XirRpcTypes.h"

struct LocationProviderPubProxy;

enum ProviderStateEnum : uint32_t {
    ProviderStateEnum_AVAILABLE = 0,
    ProviderStateEnum_DEEP_LOW_POWER = 1,
    ProviderStateEnum_ERROR = 2,
    ProviderStateEnum_FORCED_OFF = 3,
    ProviderStateEnum_LOW_POWER = 4,
    ProviderStateEnum_STARTUP = 5,
    ProviderStateEnum_UNAVAILABLE = 6,
    ProviderStateEnum_UPDATE = 7
};

/// One position, flat, with all that the service says of it. Numbers as they came, in the service's units.
struct TLocation {
    const char* extra_info;
    float heading;
    float heading_accuracy;
    float heading_mag;  ///< against magnetic north
    float heading_mag_accuracy;
    double altitude;
    double longitude;
    double latitude;
    float altitude_msl;
    float ecefx;
    float ecefy;
    float ecefz;
    float axis_orientation;
    float semi_major_axis;
    float semi_minor_axis;
    float horizontal_accuracy;
    float latitude_accuracy;
    float longitude_accuracy;
    float vertical_accuracy;
    uint8_t valid_2d_fix;
    uint8_t valid_3d_fix;
    float speed;
    float speed_accuracy;
    double tow;
    double utc_correction;
    uint16_t week_number;  ///< this side's view: the low 16 bits of the one on the wire
    uint64_t local_timestamp;
    uint64_t receive_timestamp;  ///< milliseconds since 1970, UTC
    uint64_t timestamp;
    uint8_t valid_flag;
};

/// Called on the dispatch thread; the record and its text are freed after the call: copy what is to be kept. Its result
/// is not looked at.
using LocationCallback = int (*)(const TLocation* location);
/// Called on the dispatch thread with a ProviderStateEnum as it came, unchecked. Its result is not looked at.
using LocationProviderStateCallback = int (*)(uint32_t status);

/// Starts the dispatch thread, waits without limit for the connection, checks the peer's name and version.
/// connection: never null, nor its texts. *proxy is written on success; null when the client or the version check
/// failed; unchanged, with result 0, when the thread could not be made.
int32_t loc_createProxy(LocationProviderPubProxy** proxy, const XirConnection* connection);
/// Ends the thread and the connection. Null is ignored.
void loc_releaseProxy(LocationProviderPubProxy* proxy);

/// The position known last. *location is written when the reply carries one, whatever the responsecode, and unchanged
/// otherwise; a reply with an error code in its place (no position available) answers its responsecode all the same,
/// which may be 0. So start with null, look at the pointer, and release what came.
int32_t loc_getLastKnownPosition(LocationProviderPubProxy* proxy, XirRecord<TLocation>** location);
/// The position now, for which the service takes up to timeoutInMs; *location as above (the error is the time-out). The
/// caller itself waits for the reply no longer than for any other.
int32_t loc_getCurrentPosition(LocationProviderPubProxy* proxy, uint32_t timeoutInMs, XirRecord<TLocation>** location);
int32_t loc_close(LocationProviderPubProxy* proxy);

/// Register the callback (it stays registered when the service refuses) and subscribe to its notifications.
int32_t loc_registerTheCurrentLocation(LocationProviderPubProxy* proxy, LocationCallback callback);
int32_t loc_registerTheCurrentProviderState(LocationProviderPubProxy* proxy, LocationProviderStateCallback callback);
/// Clear the registration and withdraw the subscription. Answer 1 for a null callback.
int32_t loc_deregisterTheCurrentLocation(LocationProviderPubProxy* proxy, LocationCallback callback);
int32_t loc_deregisterTheCurrentProviderState(LocationProviderPubProxy* proxy, LocationProviderStateCallback callback);

#endif
