/// What callbacks saw, in order; awaited by the test.
#ifndef SEEN_H
#define SEEN_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

template <typename T>
class Seen {
  public:
    void Add(T value) {
        const std::lock_guard lock(mutex);
        values.push_back(std::move(value));
        changed.notify_all();
    }
    /// Waits for so many values, and answers all there are.
    std::vector<T> Wait(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(60), [&] { return values.size() >= count; });
        return values;
    }
    void Clear() {
        const std::lock_guard lock(mutex);
        values.clear();
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<T> values;
};

#endif
