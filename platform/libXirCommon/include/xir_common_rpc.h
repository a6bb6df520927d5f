/// RPC clients and servers over TCP and local stream sockets, for protobuf-c services.
///
/// A client or server lives on one dispatcher, and so on one thread, the dispatch thread of its connection end. It is
/// made, configured and ended on that thread, or before the thread runs the dispatcher. Callbacks and server handlers
/// run there, with two exceptions: a completion may run on a thread that waits with xir_common_osal_wait_flag, and an
/// error handler on the thread that met the error. Requests may be made from any thread. Functions of the dispatcher
/// (timers, idle functions) are no handlers: while one of them blocks, nobody reads.
///
/// Of a service the library understands the methods "subscribe" and "unsubscribe", whose requests carry messageid and
/// whose replies carry responsecode. Operations answer 0, and -1 for a null argument, unless said otherwise.
/// docs/wire.md describes the bytes, the limits and the errors.
#ifndef XIR_COMMON_RPC_H
#define XIR_COMMON_RPC_H

#include <protobuf-c/protobuf-c.h>
#include <stddef.h>
#include <stdint.h>

#include "protobuf-c-rpc/protobuf-c-rpc-dispatch.h"
#include "xir_common_osal.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Its address is also that of a ProtobufCService: cast it for generated client stubs, and for
/// protobuf_c_service_destroy, which ends the client.
///
/// A request made through a stub calls its closure exactly once: with the reply, or with null when the reply is
/// missing. It is missing at once, on the calling thread, while not connected; when the connection is lost; when the
/// server refuses; after 30 s; when the client is ended.
typedef struct xir_common_rpc_client xir_common_rpc_client;
typedef struct xir_common_rpc_server xir_common_rpc_server;

typedef enum { XIR_COMMON_RPC_TRANSPORT_FILE = 0, XIR_COMMON_RPC_TRANSPORT_TCP = 1 } xir_common_rpc_transport;

typedef enum {
    XIR_COMMON_RPC_KIND_REPLY = 0,
    XIR_COMMON_RPC_KIND_REQUEST = 1,
    XIR_COMMON_RPC_KIND_NOTIFICATION = 2
} xir_common_rpc_kind;

typedef enum {
    XIR_COMMON_RPC_STATUS_DELIVERED = 0,
    XIR_COMMON_RPC_STATUS_UNKNOWN_METHOD = 1,
    XIR_COMMON_RPC_STATUS_BAD_REQUEST = 2,
    XIR_COMMON_RPC_STATUS_REFUSED = 3
} xir_common_rpc_status;

/// Connection events, as the connection callbacks get them.
typedef enum { XIR_COMMON_RPC_EVENT_OPENED = 0, XIR_COMMON_RPC_EVENT_CLOSED = 1 } xir_common_rpc_event;

/// One message with what its frame says about it.
typedef struct {
    uint16_t method_index;
    uint8_t kind;               ///< xir_common_rpc_kind
    uint8_t status;             ///< xir_common_rpc_status; 0 in requests and notifications
    uint32_t request_id;        ///< chosen by the client, echoed in the reply; 0 in a notification
    ProtobufCMessage* message;  ///< unpacked; null when the frame carries none
} xir_common_rpc_header;

/// What a service says of its interface; the head of every proxy record.
typedef struct {
    uint16_t id;
    uint8_t major;
    uint8_t notification_count;
} xir_common_rpc_interface;

/// Results of a deserialiser; consumed bytes are meaningful for all but NEED_MORE and BROKEN.
typedef enum {
    XIR_COMMON_RPC_COMPLETE = 0,
    XIR_COMMON_RPC_NEED_MORE = 1,       ///< keep the bytes and call again
    XIR_COMMON_RPC_UNKNOWN_METHOD = 2,  ///< a whole frame, for a method that the service does not have
    XIR_COMMON_RPC_BAD_PAYLOAD = 3,     ///< a whole frame, whose message cannot be unpacked
    XIR_COMMON_RPC_BROKEN = -1          ///< no frame of this transport: drop the peer
} xir_common_rpc_deserialize_result;

/// Appends one frame to out. Answers 0, negative when the message is too long (1 MiB).
typedef int32_t (*xir_common_rpc_serialize_fn)(const xir_common_rpc_header* header, ProtobufCBuffer* out);
/// Reads one frame from the start of the bytes (borrowed for the call). header is written for every result but
/// NEED_MORE and BROKEN; its message belongs to the caller, who frees it with protobuf_c_message_free_unpacked.
typedef int32_t (*xir_common_rpc_deserialize_fn)(const ProtobufCServiceDescriptor* service, const uint8_t* bytes,
                                                 size_t length, xir_common_rpc_header* header, size_t* consumed);

