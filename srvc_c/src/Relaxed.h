/// A value that threads share without a lock, by design: each read and each write is one whole, unordered access.
/// Whoever needs more than that needs a lock.
#ifndef RELAXED_H
#define RELAXED_H

#include <atomic>

template <typename T>
class Relaxed {
  public:
    constexpr Relaxed() = default;
    constexpr Relaxed(T initial) : value(initial) {}  // implicit, so that it reads like a plain field
    Relaxed(const Relaxed& other) : value(other.get()) {}
    Relaxed& operator=(const Relaxed& other) {
        set(other.get());
        return *this;
    }
    Relaxed& operator=(T next) {
        set(next);
        return *this;
    }
    operator T() const { return get(); }
    /// For places that take no conversion, such as the arguments of printf.
    T get() const { return value.load(std::memory_order_relaxed); }
    void set(T next) { value.store(next, std::memory_order_relaxed); }

  private:
    std::atomic<T> value{};
};

#endif
