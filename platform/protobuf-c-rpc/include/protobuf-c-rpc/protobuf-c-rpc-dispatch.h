/// The dispatcher: one thread's loop over file descriptors, timers and idle functions, on epoll.
///
/// A dispatcher belongs to the thread that runs it. Every operation here is called on that thread, or before it runs;
/// none is safe from another thread. No operation of this library starts a thread.
#ifndef PROTOBUF_C_RPC_DISPATCH_H
#define PROTOBUF_C_RPC_DISPATCH_H

#include <protobuf-c/protobuf-c.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int ProtobufC_RPC_FD;

typedef struct _ProtobufCRPCDispatch ProtobufCRPCDispatch;
typedef struct _ProtobufCRPCDispatchTimer ProtobufCRPCDispatchTimer;
typedef struct _ProtobufCRPCDispatchIdle ProtobufCRPCDispatchIdle;

enum { PROTOBUF_C_RPC_EVENT_READABLE = 1, PROTOBUF_C_RPC_EVENT_WRITABLE = 2 };

/// events  the PROTOBUF_C_RPC_EVENT_ bits that are ready; an error or hang-up shows as all bits that were asked for.
typedef void (*ProtobufCRPCDispatchCallback)(ProtobufC_RPC_FD fd, unsigned events, void* callback_data);
typedef void (*ProtobufCRPCDispatchTimerFunc)(ProtobufCRPCDispatch* dispatch, void* func_data);
typedef void (*ProtobufCRPCDispatchIdleFunc)(ProtobufCRPCDispatch* dispatch, void* func_data);

/// Makes a dispatcher that takes its memory from the allocator (borrowed for the dispatcher's life; null: malloc).
/// Answers null when memory or descriptors are short.
ProtobufCRPCDispatch* protobuf_c_rpc_dispatch_new(ProtobufCAllocator* allocator);

/// Frees the dispatcher with its timers and idle functions; descriptors stay open, they belong to their owners.
/// Null is ignored.
void protobuf_c_rpc_dispatch_free(ProtobufCRPCDispatch* dispatch);

/// Calls func once, timeout_secs seconds and timeout_usecs microseconds from now (monotonic clock). The timer is freed
/// just before func is called; until then remove_timer takes it back.
ProtobufCRPCDispatchTimer* protobuf_c_rpc_dispatch_add_timer(ProtobufCRPCDispatch* dispatch, unsigned timeout_secs,
                                                             unsigned timeout_usecs, ProtobufCRPCDispatchTimerFunc func,
                                                             void* func_data);
/// The same with milliseconds.
ProtobufCRPCDispatchTimer* protobuf_c_rpc_dispatch_add_timer_millis(ProtobufCRPCDispatch* dispatch, unsigned millis,
                                                                    ProtobufCRPCDispatchTimerFunc func,
                                                                    void* func_data);
void protobuf_c_rpc_dispatch_remove_timer(ProtobufCRPCDispatchTimer* timer);

/// Calls func once, in the next run.
ProtobufCRPCDispatchIdle* protobuf_c_rpc_dispatch_add_idle(ProtobufCRPCDispatch* dispatch,
                                                           ProtobufCRPCDispatchIdleFunc func, void* func_data);
void protobuf_c_rpc_dispatch_remove_idle(ProtobufCRPCDispatchIdle* idle);

/// Watches fd for the events (0: no longer watched), for as long as they are there; a second call for the same fd
/// replaces the first. A descriptor that cannot be waited for, such as a regular file, is never ready. Ends the process
/// without memory: a connection that is not watched would be deaf for good.
void protobuf_c_rpc_dispatch_watch_fd(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd, unsigned events,
                                      ProtobufCRPCDispatchCallback callback, void* callback_data);
/// Forgets fd and closes it.
void protobuf_c_rpc_dispatch_close_fd(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd);
/// Forgets fd, which the caller has closed itself.
void protobuf_c_rpc_dispatch_fd_closed(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd);

/// Waits until something is due, calls all callbacks that are due, and returns. Callbacks may add and remove anything,
/// themselves included; what they add is not called before the next run. They must not free the dispatcher. A signal
/// ends the wait, too.
void protobuf_c_rpc_dispatch_run(ProtobufCRPCDispatch* dispatch);

#ifdef __cplusplus
}
#endif

#endif
