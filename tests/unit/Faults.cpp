#include "Faults.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <optional>

#include "Trace.h"

namespace {

struct ActiveFault {
    std::string function;
    int error;
    CallFailures plan;
    int calls = 0;
};

/// No mutex: those are among the calls that are wrapped.
class SpinLock {
  public:
    void lock() {
        while (flag.test_and_set(std::memory_order_acquire)) {
        }
    }
    void unlock() { flag.clear(std::memory_order_release); }

  private:
    std::atomic_flag flag;
};

SpinLock faultLock;
std::optional<ActiveFault> active;
std::optional<timespec> fixedTime;

std::string PathOf(int descriptor) {
    std::array<char, 64> link;
    snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
    std::array<char, PATH_MAX> path;
    const ssize_t length = readlink(link.data(), path.data(), path.size());
    return {path.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

struct Subject {
    std::string path = {};
    const void* object = nullptr;
};

/// The plan when this call is to fail.
std::optional<ActiveFault> Meet(const char* function, const Subject& subject = {}) {
    const std::lock_guard guard(faultLock);
    if (!active || active->function != function || subject.path.find(active->plan.path) == std::string::npos) {
        return std::nullopt;
    }
    const CallFailures& plan = active->plan;
    const bool isOther = plan.object != nullptr && plan.object != subject.object;
    const bool isExcepted = plan.exceptObject != nullptr && plan.exceptObject == subject.object;
    if (isOther || isExcepted) {
        return std::nullopt;
    }
    const int call = active->calls++;
    const int sinceFirst = call - plan.passing;
    if (sinceFirst < 0 || sinceFirst >= plan.failing) {
        return std::nullopt;
    }
    return active;
}

/// How much of the call's bytes the plan lets through.
size_t Part(size_t length, const CallFailures& plan) {
    return std::min(length, static_cast<size_t>(plan.bytes));
}

bool IsActive() {
    const std::lock_guard guard(faultLock);
    return active.has_value();
}

}  // namespace

CallFault::CallFault(std::string function, int error, CallFailures plan) {
    const std::lock_guard guard(faultLock);
    active = {std::move(function), error, std::move(plan)};
}

CallFault::~CallFault() {
    const std::lock_guard guard(faultLock);
    active.reset();
}

int CallFault::Calls() const {
    const std::lock_guard guard(faultLock);
    return active ? active->calls : 0;
}

#ifdef __SANITIZE_THREAD__
ForeignUnlock::ForeignUnlock() : fault("pthread_mutex_unlock", EPERM, {.exceptObject = &TraceMutex.mutex}) {}
#else
ForeignUnlock::ForeignUnlock() = default;
#endif

FixedClock::FixedClock(long long seconds, long nanoseconds) {
    const std::lock_guard guard(faultLock);
    fixedTime = timespec{seconds, nanoseconds};
}

FixedClock::~FixedClock() {
    const std::lock_guard guard(faultLock);
    fixedTime.reset();
}

extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
ssize_t __real_read(int descriptor, void* bytes, size_t length);
ssize_t __real_write(int descriptor, const void* bytes, size_t length);
off_t __real_lseek(int descriptor, off_t offset, int whence);
int __real_close(int descriptor);
void* __real_malloc(size_t size);
int __real_clock_gettime(clockid_t clock, timespec* time);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

// Without O_CREAT nobody gave a mode: then it is whatever, and nobody looks at it.
int __wrap_open(const char* path, int flags, mode_t mode) {
    if (const auto fault = Meet("open", {.path = path})) {
        errno = fault->error;
        return -1;
    }
    return __real_open(path, flags, mode);
}

ssize_t __wrap_read(int descriptor, void* bytes, size_t length) {
    const auto fault = IsActive() ? Meet("read", {.path = PathOf(descriptor)}) : std::nullopt;
    if (!fault) {
        return __real_read(descriptor, bytes, length);
    }
    errno = fault->error;
    return fault->plan.bytes < 0 ? -1 : __real_read(descriptor, bytes, Part(length, fault->plan));
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t length) {
    const auto fault = IsActive() ? Meet("write", {.path = PathOf(descriptor)}) : std::nullopt;
    if (!fault) {
        return __real_write(descriptor, bytes, length);
    }
    errno = fault->error;
    return fault->plan.bytes < 0 ? -1 : __real_write(descriptor, bytes, Part(length, fault->plan));
}

off_t __wrap_lseek(int descriptor, off_t offset, int whence) {
    const auto fault = IsActive() ? Meet("lseek", {.path = PathOf(descriptor)}) : std::nullopt;
    if (fault) {
        errno = fault->error;
        return -1;
    }
    return __real_lseek(descriptor, offset, whence);
}

int __wrap_close(int descriptor) {
    const auto fault = IsActive() ? Meet("close", {.path = PathOf(descriptor)}) : std::nullopt;
    const int result = __real_close(descriptor);
    if (fault) {
        errno = fault->error;
        return -1;
    }
    return result;
}

void* __wrap_malloc(size_t size) {
    return Meet("malloc") ? nullptr : __real_malloc(size);
}

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    if (const auto fault = Meet("clock_gettime")) {
        errno = fault->error;
        return -1;
    }
    if (const std::lock_guard guard(faultLock); fixedTime) {
        *time = *fixedTime;
        return 0;
    }
    return __real_clock_gettime(clock, time);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
    const auto fault = Meet("pthread_create");
    return fault ? fault->error : __real_pthread_create(thread, attributes, run, argument);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    const auto fault = Meet("pthread_mutex_init", {.object = mutex});
    return fault ? fault->error : __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    const auto fault = Meet("pthread_mutex_lock", {.object = mutex});
    return fault ? fault->error : __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const auto fault = Meet("pthread_mutex_unlock", {.object = mutex});
    return fault ? fault->error : __real_pthread_mutex_unlock(mutex);
}
}
