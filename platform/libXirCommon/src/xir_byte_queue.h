/// Bytes that come in at the end and leave at the front. Takes at most twice the memory of what it had to hold at once.
/// A large queue gives its memory back when it runs empty.
#ifndef XIR_BYTE_QUEUE_H
#define XIR_BYTE_QUEUE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

class XirByteQueue {
  public:
    bool IsEmpty() const { return first == last; }
    size_t Size() const { return last - first; }
    /// Bytes of memory that it takes.
    size_t Capacity() const { return capacity; }
    /// Valid until the next change.
    std::span<const uint8_t> Bytes() const { return {memory.get() + first, Size()}; }

    /// Room for at least size more bytes, to be filled from its start; Grow then says how many were.
    std::span<uint8_t> Room(size_t size) {
        if (capacity - last < size) {
            MakeRoom(size);
        }
        return {memory.get() + last, capacity - last};
    }
    void Grow(size_t filled) { last += filled; }

    void Append(std::span<const uint8_t> bytes) {
        if (!bytes.empty()) {
            std::memcpy(Room(bytes.size()).data(), bytes.data(), bytes.size());
            Grow(bytes.size());
        }
    }

    void Consume(size_t size) {
        first += size;
        if (first == last) {
            Clear();
        }
    }

    void Clear() {
        first = last = 0;
        if (capacity > kKeptWhenEmpty) {
            memory.reset();
            capacity = 0;
        }
    }

  private:
    static constexpr size_t kKeptWhenEmpty = size_t{64} << 10;

    void MakeRoom(size_t size) {
        const size_t used = Size();
        const bool movingIsEnough = capacity - used >= size && first >= capacity / 2;
        if (movingIsEnough) {
            std::memmove(memory.get(), memory.get() + first, used);
        } else {
            capacity = std::max(capacity, used == 0 ? size : 2 * (used + size));
            auto larger = std::make_unique_for_overwrite<uint8_t[]>(capacity);
            std::copy_n(memory.get() + first, used, larger.get());
            memory = std::move(larger);
        }
        first = 0;
        last = used;
    }

    std::unique_ptr<uint8_t[]> memory;
    size_t capacity = 0;
    size_t first = 0;
    size_t last = 0;
};

#endif
