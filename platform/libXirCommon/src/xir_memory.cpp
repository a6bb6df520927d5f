// Each block is preceded by its head. A main block's head carries the count and the list of attached blocks; the head
// of an attached block carries only the link to the next one, so releasing the main block walks that list and frees it
// all.
#include "xir_memory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

struct alignas(std::max_align_t) AttachedHead {
    AttachedHead* next = nullptr;
};

struct alignas(std::max_align_t) MainHead {
    std::atomic<int32_t> count{1};
    AttachedHead* attached = nullptr;
};

/// A head with size zero bytes behind it; null without memory.
template <typename Head>
Head* MakeBlock(size_t size) {
    if (size > std::numeric_limits<size_t>::max() - sizeof(Head)) {
        return nullptr;
    }
    void* memory = std::calloc(1, sizeof(Head) + size);
    return memory == nullptr ? nullptr : new (memory) Head;
}

MainHead* HeadOf(void* block) {
    return static_cast<MainHead*>(block) - 1;
}

void FreeWithAttached(MainHead* head) {
    AttachedHead* attached = head->attached;
    while (attached != nullptr) {
        AttachedHead* next = attached->next;
        std::free(attached);
        attached = next;
    }
    std::free(head);
}

}  // namespace

int32_t xir_allocate(void** pointer, size_t size) {
    if (pointer == nullptr) {
        return -1;
    }
    auto* head = MakeBlock<MainHead>(size);
    *pointer = head == nullptr ? nullptr : head + 1;
    return head == nullptr ? -1 : 0;
}

void* xir_allocate_and_attach(void* block, size_t size) {
    if (block == nullptr) {
        return nullptr;
    }
    auto* attached = MakeBlock<AttachedHead>(size);
    if (attached == nullptr) {
        return nullptr;
    }
    MainHead* head = HeadOf(block);
    attached->next = head->attached;
    head->attached = attached;
    return attached + 1;
}

int32_t xir_retain(void* block) {
    return block == nullptr ? 0 : HeadOf(block)->count.fetch_add(1, std::memory_order_relaxed) + 1;
}

int32_t xir_release(void* block) {
    if (block == nullptr) {
        return 0;
    }
    MainHead* head = HeadOf(block);
    const int32_t left = head->count.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) {
        FreeWithAttached(head);
    }
    return left;
}
