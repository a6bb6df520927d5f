#include "Scarcity.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <new>

namespace {

thread_local bool memoryIsOut = false;
std::atomic<int> blocksLeft{INT_MAX};

bool TakeBlock() {
    return blocksLeft.fetch_sub(1) > 0;
}

}  // namespace

NoMemory::NoMemory() {
    memoryIsOut = true;
}

NoMemory::~NoMemory() {
    memoryIsOut = false;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    if (memoryIsOut) {
        return nullptr;
    }
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

NoRecordMemory::NoRecordMemory(int blocks) {
    blocksLeft = blocks;
}

NoRecordMemory::~NoRecordMemory() {
    blocksLeft = INT_MAX;
}

// Put in front of the allocator by the linker's --wrap.
extern "C" {
int32_t __real_xir_allocate(void** pointer, size_t size);
void* __real_xir_allocate_and_attach(void* block, size_t size);

int32_t __wrap_xir_allocate(void** pointer, size_t size) {
    if (TakeBlock()) {
        return __real_xir_allocate(pointer, size);
    }
    *pointer = nullptr;
    return -1;
}

void* __wrap_xir_allocate_and_attach(void* block, size_t size) {
    return TakeBlock() ? __real_xir_allocate_and_attach(block, size) : nullptr;
}
}

void ForbidNewThreads() {
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(steps), steps};
    EXPECT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    EXPECT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter));
}
