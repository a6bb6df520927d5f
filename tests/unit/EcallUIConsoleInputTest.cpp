// What the console takes from a line, and how it reads one.
#include "EcallUIConsoleInput.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <optional>
#include <thread>

#include "Faults.h"
#include "ServiceTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// What a parser made of a line.
template <typename T>
struct Parsed {
    std::optional<T> value;  ///< none: it failed
    T written{};             ///< what it left in its output
    std::size_t cursor = 0;
    std::string said;
};

template <typename T, typename Parse>
Parsed<T> ParseWith(Parse parse, std::string_view line, std::size_t cursor) {
    Parsed<T> parsed;
    ConsoleInput input{line, cursor};
    bool isGood = false;
    parsed.said = LogOf([&] { isGood = parse(input, parsed.written); }).console;
    parsed.value = isGood ? std::optional(parsed.written) : std::nullopt;
    parsed.cursor = input.cursor;
    return parsed;
}

Parsed<int32_t> ParseInt(std::string_view line, std::size_t cursor = 0) {
    return ParseWith<int32_t>(getIntParam, line, cursor);
}

Parsed<double> ParseDouble(std::string_view line, std::size_t cursor = 0) {
    return ParseWith<double>(getDoubleParam, line, cursor);
}

Parsed<std::string> ParseString(std::string_view line, std::size_t maximumLength, std::size_t cursor = 0) {
    const auto parse = [maximumLength](ConsoleInput& input, std::string& out) {
        const char* text = nullptr;
        const bool isGood = getStringParam(input, maximumLength, text);
        out = text == nullptr ? "" : text;
        return isGood;
    };
    return ParseWith<std::string>(parse, line, cursor);
}

struct IntCase {
    std::string line;
    int32_t value;
    std::size_t cursor;  ///< afterwards
};

}  // namespace

// Integers.

TEST(EcallUIConsoleInput, AnIntegerEndsAtABlankOrALineEndAndTheCursorStepsOverIt) {
    const IntCase cases[] = {
        {"5", 5, 2},
        {"5\n", 5, 2},
        {"5\r\n", 5, 2},
        {"5 6", 5, 2},
        {"0", 0, 2},
        {"007\n", 7, 4},
        {"2147483647", 2147483647, 11},
        {"-5", -5, 3},
        {"5-", -5, 3},
        {"--5", -5, 4},
        {"5-5 ", -55, 4},
        {"-0", 0, 3},
        {"-2147483648", INT32_MIN, 12},
    };
    for (const IntCase& expected : cases) {
        const Parsed<int32_t> parsed = ParseInt(expected.line);
        EXPECT_EQ(expected.value, parsed.value) << expected.line;
        EXPECT_EQ(expected.cursor, parsed.cursor) << expected.line;
        EXPECT_EQ("", parsed.said) << expected.line;
    }
}

TEST(EcallUIConsoleInput, AnIntegerBeyond32BitsWraps) {
    EXPECT_EQ(INT32_MIN, ParseInt("2147483648").value);
    EXPECT_EQ(-1, ParseInt("4294967295").value);
    EXPECT_EQ(0, ParseInt("4294967296").value);
    EXPECT_EQ(1, ParseInt("-4294967295").value);
    EXPECT_EQ(INT32_MAX, ParseInt("-2147483649").value);
    EXPECT_EQ(static_cast<int32_t>(12345678901234567890ULL), ParseInt("12345678901234567890").value);
    EXPECT_TRUE(ParseInt(std::string(10000, '9')).value);
}

TEST(EcallUIConsoleInput, ABadIntegerIsSaidWithWhatWasReadSoFar) {
    const IntCase cases[] = {
        {"", 0, 0},    {" 5", 0, 0}, {"\n", 0, 0},        {"\r", 0, 0},    {"-", 0, 1},   {"--", 0, 2},
        {"+5", 0, 0},  {"x", 0, 0},  {"5x", 5, 1},        {"12.5", 12, 2}, {"-7x", 7, 2}, {"1\t2", 1, 1},
        {"\t1", 0, 0}, {"5,", 5, 1}, {"1\xC3\xA9", 1, 1}, {"- 5", 0, 1},
    };
    for (const IntCase& expected : cases) {
        const Parsed<int32_t> parsed = ParseInt(expected.line);
        EXPECT_EQ(std::nullopt, parsed.value) << expected.line;
        EXPECT_EQ(expected.value, parsed.written) << expected.line;
        EXPECT_EQ(expected.cursor, parsed.cursor) << expected.line;
        EXPECT_EQ("getIntParam : *piVal = " + std::to_string(expected.value) + " ==> bad parameter\n", parsed.said)
            << expected.line;
    }
}

TEST(EcallUIConsoleInput, ArgumentsFollowEachOtherAtSingleBlanks) {
    ConsoleInput input{"3 -4 5\n"};
    int32_t first = 0;
    int32_t second = 0;
    int32_t third = 0;

    EXPECT_TRUE(getIntParam(input, first) && getIntParam(input, second) && getIntParam(input, third));

    EXPECT_EQ(3, first);
    EXPECT_EQ(-4, second);
    EXPECT_EQ(5, third);
    EXPECT_EQ(std::nullopt, ParseInt(input.line, input.cursor).value);
}

