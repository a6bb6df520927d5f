// Read by single characters from the descriptor: an interrupted wait loses nothing of the line, and whatever follows
// the line stays with the kernel.
#include "EcallUIConsoleInput.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "EcallUIConsoleOutput.h"

namespace {

constexpr char kEndOfLine = '\0';  // what the cursor is at when nothing is left

char Current(const ConsoleInput& input) {
    return input.cursor < input.line.size() ? input.line[input.cursor] : kEndOfLine;
}

/// Steps over the current character; the end of the line stays where it is.
void Step(ConsoleInput& input) {
    input.cursor = std::min(input.cursor + 1, input.line.size() + 1);
}

bool EndsArgument(char character) {
    return character == ' ' || character == kEndOfLine || character == '\n' || character == '\r';
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

/// True when a read that failed is worth another one. Waits for input where another process, which shares the terminal,
/// has made reads not wait.
bool CanReadAgain() {
    if (errno == EAGAIN) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        return poll(&input, 1, -1) > 0 || errno == EINTR;
    }
    return errno == EINTR;
}

/// Answers false when nothing more will come.
bool ReadCharacter(char& character) {
    ssize_t count = 0;
    do {
        count = read(STDIN_FILENO, &character, 1);
    } while (count < 0 && CanReadAgain());
    return count == 1;
}

}  // namespace

bool ReadConsoleLine(std::array<char, kConsoleLineSize>& line) {
    line.fill('\0');
    for (std::size_t length = 0; length < line.size() - 1; ++length) {
        if (!ReadCharacter(line[length])) {
            return length > 0;  // the last line may lack its line feed
        }
        if (line[length] == '\n') {
            break;
        }
    }
    return true;
}

bool getIntParam(ConsoleInput& input, int32_t& value) {
    uint32_t magnitude = 0;  // unsigned, because it may wrap
    bool isNegative = false;
    bool hasDigit = false;
    for (; !EndsArgument(Current(input)); Step(input)) {
        const char character = Current(input);
        if (IsDigit(character)) {
            magnitude = magnitude * 10 + static_cast<uint32_t>(character - '0');
            hasDigit = true;
        } else if (character == '-') {
            isNegative = true;
        } else {
            hasDigit = false;
            break;
        }
    }
    if (!hasDigit) {
        value = static_cast<int32_t>(magnitude);
        PrintLine("getIntParam : *piVal = %d ==> bad parameter\n", value);
        return false;
    }
    Step(input);
    value = static_cast<int32_t>(isNegative ? 0 - magnitude : magnitude);
    return true;
}

bool getDoubleParam(ConsoleInput& input, double& value) {
    const double sign = Current(input) == '-' ? -1.0 : 1.0;
    if (sign < 0) {
        Step(input);
    }
    double digits = 0;
    double scale = 1;
    bool isFraction = false;
    bool hasDigit = false;
    for (; !EndsArgument(Current(input)); Step(input)) {
        const char character = Current(input);
        if (IsDigit(character)) {
            digits = digits * 10 + (character - '0');
            scale = isFraction ? scale / 10 : scale;
            hasDigit = true;
        } else if (character == '.' || character == ',') {
            isFraction = true;
        } else {
            hasDigit = false;
            break;
        }
    }
    if (!hasDigit) {
        PrintLine("getDoubleParam : bad parameter");
        return false;
    }
    Step(input);
    value = digits * scale * sign;
    return true;
}

bool getStringParam(ConsoleInput& input, std::size_t maximumLength, const char*& text) {
    static std::array<char, kConsoleTextSize> kept;
    kept.fill('\0');
    const std::string_view left = input.line.substr(std::min(input.cursor, input.line.size()));
    if (left.empty()) {
        return false;
    }
    const std::string_view taken = left.substr(0, std::min(maximumLength, kept.size() - 1));
    std::remove_copy_if(taken.begin(), taken.end(), kept.begin(),
                        [](char character) { return character == '"' || EndsArgument(character); });
    input.cursor += taken.size();
    const bool isWhole = EndsArgument(Current(input));
    Step(input);
    if (!isWhole) {
        PrintLine("getStringParam : bad parameter");
        return false;
    }
    text = kept.data();
    return true;
}
