/// The two doors to attribute files: each call opens its file, does one read or one write, and closes it again.
#ifndef ECALL_UI_GPIO_FILE_H
#define ECALL_UI_GPIO_FILE_H

#include <array>
#include <cstddef>
#include <string_view>

struct AttributeWrite {
    bool opened = false;
    bool whole = false;  ///< the file took the whole text
    int count = -1;      ///< bytes that the file took; -1 when it took none and said why
    int error = 0;       ///< errno of the open or write that failed, 0 otherwise (also when it took too few bytes)
};

constexpr std::size_t kAttributeReadMax = 16;

struct AttributeRead {
    bool opened = false;
    int count = -1;                                  ///< bytes read; -1 when the read failed
    int error = 0;                                   ///< errno of the open or read that failed
    std::array<char, kAttributeReadMax + 1> text{};  ///< always terminated
};

/// Writes the text, without terminator, in one write call. flags: O_RDWR or O_WRONLY, with O_SYNC where the driver
/// needs it. May block as long as the driver does; any thread.
AttributeWrite WriteAttribute(const char* path, int flags, std::string_view text);
/// Reads at most limit bytes (limit <= kAttributeReadMax) in one read call. May block as long as the driver does.
AttributeRead ReadAttribute(const char* path, std::size_t limit);

#endif
