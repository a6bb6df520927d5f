#include "File.h"

#include <fcntl.h>
#include <unistd.h>

FileDescriptor OpenFile(const char* path, int flags, mode_t mode) {
    return FileDescriptor(open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode));
}

std::size_t WriteToFile(const FileDescriptor& file, const void* bytes, std::size_t length) {
    const char* text = static_cast<const char*>(bytes);
    std::size_t written = 0;
    for (int attempt = 0; attempt < kWriteAttempts && written < length; ++attempt) {
        const ssize_t count = write(file.get(), text + written, length - written);
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return written;
}
