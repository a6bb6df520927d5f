// A thread handle is a record that its creator and its thread share, plus the seat at which callers wait. The record
// ends with the handle's release; the seat lives on while anyone, a client for instance, still holds it.
#include <pthread.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>

#include "xir_common_osal.h"
#include "xir_reader_seat.h"

namespace {

constexpr size_t kKernelNameLength = 15;

}  // namespace

struct xir_common_osal_thread {
    std::string name;
    void* context = nullptr;
    xir_common_osal_thread_fn init = nullptr;
    xir_common_osal_thread_fn run = nullptr;
    xir_common_osal_thread_fn destroy = nullptr;
    std::shared_ptr<XirReaderSeat> seat = std::make_shared<XirReaderSeat>();

    std::mutex mutex;
    std::condition_variable changed;
    bool mayStart = false;  // the creator has stored the handle
    bool initDone = false;
    bool released = false;
    std::thread thread;
    std::thread::id id;  // the thread's, also while it is being joined
};

namespace {

bool IsReleased(xir_common_osal_thread& self) {
    const std::scoped_lock lock(self.mutex);
    return self.released;
}

/// A parked thread does nothing more for its connections, so callers may read them themselves.
void Park(xir_common_osal_thread& self) {
    const XirHandlerScope scope(self.seat);
    std::unique_lock lock(self.mutex);
    self.changed.wait(lock, [&self] { return self.released; });
}

int32_t Start(xir_common_osal_thread& self) {
    {
        std::unique_lock lock(self.mutex);
        self.changed.wait(lock, [&self] { return self.mayStart; });
    }
    pthread_setname_np(pthread_self(), self.name.c_str());
    const int32_t result = self.init == nullptr ? 0 : self.init(&self, self.context);
    const std::scoped_lock lock(self.mutex);
    self.initDone = true;
    self.changed.notify_all();
    return result;
}

void Live(xir_common_osal_thread& self) {
    int32_t result = Start(self);
    while (result >= 0 && self.run != nullptr && !IsReleased(self)) {
        result = self.run(&self, self.context);
    }
    Park(self);
    if (self.destroy != nullptr) {
        self.destroy(&self, self.context);
    }
}

}  // namespace

std::shared_ptr<XirReaderSeat> XirSeatOf(xir_common_osal_thread_handle handle) {
    return handle == nullptr ? nullptr : handle->seat;
}

int32_t xir_common_osal_createThread(const char* name, void* context, xir_common_osal_thread_fn init,
                                     xir_common_osal_thread_fn run, xir_common_osal_thread_fn destroy,
                                     xir_common_osal_thread_handle* handle) try {
    if (handle == nullptr) {
        return -1;
    }
    auto self = std::make_unique<xir_common_osal_thread>();
    if (!*self->seat) {
        return -1;
    }
    self->name = std::string(name == nullptr ? "" : name).substr(0, kKernelNameLength);
    self->context = context;
    self->init = init;
    self->run = run;
    self->destroy = destroy;
    self->thread = std::thread([thread = self.get()] { Live(*thread); });
    self->id = self->thread.get_id();
    *handle = self.get();
    std::unique_lock lock(self->mutex);
    self->mayStart = true;
    self->changed.notify_all();
    self->changed.wait(lock, [&self] { return self->initDone; });
    lock.unlock();
    static_cast<void>(self.release());  // now the caller's
    return 0;
} catch (const std::exception&) {
    return -1;  // no memory or no thread
}

int32_t xir_common_osal_releaseThread(xir_common_osal_thread_handle handle) {
    if (handle == nullptr) {
        return 0;
    }
    if (xir_common_osal_is_same_thread(handle) != 0) {
        return -1;
    }
    {
        const std::scoped_lock lock(handle->mutex);
        handle->released = true;
        handle->changed.notify_all();
    }
    handle->thread.join();
    // Only now: until the thread has ended, its calls in flight still complete, and their waiters wait for that.
    handle->seat->Close();
    delete handle;
    return 0;
}

int32_t xir_common_osal_is_same_thread(xir_common_osal_thread_handle handle) {
    return handle != nullptr && handle->id == std::this_thread::get_id() ? 1 : 0;
}

int32_t xir_common_osal_init_flag(xir_common_osal_thread_handle handle, uint8_t* flag) {
    if (handle == nullptr || flag == nullptr) {
        return -1;
    }
    XirReaderSeat::InitFlag(flag);
    return 0;
}

int32_t xir_common_osal_notify_flag(xir_common_osal_thread_handle handle, uint8_t* flag) {
    if (handle == nullptr || flag == nullptr) {
        return -1;
    }
    const std::shared_ptr<XirReaderSeat> seat = handle->seat;  // the handle may be gone once the flag is raised
    seat->NotifyFlag(flag);
    return 0;
}

int32_t xir_common_osal_wait_flag(xir_common_osal_thread_handle handle, uint8_t* flag) {
    if (handle == nullptr || flag == nullptr) {
        return -1;
    }
    const std::shared_ptr<XirReaderSeat> seat = handle->seat;
    return seat->WaitFlag(flag, xir_common_osal_is_same_thread(handle) != 0);
}
