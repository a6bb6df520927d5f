// Every failure here is logged, and logging takes the "Trace" mutex through these same operations. The trap is a
// failing "Trace" mutex: its report would fail and be reported in turn, for ever. So a thread reports one failure at a
// time.
#include "XirOsal.h"

#ifdef NDEBUG
#error "misuse of a mutex must end the process: build without NDEBUG"
#endif

#include <cassert>
#include <cstring>
#include <mutex>

#include "Trace.h"

namespace {

std::atomic<int32_t> holdCount{0};
thread_local bool isReporting = false;

template <typename LogCall>
void Report(LogCall log) {
    if (!isReporting) {
        isReporting = true;
        log();
        isReporting = false;
    }
}

/// Creates the record's mutex unless it exists. Answers 0 or the error number.
/// Guarded, since "State" may see its first two users at once: start-up, and a notification of the eCall service.
int CreateOnFirstUse(XirMutex& m, int type) {
    static std::mutex creation;
    if (m.initialised.load(std::memory_order_acquire) != 0) {
        return 0;
    }
    const std::lock_guard<std::mutex> guard(creation);
    if (m.initialised.load(std::memory_order_relaxed) != 0) {
        return 0;
    }
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, type);
    const int error = pthread_mutex_init(&m.mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (error == 0) {
        m.initialised.store(1, std::memory_order_release);
    }
    return error;
}

}  // namespace

bool GetMutex(XirMutex* m) {
    if (m == nullptr) {
        Report([] { EcallUITraceError("pXirMutex == NULL"); });
        assert(0);
    }
    if (const int error = CreateOnFirstUse(*m, PTHREAD_MUTEX_RECURSIVE); error != 0) {
        if (isReporting) {
            return false;  // "Trace" itself; the report under way goes without the trace file
        }
        Report([&] {
            EcallUITraceError("(%s) Error :  pthread_mutex_init : ret = %d (%s) \n", m->name, error, strerror(error));
        });
        assert(0);
    }
    if (const int error = pthread_mutex_lock(&m->mutex); error != 0) {
        Report([&] {
            EcallUITraceError("(%s) Error :  pthread_mutex_timedlock : ret = %d (%s) \n", m->name, error,
                              strerror(error));
        });
        return false;
    }
    m->lockCount = static_cast<uint8_t>(m->lockCount + 1);
    holdCount.fetch_add(1, std::memory_order_relaxed);
    return true;
}

void ReleaseMutex(XirMutex* m) {
    if (m == nullptr) {
        Report([] { EcallUITraceError("pXirMutex == NULL"); });
        return;
    }
    if (m->lockCount == 0) {
        Report([&] { EcallUITraceError("Error :  Release a resource that is not locked !!! (%s)\n", m->name); });
        return;
    }
    m->lockCount = static_cast<uint8_t>(m->lockCount - 1);
    if (pthread_mutex_unlock(&m->mutex) != 0) {
        Report([&] { EcallUITraceError("Error :  pthread_mutex_unlock !!! (%s)\n", m->name); });
        return;
    }
    holdCount.fetch_sub(1, std::memory_order_relaxed);
}

int32_t XirMutexHoldCount() {
    return holdCount.load(std::memory_order_relaxed);
}

// The rendezvous is a binary signal, taken by the issuer and given back by another thread. No thread may unlock a mutex
// that another one locked, so the record's mutex guards a flag, and the flag is the signal.

namespace {

XirMutex SyncCmdMutex{"SyncCmd"};
pthread_cond_t syncCmdChanged = PTHREAD_COND_INITIALIZER;
bool isCommandPending = false;
int syncCmdResult = 0;

void LockSyncCmd() {
    if (const int error = pthread_mutex_lock(&SyncCmdMutex.mutex); error != 0) {
        EcallUITraceError("Error :  pthread_mutex_timedlock : ret = %d (%s) ", error, strerror(error));
        assert(0);
    }
}

bool UnlockSyncCmd() {
    if (pthread_mutex_unlock(&SyncCmdMutex.mutex) != 0) {
        EcallUITraceError("Error :  pthread_mutex_unlock !!! ");
        return false;
    }
    return true;
}

/// Leaves with the mutex held and no command pending.
void LockWhenNothingPends() {
    LockSyncCmd();
    while (isCommandPending) {
        pthread_cond_wait(&syncCmdChanged, &SyncCmdMutex.mutex);
    }
}

bool IsSyncCmdInitialised() {
    if (SyncCmdMutex.initialised.load(std::memory_order_acquire) == 0) {
        EcallUITraceError("Error :  mutex not initialized");
        return false;
    }
    return true;
}

}  // namespace

void InitSyncCmd() {
    EcallUITrace("InitSyncCmd : enter");
    if (const int error = CreateOnFirstUse(SyncCmdMutex, PTHREAD_MUTEX_DEFAULT); error != 0) {
        EcallUITraceError("Error :  pthread_mutex_init : ret = %d (%s) ", error, strerror(error));
        assert(0);
    }
    LockWhenNothingPends();
    isCommandPending = true;
    UnlockSyncCmd();
    EcallUITrace("InitSyncCmd : exit");
}

void SyncCmdDone(int value) {
    EcallUITrace("SyncCmdDone : enter, val = %d", value);
    if (IsSyncCmdInitialised()) {
        LockSyncCmd();
        syncCmdResult = value;
        isCommandPending = false;
        pthread_cond_broadcast(&syncCmdChanged);
        UnlockSyncCmd();
    }
    EcallUITrace("SyncCmdDone : exit");
}

int WaitCmdDone() {
    EcallUITrace("WaitCmdDone : enter");
    int result = -1;
    if (IsSyncCmdInitialised()) {
        LockWhenNothingPends();
        result = syncCmdResult;
        if (!UnlockSyncCmd()) {
            assert(0);
        }
    }
    EcallUITrace("WaitCmdDone : exit, retVal = %d", result);
    return result;
}