TEST(EcallUIConsoleInput, TwoBlanksAreAnEmptyArgument) {
    EXPECT_EQ(2U, ParseInt("3  1").cursor);
    EXPECT_EQ(std::nullopt, ParseInt("3  1", 2).value);
}

TEST(EcallUIConsoleInput, NothingIsLeftBehindTheEndOfALine) {
    const std::string full(127, '1');
    const std::size_t behind = ParseInt(full).cursor;

    EXPECT_EQ(128U, behind);
    EXPECT_EQ(std::nullopt, ParseInt(full, behind).value);
    EXPECT_EQ(std::nullopt, ParseDouble(full, behind).value);
    EXPECT_EQ(std::nullopt, ParseString(full, 5, behind).value);
}

// Decimals.

TEST(EcallUIConsoleInput, ADecimalHasASignDigitsAndPointOrComma) {
    const struct {
        const char* line;
        double value;
        std::size_t cursor;
    } cases[] = {
        {"48.8566 2.35", 48.8566, 8},
        {"48,8566\n", 48.8566, 8},
        {"-122.5", -122.5, 7},
        {"7", 7, 2},
        {"7.", 7, 3},
        {".5", 0.5, 3},
        {",5", 0.5, 3},
        {"-,5\r", -0.5, 4},
        {"1.2.3", 1.23, 6},
        {"1.,2", 1.2, 5},
        {"..5", 0.5, 4},
        {"0", 0, 2},
        {"000.2500", 0.25, 9},
        {"123456789012", 123456789012.0, 13},
    };
    for (const auto& expected : cases) {
        const Parsed<double> parsed = ParseDouble(expected.line);
        ASSERT_TRUE(parsed.value) << expected.line;
        EXPECT_DOUBLE_EQ(expected.value, *parsed.value) << expected.line;
        EXPECT_EQ(expected.cursor, parsed.cursor) << expected.line;
        EXPECT_EQ("", parsed.said) << expected.line;
    }
    EXPECT_TRUE(std::signbit(ParseDouble("-0").value.value()));
}

TEST(EcallUIConsoleInput, ABadDecimalIsSaidAndWritesNothing) {
    for (const char* line :
         {"", " 5", "\n", "-", ".", ",", "-.", "..", "--5", "5-", "+5", "x", "5x", "1e5", "1\t", "nan"}) {
        const Parsed<double> parsed = ParseDouble(line);
        EXPECT_EQ(std::nullopt, parsed.value) << line;
        EXPECT_EQ(0, parsed.written) << line;
        EXPECT_EQ("getDoubleParam : bad parameter\n", parsed.said) << line;
    }
}

// Texts.

TEST(EcallUIConsoleInput, ATextIsTakenByCountWithoutItsQuotesBlanksAndLineEnds) {
    const struct {
        std::string line;
        std::size_t maximumLength;
        std::string value;
        std::size_t cursor;
    } cases[] = {
        {"ABCDE 3", 5, "ABCDE", 6},  // exactly
        {"ABCDE", 5, "ABCDE", 6},    // at the line's end
        {"ABCDE\n", 5, "ABCDE", 6}, {"ABCDE\r\n", 5, "ABCDE", 6},
        {"ABC", 5, "ABC", 4},                                     // fewer are left
        {"ABC\n", 5, "ABC", 5},     {"AB 3 0\n", 17, "AB30", 8},  // a short one eats what follows
        {"\"AB\" 3", 4, "AB", 5},                                 // quotes count, and are dropped
        {"\"A B\"", 255, "AB", 6},  {"a \"\r\n", 255, "a", 6},
        {"\n", 255, "", 2},  // something is left, though nothing of it is kept
        {"\"\"", 255, "", 3},       {"A\tB,;", 255, "A\tB,;", 6},
    };
    for (const auto& expected : cases) {
        const Parsed<std::string> parsed = ParseString(expected.line, expected.maximumLength);
        EXPECT_EQ(expected.value, parsed.value) << expected.line;
        EXPECT_EQ(expected.cursor, parsed.cursor) << expected.line;
        EXPECT_EQ("", parsed.said) << expected.line;
    }
}

TEST(EcallUIConsoleInput, ATextThatGoesOnIsBadAndTheCursorStepsOverWhatFollows) {
    const Parsed<std::string> parsed = ParseString("ABCDEF 3", 5);

    EXPECT_EQ(std::nullopt, parsed.value);
    EXPECT_EQ("getStringParam : bad parameter\n", parsed.said);
    EXPECT_EQ(6U, parsed.cursor);
}

TEST(EcallUIConsoleInput, AnEmptyRemainderFailsWithoutAMessage) {
    for (const std::size_t cursor : {std::size_t{3}, std::size_t{4}}) {
        const Parsed<std::string> parsed = ParseString("ABC", 5, cursor);

        EXPECT_EQ(std::nullopt, parsed.value);
        EXPECT_EQ("", parsed.said);
        EXPECT_EQ(cursor, parsed.cursor);
    }
}