/// Called on transport errors, on the thread that met the error. code: a negative errno. message is valid for the call.
typedef void (*xir_common_rpc_error_fn)(int32_t code, const char* message, void* context);
/// Answers non-zero when the caller runs on the dispatch thread. The library asks it on any thread.
typedef uint8_t (*xir_common_rpc_is_dispatch_thread_fn)(xir_common_osal_thread_handle handle);
/// A message that is no reply; header and its message are valid for the call. The message is null when the service has
/// no such method. On the dispatch thread.
typedef void (*xir_common_rpc_nonrpcmsg_fn)(xir_common_rpc_client* client, const xir_common_rpc_header* header,
                                            void* context);
typedef void (*xir_common_rpc_client_connection_fn)(xir_common_rpc_client* client, void* context, int32_t event);
typedef void (*xir_common_rpc_server_connection_fn)(xir_common_rpc_server* server, void* context, const char* id,
                                                    int32_t event);

/// The hooks to install when nothing is to be changed about the framing.
int32_t xir_common_rpc_client_serialize(const xir_common_rpc_header* header, ProtobufCBuffer* out);
int32_t xir_common_rpc_server_serialize(const xir_common_rpc_header* header, ProtobufCBuffer* out);
int32_t xir_common_rpc_deserialize(const ProtobufCServiceDescriptor* service, const uint8_t* bytes, size_t length,
                                   xir_common_rpc_header* header, size_t* consumed);

/// Makes a client that connects in the background on the dispatcher, and again after every loss (50 ms, doubling to
/// 1 s). address: a path; or "host:port", or a port alone for one on this machine, where a host is an IPv4 address, an
/// IPv6 address in brackets, or "localhost" (names are not looked up). context goes to every callback. Null when the
/// address cannot be one, and without memory or descriptors. Ending the client (protobuf_c_service_destroy) calls no
/// connection callback.
xir_common_rpc_client* xir_common_rpc_client_new(int32_t transport, const char* address,
                                                 const ProtobufCServiceDescriptor* descriptor,
                                                 ProtobufCRPCDispatch* dispatch, void* context);
/// Non-zero when connected; any thread.
int32_t xir_common_rpc_client_is_connected(xir_common_rpc_client* client);
int32_t xir_common_rpc_client_set_error_handler(xir_common_rpc_client* client, xir_common_rpc_error_fn handler,
                                                void* context);
int32_t xir_common_rpc_client_set_rpc_protocol(xir_common_rpc_client* client, xir_common_rpc_serialize_fn serialize,
                                               xir_common_rpc_deserialize_fn deserialize);
/// handle: the dispatch thread, on whose flags the callers wait (xir_common_osal_wait_flag).
int32_t xir_common_rpc_client_configure_threading(xir_common_rpc_client* client,
                                                  xir_common_rpc_is_dispatch_thread_fn is_dispatch_thread,
                                                  xir_common_osal_thread_handle handle);
int32_t xir_common_rpc_client_register_nonrpcmsg_callback(xir_common_rpc_client* client,
                                                          xir_common_rpc_nonrpcmsg_fn callback);
int32_t xir_common_rpc_client_register_connection_callback(xir_common_rpc_client* client,
                                                           xir_common_rpc_client_connection_fn callback);

/// Makes a server and binds it. address: a port (loopback only) or a path (mode 0600; a stale socket is replaced).
/// service: borrowed for the server's life; protobuf_c_service_destroy is not called on it. interface_record is copied.
/// Null when it cannot be bound: also when another process listens on the path, or the path holds something else.
///
/// A handler of the service may answer later, and from any thread: it copies what it needs of the request, which is
/// valid for the call only, and keeps closure and closure data. A null reply refuses the request. An answer that comes
/// twice, or after its client or the server has gone, is ignored.
xir_common_rpc_server* xir_common_rpc_server_new(int32_t transport, const char* address, ProtobufCService* service,
                                                 ProtobufCRPCDispatch* dispatch,
                                                 const xir_common_rpc_interface* interface_record);
int32_t xir_common_rpc_server_set_error_handler(xir_common_rpc_server* server, xir_common_rpc_error_fn handler,
                                                void* context);
int32_t xir_common_rpc_server_set_rpc_protocol(xir_common_rpc_server* server, xir_common_rpc_serialize_fn serialize,
                                               xir_common_rpc_deserialize_fn deserialize);
int32_t xir_common_rpc_server_configure_threading(xir_common_rpc_server* server,
                                                  xir_common_rpc_is_dispatch_thread_fn is_dispatch_thread,
                                                  xir_common_osal_thread_handle handle);
/// context: what the callback gets.
int32_t xir_common_rpc_server_register_connection_callback(xir_common_rpc_server* server,
                                                           xir_common_rpc_server_connection_fn callback, void* context);
/// Sends message as a notification to every client whose subscribe for method_index the service answered with
/// responsecode 0 and did not withdraw. Packs before it returns; any thread.
/// Answers the number of clients reached, negative on failure.
int32_t xir_common_rpc_server_notify(xir_common_rpc_server* server, uint16_t method_index,
                                     const ProtobufCMessage* message);
/// Closes the server and its connections; no connection callback is called. flags: 0.
int32_t xir_common_rpc_server_destroy(xir_common_rpc_server* server, int32_t flags);

#ifdef __cplusplus
}
#endif

#endif
