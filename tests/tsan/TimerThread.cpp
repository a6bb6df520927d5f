// The C library makes the thread of a SIGEV_THREAD timer behind ThreadSanitizer's back, and instrumented code that runs
// there crashes. So in builds with that sanitizer, and only there, the expiry goes to a thread that it knows, which
// starts a new one for each notification just as the C library does.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <future>
#include <thread>
#include <utility>

namespace {

/// Nobody else in the service uses a signal.
int ExpirySignal() {
    return SIGRTMIN;
}

using TimerCreate = int (*)(clockid_t clock, sigevent* event, timer_t* timer);

void Watch(const sigevent& wanted, std::promise<pid_t> watcher) {
    sigset_t expiry;
    sigemptyset(&expiry);
    sigaddset(&expiry, ExpirySignal());
    pthread_sigmask(SIG_BLOCK, &expiry, nullptr);
    watcher.set_value(gettid());
    for (;;) {
        if (sigwaitinfo(&expiry, nullptr) == ExpirySignal()) {
            std::thread(wanted.sigev_notify_function, wanted.sigev_value).detach();
        }
    }
}

}  // namespace

extern "C" int timer_create(clockid_t clock, sigevent* event, timer_t* timer) noexcept {
    static const auto real = reinterpret_cast<TimerCreate>(dlsym(RTLD_NEXT, "timer_create"));
    if (event == nullptr || event->sigev_notify != SIGEV_THREAD) {
        return real(clock, event, timer);
    }
    std::promise<pid_t> promise;
    std::future<pid_t> watcher = promise.get_future();
    std::thread(Watch, *event, std::move(promise)).detach();
    sigevent toWatcher{};
    toWatcher.sigev_notify = SIGEV_THREAD_ID;
    toWatcher.sigev_signo = ExpirySignal();
    toWatcher._sigev_un._tid = watcher.get();
    // A timer of this kind goes by the kernel's number, and number 0 would look like no timer: it stays unused.
    const int result = real(clock, &toWatcher, timer);
    return result == 0 && *timer == nullptr ? real(clock, &toWatcher, timer) : result;
}
