/// One open file descriptor with one owner.
#ifndef DESCRIPTOR_H
#define DESCRIPTOR_H

#include <unistd.h>

#include <utility>

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() { Close(); }

    int Get() const { return number; }
    bool IsOpen() const { return number >= 0; }
    int Release() { return std::exchange(number, -1); }
    void Close() {
        if (number >= 0) {
            close(std::exchange(number, -1));
        }
    }

  private:
    int number = -1;
};

#endif
