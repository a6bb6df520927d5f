#include "File.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>

FileDescriptor OpenFile(const char* path, int flags, mode_t mode) {
    return FileDescriptor(open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode));
}

std::size_t WriteToFile(const FileDescriptor& file, const char* bytes, std::size_t length) {
    return WritePiecesToFile(file, bytes, {&length, 1});
}

std::size_t WritePiecesToFile(const FileDescriptor& file, const char* bytes, std::span<const std::size_t> lengths) {
    const char* const end = std::accumulate(lengths.begin(), lengths.end(), bytes);
    const char* pieceEnd = bytes;
    std::size_t written = 0;
    for (const std::size_t length : lengths) {
        pieceEnd += length;
        for (int attempt = 0; attempt < kWriteAttempts && bytes < pieceEnd; ++attempt) {
            const ssize_t count = write(file.get(), bytes, static_cast<std::size_t>(end - bytes));
            const std::size_t taken = count > 0 ? static_cast<std::size_t>(count) : 0;
            bytes += taken;
            written += taken;
        }
        bytes = std::max(bytes, pieceEnd);
    }
    return written;
}
