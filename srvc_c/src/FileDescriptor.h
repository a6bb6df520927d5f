/// One open file, owned: closed when its owner ends.
#ifndef FILE_DESCRIPTOR_H
#define FILE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int opened) : fd(opened) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { Close(); }

    /// Closing nothing does nothing, twice too. Answers 0, or -1 with errno: then something was not stored.
    int Close() { return fd < 0 ? 0 : close(std::exchange(fd, -1)); }
    bool IsOpen() const { return fd >= 0; }
    /// -1: none. Borrowed.
    int get() const { return fd; }

  private:
    int fd = -1;
};

#endif
