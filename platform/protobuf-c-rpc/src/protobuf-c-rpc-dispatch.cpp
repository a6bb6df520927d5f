// One epoll instance, and three lists: watches, timers sorted by due time, idle functions.
//
// Callbacks may add and remove anything, so nothing found before a callback may be trusted after it. Everything added
// therefore gets a serial number: a ready event names its watch by serial number (never by address), and a run calls
// only timers and idle functions that are older than the run. The number also disarms an epoll trap: a descriptor that
// was closed here but lives on in a child process stays registered, and its events then name a watch that no longer
// exists.
#include "protobuf-c-rpc/protobuf-c-rpc-dispatch.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

using Clock = std::chrono::steady_clock;

struct Watch {
    ProtobufC_RPC_FD fd = -1;
    unsigned events = 0;
    ProtobufCRPCDispatchCallback callback = nullptr;
    void* callbackData = nullptr;
    uint64_t serial = 0;
    Watch* next = nullptr;
};

}  // namespace

struct _ProtobufCRPCDispatchTimer {
    ProtobufCRPCDispatch* dispatch = nullptr;
    Clock::time_point due;
    ProtobufCRPCDispatchTimerFunc func = nullptr;
    void* funcData = nullptr;
    uint64_t serial = 0;
    ProtobufCRPCDispatchTimer* next = nullptr;
};

struct _ProtobufCRPCDispatchIdle {
    ProtobufCRPCDispatch* dispatch = nullptr;
    ProtobufCRPCDispatchIdleFunc func = nullptr;
    void* funcData = nullptr;
    uint64_t serial = 0;
    ProtobufCRPCDispatchIdle* next = nullptr;
};

struct _ProtobufCRPCDispatch {
    ProtobufCAllocator* allocator = nullptr;
    int epoll = -1;
    uint64_t nextSerial = 1;
    Watch* watches = nullptr;
    ProtobufCRPCDispatchTimer* timers = nullptr;  // soonest first; equal ones in the order they were added
    ProtobufCRPCDispatchIdle* idles = nullptr;    // in the order they were added
};

