#include "Thread.h"

#include <pthread.h>

#include <cstdio>

namespace {

constexpr std::size_t kKernelNameSize = 16;

void* Run(void* run) {
    reinterpret_cast<void (*)()>(run)();
    return nullptr;
}

}  // namespace

int StartThread(const char* name, void (*run)()) {
    pthread_t thread{};
    if (const int error = pthread_create(&thread, nullptr, Run, reinterpret_cast<void*>(run)); error != 0) {
        return error;
    }
    char shortName[kKernelNameSize];
    snprintf(shortName, sizeof shortName, "%s", name);
    pthread_setname_np(thread, shortName);
    pthread_detach(thread);
    return 0;
}
