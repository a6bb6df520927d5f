/// One line of the debug console, and the arguments that a command takes from it.
///
/// An argument ends at a blank, a line feed, a carriage return or the end of the line, and the cursor steps over that
/// one character: two blanks in a row are an empty argument. A parser that fails says why on standard output.
#ifndef ECALL_UI_CONSOLE_INPUT_H
#define ECALL_UI_CONSOLE_INPUT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

constexpr std::size_t kConsoleLineSize = 128;  ///< characters of a line with terminator
constexpr std::size_t kConsoleTextSize = 256;  ///< of a text argument with terminator

struct ConsoleInput {
    std::string_view line;   ///< borrowed; may end in its line feed
    std::size_t cursor = 0;  ///< where the next argument begins; at most one beyond the line's end
};

/// Reads standard input up to and including a line feed, at most kConsoleLineSize - 1 characters; what a longer line
/// has beyond them is the next line. A null character ends what is used of the line. False at the end of the input or
/// when it cannot be read: nothing will come any more. Blocks until a line comes.
bool ReadConsoleLine(std::array<char, kConsoleLineSize>& line);

/// A decimal number with a minus anywhere in it; a number beyond 32 bits wraps. value is written in any case: on
/// failure with what was read so far, without its sign.
bool getIntParam(ConsoleInput& input, int32_t& value);
/// A decimal number with an optional leading minus; both point and comma separate. value is written on success.
bool getDoubleParam(ConsoleInput& input, double& value);
/// The next maximumLength characters, or those that are left if fewer, without the quotes, blanks and line ends among
/// them. On success text is valid until the next call; false without a message when nothing is left. One thread only.
bool getStringParam(ConsoleInput& input, std::size_t maximumLength, const char*& text);

#endif
