/// Owner of a file descriptor.
#ifndef XIR_DESCRIPTOR_H
#define XIR_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

class XirDescriptor {
  public:
    XirDescriptor() = default;
    explicit XirDescriptor(int opened) : fd(opened) {}
    XirDescriptor(XirDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    XirDescriptor& operator=(XirDescriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~XirDescriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    explicit operator bool() const { return fd >= 0; }
    int Get() const { return fd; }

  private:
    int fd = -1;
};

#endif
