/// Named, lazily created, recursive mutexes, and a rendezvous for one synchronous command.
///
/// Lock order. Every log line takes "Trace", so "Trace" is always the last one:
///   right: State, Trace        right: Cfg, Trace        wrong: anything while Trace is held
/// Before them come the units' own: "Following" (state outputs) before State, "SwitchOffTurn" (relay) before Trace.
/// An argument of a log call is evaluated with "Trace" held, and so must not lock either. ThreadSanitizer checks the
/// order whenever the tests run under it.
#ifndef XIR_OSAL_H
#define XIR_OSAL_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "Relaxed.h"

struct XirMutex {
    std::atomic<uint8_t> initialised{0};  ///< 1 once mutex exists, and published together with it
    Relaxed<uint8_t> lockCount{0};        ///< depth to which it is held
    const char* name;                     ///< printed in messages
    pthread_mutex_t mutex{};

    explicit constexpr XirMutex(const char* itsName) : name(itsName) {}
};

/// Takes the mutex, creating it on first use. Blocks without limit. False when the lock failed; the failure is logged.
/// A null record, or a mutex that cannot be created, ends the process by an assertion.
bool GetMutex(XirMutex* m);
/// Gives one level back. A null record, or one that is not held, is logged and left alone.
void ReleaseMutex(XirMutex* m);

/// How many XirMutex holds the whole process has now; for diagnosis.
int32_t XirMutexHoldCount();

/// The rendezvous: the issuing thread calls InitSyncCmd, hands its command to another thread, and waits; the other
/// thread calls SyncCmdDone with the result. There is no time-out, and a second InitSyncCmd waits for the first
/// command.
void InitSyncCmd();
void SyncCmdDone(int value);
/// Answers the value of the last SyncCmdDone; -1 at once when InitSyncCmd was never called.
int WaitCmdDone();

#endif