TEST(EcallUIConsoleInput, ATextNeverExceedsItsBuffer) {
    EXPECT_EQ(std::string(255, 'a'), ParseString(std::string(255, 'a'), 1000).value);
    EXPECT_EQ(std::string(255, 'a'), ParseString(std::string(255, 'a') + " b", 10000).value);
    EXPECT_EQ(std::nullopt, ParseString(std::string(256, 'a'), 10000).value);
}

// Lines.

namespace {

/// Standard input that holds this, and then ends.
class Input {
  public:
    explicit Input(const std::string& content) : before(dup(STDIN_FILENO)) {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        writer = std::thread([content, end = ends[1]] {
            EXPECT_EQ(static_cast<ssize_t>(content.size()), write(end, content.data(), content.size()));
            close(end);
        });
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
    }
    ~Input() {
        writer.join();
        dup2(before, STDIN_FILENO);
        close(before);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

  private:
    int before;
    std::thread writer;
};

/// The lines of standard input until it ends.
std::vector<std::string> ReadLines() {
    std::vector<std::string> lines;
    for (std::array<char, kConsoleLineSize> line{}; ReadConsoleLine(line);) {
        lines.emplace_back(line.data());
    }
    return lines;
}

}  // namespace

TEST(EcallUIConsoleInput, LinesComeWithTheirLineFeedAndTheLastMayLackIt) {
    const Input input("3 1\n\n.\r\nend");

    EXPECT_THAT(ReadLines(), ElementsAre("3 1\n", "\n", ".\r\n", "end"));
}

TEST(EcallUIConsoleInput, NothingIsNoLine) {
    const Input input("");

    EXPECT_THAT(ReadLines(), IsEmpty());
}

TEST(EcallUIConsoleInput, WhatALineHasBeyond127CharactersIsTheNextLine) {
    const auto full = [](std::size_t count, char character) { return std::string(count, character); };
    const Input input(full(126, 'a') + "\n" + full(127, 'b') + "\n" + full(128, 'c') + "\n" + full(127, 'd'));

    EXPECT_THAT(ReadLines(),
                ElementsAre(full(126, 'a') + "\n", full(127, 'b'), "\n", full(127, 'c'), "c\n", full(127, 'd')));
}

TEST(EcallUIConsoleInput, ALineOfTenThousandCharactersIsManyLines) {
    const Input input(std::string(10000, 'x') + "\nnext\n");

    const std::vector<std::string> lines = ReadLines();

    ASSERT_EQ(80U, lines.size());
    EXPECT_EQ(std::string(127, 'x'), lines[77]);
    EXPECT_EQ(std::string(94, 'x') + "\n", lines[78]);
    EXPECT_EQ("next\n", lines[79]);
}

TEST(EcallUIConsoleInput, ALineIsUsedUpToItsFirstNullCharacter) {
    const Input input(std::string("a\0b\nc\n", 6));

    EXPECT_THAT(ReadLines(), ElementsAre("a", "c\n"));
}

TEST(EcallUIConsoleInput, EachLineBeginsInAClearedBuffer) {
    const Input input("long line\nx");
    std::array<char, kConsoleLineSize> line{};

    EXPECT_TRUE(ReadConsoleLine(line));
    EXPECT_TRUE(ReadConsoleLine(line));

    std::array<char, kConsoleLineSize> expected{};
    expected[0] = 'x';
    EXPECT_EQ(expected, line);
}

TEST(EcallUIConsoleInput, AnInterruptedReadLosesNothing) {
    const Input input("3 1\n2\n");
    const CallFault fault("read", EINTR, {.path = "pipe:", .passing = 2, .failing = 3});

    EXPECT_THAT(ReadLines(), ElementsAre("3 1\n", "2\n"));
    EXPECT_EQ(10, fault.Calls());
}

TEST(EcallUIConsoleInput, AReadThatWouldNotWaitIsRepeatedWhenThereIsInput) {
    const Input input("3 1\n2\n");
    const CallFault fault("read", EAGAIN, {.path = "pipe:", .passing = 2, .failing = 3});

    EXPECT_THAT(ReadLines(), ElementsAre("3 1\n", "2\n"));
    EXPECT_EQ(10, fault.Calls());
}

TEST(EcallUIConsoleInput, AReadErrorEndsTheInput) {
    const Input input("3 1\n2\n");
    const CallFault fault("read", EIO, {.path = "pipe:", .passing = 2});

    EXPECT_THAT(ReadLines(), ElementsAre("3 "));
}

TEST(EcallUIConsoleInput, AClosedStandardInputHasNoLine) {
    const int before = dup(STDIN_FILENO);
    close(STDIN_FILENO);

    EXPECT_THAT(ReadLines(), IsEmpty());

    dup2(before, STDIN_FILENO);
    close(before);
}
