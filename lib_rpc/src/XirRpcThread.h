/// The dispatch thread of a connection end: what clients and servers do alike on it.
#ifndef XIR_RPC_THREAD_H
#define XIR_RPC_THREAD_H

#include "xir_common_osal.h"
#include "xir_common_rpc.h"

/// Makes the thread's dispatcher, and lets the process outlive writes to peers that are gone. Null without memory.
ProtobufCRPCDispatch* XirRpcPrepareDispatch();

/// Dispatches for 200 ms, so that the thread comes back to its loop, where it can be stopped. timer is the slice's
/// timer while it runs, null before and after.
void XirRpcDispatchSlice(ProtobufCRPCDispatch* dispatch, ProtobufCRPCDispatchTimer*& timer);

/// Takes the timer back, if any.
void XirRpcDropTimer(ProtobufCRPCDispatchTimer*& timer);

/// What the transport asks to learn whether its caller is the dispatch thread.
uint8_t XirRpcIsDispatchThread(xir_common_osal_thread_handle handle);

#endif
