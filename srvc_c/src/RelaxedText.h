/// A short text that threads share without a lock: a reader sees whole characters, though perhaps of two texts.
#ifndef RELAXED_TEXT_H
#define RELAXED_TEXT_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "Relaxed.h"

template <std::size_t Capacity>
class RelaxedText {
  public:
    /// A copy of the text, always terminated.
    struct Copy {
        std::array<char, Capacity> text{};
        const char* c_str() const { return text.data(); }
    };

    RelaxedText() = default;
    explicit RelaxedText(std::string_view initial) { set(initial); }

    /// Keeps at most Capacity - 1 characters.
    void set(std::string_view next) {
        const std::size_t length = std::min(next.size(), Capacity - 1);
        for (std::size_t i = 0; i < Capacity; ++i) {
            characters[i] = i < length ? next[i] : '\0';
        }
    }
    Copy get() const {
        Copy copy;
        std::copy(characters.begin(), characters.end() - 1, copy.text.begin());
        return copy;
    }

  private:
    std::array<Relaxed<char>, Capacity> characters{};
};

#endif
