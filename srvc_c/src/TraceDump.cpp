// Bytes as text, and text as bytes. The texts are malloc'ed, since their users free them as C does.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Trace.h"

namespace {

/// Answers null, and says so, without memory.
template <typename T>
T* Allocate(std::size_t count) {
    T* const memory = static_cast<T*>(malloc(count));
    if (memory == nullptr) {
        EcallUITraceError("eCallMemalloc ERROR !");
    }
    return memory;
}

/// The value of a hexadecimal digit; -1 for any other character.
int DigitValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

}  // namespace

std::size_t HexDump(const uint8_t* bytes, std::size_t length, char** text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<char, 48> prefix;
    const auto prefixLength =
        static_cast<std::size_t>(snprintf(prefix.data(), prefix.size(), "Bin (length = %3zu) : 0X", length));

    *text = Allocate<char>(prefixLength + 3 * length + 1);
    if (*text == nullptr) {
        return 0;
    }
    char* end = *text + std::string_view(prefix.data()).copy(*text, prefixLength);
    for (std::size_t i = 0; i < length; ++i) {
        *end++ = kDigits[bytes[i] >> 4];
        *end++ = kDigits[bytes[i] & 0xF];
    }
    *end = '\0';
    return prefixLength + 2 * length;
}

std::size_t HexTextToBytes(const char* text, uint8_t** bytes) {
    const std::size_t count = strlen(text) / 2;
    if (bytes == nullptr) {
        EcallUITraceError("ERROR : ppData == NULL");
        return count;
    }
    *bytes = count == 0 ? nullptr : Allocate<uint8_t>(count);
    if (*bytes == nullptr) {
        return count;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const int high = DigitValue(text[2 * i]);
        const int low = DigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            EcallUITraceError("Not a BCD string");
            free(*bytes);  // *bytes is left as it is: nothing to use or free goes with an answer of 0
            return 0;
        }
        (*bytes)[i] = static_cast<uint8_t>((high << 4) | low);
    }
    return count;
}
