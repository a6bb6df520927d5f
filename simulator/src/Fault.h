/// What goes wrong at an attribute file or an ioctl, and when.
#ifndef FAULT_H
#define FAULT_H

#include <chrono>
#include <cstddef>
#include <optional>

/// A failure, a shortened result or a delay; lasting unless told otherwise.
struct Fault {
    static constexpr unsigned kAlways = ~0U;

    int error = 0;                       ///< errno to answer; 0: none
    std::optional<size_t> atMost;        ///< bytes that pass at most; 0 makes a read empty
    std::chrono::milliseconds delay{0};  ///< before the answer
    unsigned skip = 0;                   ///< uses that still go well
    unsigned times = kAlways;            ///< uses that then go wrong

    static Fault Error(int number) {
        Fault fault;
        fault.error = number;
        return fault;
    }
    static Fault AtMost(size_t bytes) {
        Fault fault;
        fault.atMost = bytes;
        return fault;
    }
    /// The call ends so much later; at once when its caller is killed (that of a file: when it gets any signal).
    static Fault Slow(std::chrono::milliseconds delay) {
        Fault fault;
        fault.delay = delay;
        return fault;
    }
    Fault Once() const { return Times(1); }
    Fault Times(unsigned count) const {
        Fault fault = *this;
        fault.times = count;
        return fault;
    }
    /// The first count - 1 uses go well, the count-th goes wrong; lasting unless Once or Times is added.
    Fault FromThe(unsigned count) const {
        Fault fault = *this;
        fault.skip = count - 1;
        return fault;
    }
    /// Counts one use; answers whether it goes wrong.
    bool Strikes() {
        if (skip > 0) {
            --skip;
            return false;
        }
        if (times == 0) {
            return false;
        }
        times -= times == kAlways ? 0 : 1;
        return true;
    }
};

#endif
