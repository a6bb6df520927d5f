/// Named threads and one-shot flags.
#ifndef XIR_COMMON_OSAL_H
#define XIR_COMMON_OSAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct xir_common_osal_thread xir_common_osal_thread;
typedef xir_common_osal_thread* xir_common_osal_thread_handle;

/// A step of a thread's life; runs on that thread. Negative: the step failed.
typedef int32_t (*xir_common_osal_thread_fn)(xir_common_osal_thread_handle handle, void* context);

/// Starts a thread named name (the kernel shows its first 15 characters): init once, then run again and again until the
/// thread is released, then destroy. A negative result of init or run parks the thread until its release; destroy still
/// runs. Returns after init has finished, with *handle set before init starts.
/// Answers 0; negative when the thread could not be made, then *handle is unchanged and nothing was called.
int32_t xir_common_osal_createThread(const char* name, void* context, xir_common_osal_thread_fn init,
                                     xir_common_osal_thread_fn run, xir_common_osal_thread_fn destroy,
                                     xir_common_osal_thread_handle* handle);

/// Stops the run loop after the current run, lets destroy run, waits for the thread, sends away who still waits for a
/// flag, and frees the handle. Answers 0, also for null; -1, and does nothing, on the thread itself.
int32_t xir_common_osal_releaseThread(xir_common_osal_thread_handle handle);

/// Non-zero when called on that thread.
int32_t xir_common_osal_is_same_thread(xir_common_osal_thread_handle handle);

/// A flag is a byte of its owner's record: init clears it, notify raises it and wakes its waiters, wait blocks until it
/// is raised. It stays raised until the next init. The byte is only touched through these three operations, by any
/// thread; notify does not touch it any more once a waiter can have seen it raised. All answer 0, and -1 for a null
/// argument.
int32_t xir_common_osal_init_flag(xir_common_osal_thread_handle handle, uint8_t* flag);
int32_t xir_common_osal_notify_flag(xir_common_osal_thread_handle handle, uint8_t* flag);
/// While the thread is inside a handler, the waiter reads the thread's client connections in its place, so that a
/// handler that blocks cannot hold back the waiter's reply: completions of calls may therefore run on a waiting thread.
/// The waiter also completes, as missing, a request that has had no reply within the request limit.
/// On the thread itself it waits the same way, for what its clients' connections bring.
/// Answers -1, too, when the thread is released before the flag is raised.
int32_t xir_common_osal_wait_flag(xir_common_osal_thread_handle handle, uint8_t* flag);

#ifdef __cplusplus
}
#endif

#endif