namespace {

constexpr int kEventsPerRun = 64;

void* SystemAlloc(void*, size_t size) {
    return std::malloc(size);
}

void SystemFree(void*, void* pointer) {
    std::free(pointer);
}

ProtobufCAllocator systemAllocator = {SystemAlloc, SystemFree, nullptr};

template <typename T>
T* Make(ProtobufCAllocator* allocator) {
    void* memory = allocator->alloc(allocator->allocator_data, sizeof(T));
    return memory == nullptr ? nullptr : new (memory) T;
}

template <typename T>
void Free(ProtobufCAllocator* allocator, T* object) {
    allocator->free(allocator->allocator_data, object);
}

template <typename T>
void FreeList(ProtobufCAllocator* allocator, T* first) {
    while (first != nullptr) {
        T* next = first->next;
        Free(allocator, first);
        first = next;
    }
}

/// Takes the element out of the list that starts at *link, and frees it. Nothing happens when it is not in there.
template <typename T>
void Unlink(ProtobufCAllocator* allocator, T** link, const T* element) {
    while (*link != nullptr && *link != element) {
        link = &(*link)->next;
    }
    if (*link != nullptr) {
        T* found = *link;
        *link = found->next;
        Free(allocator, found);
    }
}

Watch* WatchOf(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd) {
    Watch* watch = dispatch->watches;
    while (watch != nullptr && watch->fd != fd) {
        watch = watch->next;
    }
    return watch;
}

Watch* WatchWithSerial(ProtobufCRPCDispatch* dispatch, uint64_t serial) {
    Watch* watch = dispatch->watches;
    while (watch != nullptr && watch->serial != serial) {
        watch = watch->next;
    }
    return watch;
}

/// A watch that could not be made would leave its connection deaf for good, without anyone noticing: better to end.
Watch* AddWatch(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd) {
    auto* watch = Make<Watch>(dispatch->allocator);
    if (watch == nullptr) {
        std::abort();
    }
    watch->fd = fd;
    watch->serial = dispatch->nextSerial++;
    watch->next = dispatch->watches;
    dispatch->watches = watch;
    return watch;
}

void TellEpoll(const ProtobufCRPCDispatch* dispatch, int operation, const Watch* watch) {
    epoll_event event = {};
    event.events = ((watch->events & PROTOBUF_C_RPC_EVENT_READABLE) != 0 ? EPOLLIN : 0U) |
                   ((watch->events & PROTOBUF_C_RPC_EVENT_WRITABLE) != 0 ? EPOLLOUT : 0U);
    event.data.u64 = watch->serial;
    epoll_ctl(dispatch->epoll, operation, watch->fd, &event);
}

void ForgetWatch(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd) {
    const Watch* watch = WatchOf(dispatch, fd);
    if (watch != nullptr) {
        TellEpoll(dispatch, EPOLL_CTL_DEL, watch);
        Unlink(dispatch->allocator, &dispatch->watches, watch);
    }
}

/// An error or a hang-up counts as everything.
unsigned EventsOf(uint32_t ready) {
    unsigned events = 0;
    if ((ready & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
        events |= PROTOBUF_C_RPC_EVENT_READABLE;
    }
    if ((ready & (EPOLLOUT | EPOLLERR | EPOLLHUP)) != 0) {
        events |= PROTOBUF_C_RPC_EVENT_WRITABLE;
    }
    return events;
}

void CallWatch(ProtobufCRPCDispatch* dispatch, const epoll_event& ready) {
    const Watch* watch = WatchWithSerial(dispatch, ready.data.u64);
    const unsigned events = watch == nullptr ? 0 : EventsOf(ready.events) & watch->events;
    if (events != 0) {
        watch->callback(watch->fd, events, watch->callbackData);
    }
}

ProtobufCRPCDispatchTimer* DueTimer(ProtobufCRPCDispatch* dispatch, Clock::time_point now, uint64_t serialLimit) {
    ProtobufCRPCDispatchTimer* timer = dispatch->timers;
    while (timer != nullptr && timer->due <= now && timer->serial >= serialLimit) {
        timer = timer->next;
    }
    return timer != nullptr && timer->due <= now ? timer : nullptr;
}

void CallTimers(ProtobufCRPCDispatch* dispatch, uint64_t serialLimit) {
    if (dispatch->timers == nullptr) {
        return;
    }
    const Clock::time_point now = Clock::now();
    while (ProtobufCRPCDispatchTimer* timer = DueTimer(dispatch, now, serialLimit)) {
        const auto func = timer->func;
        void* const funcData = timer->funcData;
        Unlink(dispatch->allocator, &dispatch->timers, timer);
        func(dispatch, funcData);
    }
}

void CallIdles(ProtobufCRPCDispatch* dispatch, uint64_t serialLimit) {
    while (dispatch->idles != nullptr && dispatch->idles->serial < serialLimit) {
        ProtobufCRPCDispatchIdle* idle = dispatch->idles;
        const auto func = idle->func;
        void* const funcData = idle->funcData;
        Unlink(dispatch->allocator, &dispatch->idles, idle);
        func(dispatch, funcData);
    }
}

/// How long epoll may wait: rounded up, so that it never returns just before a timer is due.
int WaitMillis(const ProtobufCRPCDispatch* dispatch) {
    if (dispatch->idles != nullptr) {
        return 0;
    }
    if (dispatch->timers == nullptr) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(dispatch->timers->due - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

ProtobufCRPCDispatchTimer* AddTimer(ProtobufCRPCDispatch* dispatch, Clock::duration delay,
                                    ProtobufCRPCDispatchTimerFunc func, void* funcData) {
    auto* timer = Make<ProtobufCRPCDispatchTimer>(dispatch->allocator);
    if (timer == nullptr) {
        return nullptr;
    }
    timer->dispatch = dispatch;
    timer->due = Clock::now() + delay;
    timer->func = func;
    timer->funcData = funcData;
    timer->serial = dispatch->nextSerial++;
    ProtobufCRPCDispatchTimer** link = &dispatch->timers;
    while (*link != nullptr && (*link)->due <= timer->due) {
        link = &(*link)->next;
    }
    timer->next = *link;
    *link = timer;
    return timer;
}

}  // namespace

ProtobufCRPCDispatch* protobuf_c_rpc_dispatch_new(ProtobufCAllocator* allocator) {
    ProtobufCAllocator* chosen = allocator == nullptr ? &systemAllocator : allocator;
    auto* dispatch = Make<ProtobufCRPCDispatch>(chosen);
    if (dispatch == nullptr) {
        return nullptr;
    }
    dispatch->allocator = chosen;
    dispatch->epoll = epoll_create1(EPOLL_CLOEXEC);
    if (dispatch->epoll < 0) {
        Free(chosen, dispatch);
        return nullptr;
    }
    return dispatch;
}

void protobuf_c_rpc_dispatch_free(ProtobufCRPCDispatch* dispatch) {
    if (dispatch == nullptr) {
        return;
    }
    close(dispatch->epoll);
    FreeList(dispatch->allocator, dispatch->watches);
    FreeList(dispatch->allocator, dispatch->timers);
    FreeList(dispatch->allocator, dispatch->idles);
    Free(dispatch->allocator, dispatch);
}

ProtobufCRPCDispatchTimer* protobuf_c_rpc_dispatch_add_timer(ProtobufCRPCDispatch* dispatch, unsigned timeout_secs,
                                                             unsigned timeout_usecs, ProtobufCRPCDispatchTimerFunc func,
                                                             void* func_data) {
    return AddTimer(dispatch, std::chrono::seconds{timeout_secs} + std::chrono::microseconds{timeout_usecs}, func,
                    func_data);
}

ProtobufCRPCDispatchTimer* protobuf_c_rpc_dispatch_add_timer_millis(ProtobufCRPCDispatch* dispatch, unsigned millis,
                                                                    ProtobufCRPCDispatchTimerFunc func,
                                                                    void* func_data) {
    return AddTimer(dispatch, std::chrono::milliseconds{millis}, func, func_data);
}

void protobuf_c_rpc_dispatch_remove_timer(ProtobufCRPCDispatchTimer* timer) {
    if (timer != nullptr) {
        Unlink(timer->dispatch->allocator, &timer->dispatch->timers, timer);
    }
}

ProtobufCRPCDispatchIdle* protobuf_c_rpc_dispatch_add_idle(ProtobufCRPCDispatch* dispatch,
                                                           ProtobufCRPCDispatchIdleFunc func, void* func_data) {
    auto* idle = Make<ProtobufCRPCDispatchIdle>(dispatch->allocator);
    if (idle == nullptr) {
        return nullptr;
    }
    idle->dispatch = dispatch;
    idle->func = func;
    idle->funcData = func_data;
    idle->serial = dispatch->nextSerial++;
    ProtobufCRPCDispatchIdle** link = &dispatch->idles;
    while (*link != nullptr) {
        link = &(*link)->next;
    }
    *link = idle;
    return idle;
}

void protobuf_c_rpc_dispatch_remove_idle(ProtobufCRPCDispatchIdle* idle) {
    if (idle != nullptr) {
        Unlink(idle->dispatch->allocator, &idle->dispatch->idles, idle);
    }
}

void protobuf_c_rpc_dispatch_watch_fd(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd, unsigned events,
                                      ProtobufCRPCDispatchCallback callback, void* callback_data) {
    if (events == 0) {
        ForgetWatch(dispatch, fd);
        return;
    }
    Watch* watch = WatchOf(dispatch, fd);
    const int operation = watch == nullptr ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (watch == nullptr) {
        watch = AddWatch(dispatch, fd);
    }
    watch->callback = callback;
    watch->callbackData = callback_data;
    if (operation == EPOLL_CTL_ADD || watch->events != events) {
        watch->events = events;
        TellEpoll(dispatch, operation, watch);
    }
}

void protobuf_c_rpc_dispatch_close_fd(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd) {
    ForgetWatch(dispatch, fd);
    close(fd);
}

void protobuf_c_rpc_dispatch_fd_closed(ProtobufCRPCDispatch* dispatch, ProtobufC_RPC_FD fd) {
    ForgetWatch(dispatch, fd);
}

void protobuf_c_rpc_dispatch_run(ProtobufCRPCDispatch* dispatch) {
    epoll_event ready[kEventsPerRun];
    const int count = epoll_wait(dispatch->epoll, ready, kEventsPerRun, WaitMillis(dispatch));
    const uint64_t serialLimit = dispatch->nextSerial;
    for (int index = 0; index < count; ++index) {
        CallWatch(dispatch, ready[index]);
    }
    CallTimers(dispatch, serialLimit);
    CallIdles(dispatch, serialLimit);
}
