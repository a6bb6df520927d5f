#include "xir_wake.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

XirWake::XirWake() : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void XirWake::Ring() {
    if (!rung.exchange(true)) {
        const uint64_t one = 1;
        // Cannot fail: the counter of an unanswered event is 1 at most.
        [[maybe_unused]] const ssize_t written = write(event.Get(), &one, sizeof one);
    }
}

void XirWake::Answer() {
    // The event is emptied first: a ring from here on is either seen by who answers, or writes again.
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t length = read(event.Get(), &count, sizeof count);
    rung.exchange(false);
}
