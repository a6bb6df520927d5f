/// What every connection end of the module shows to its users: status codes, whom to connect to, returned records.
#ifndef XIR_RPC_TYPES_H
#define XIR_RPC_TYPES_H

#include <cstdint>

/// Negative statuses of the connection layer; zero and above is the responsecode of the peer.
enum XirRpcStatus : int32_t {
    kXirRpcNotBound = -2,           ///< the client, or one of the servers, could not be created
    kXirRpcTooManyUrls = -3,        ///< a server takes at most three
    kXirRpcNoTransport = -4,        ///< a dispatch thread without client, dispatcher or one of its servers
    kXirRpcAlreadyRegistered = -5,  ///< a callback is registered already
    kXirRpcOtherCallback = -6,      ///< deregistration with a callback that is not the registered one
    kXirRpcNoMemory = -11,
    kXirRpcNotConnected = -12,  ///< not connected, or the reply was missing
    kXirRpcWrongName = -13,     ///< the peer is another service
    kXirRpcWrongVersion = -14,  ///< the peer speaks another major version
    kXirRpcNoCallback = 1       ///< deregistration without a callback: nothing done
};

/// Whom to connect to and as whom; the texts are never null, and borrowed for the proxy's life.
struct XirConnection {
    const char* clientName;
    const char* srvcUrl;
};

/// A record that a get operation returns: reference counted, strings included. The caller owns one reference and ends
/// with record->release(record).
template <typename T>
struct XirRecord : T {
    int32_t (*retain)(void* record);
    int32_t (*release)(void* record);
};

#endif
