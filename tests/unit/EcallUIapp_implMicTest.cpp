// What the bytes of a result mean.
#include "EcallUIapp_implMic.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<int> BadBytes(const MicResult& result) {
    return {result.badBytes.begin(), result.badBytes.begin() + static_cast<std::ptrdiff_t>(result.badCount)};
}

/// Sound results, with the value computed as the service computes it: digit by digit, in single precision.
const struct SoundRow {
    std::string bytes;
    float value;
} kSound[] = {
    {"12.5\n", 12.5F},
    {"12,5\n", 12.5F},
    {"12\n", 12},
    {"0\n", 0},
    {".5\n", 0.5F},
    {",5\n", 0.5F},
    {"5.\n", 5},
    {".\n", 0},
    {"007\n", 7},
    // The last byte counts for the line end, whatever it is.
    {"125", 12},
    {"1", 0},
    {"\n", 0},
    {"x", 0},
    {"1x", 1},
    {"12.", 12},
    {"1-", 1},
    {std::string("4\0", 2), 4},
    // A second separator changes nothing: the fraction goes on.
    {"1.2.3\n", 1 + 2 / 10.0F + 3 / 100.0F},
    {"1,2.3\n", 1 + 2 / 10.0F + 3 / 100.0F},
    {"1..5\n", 1.5F},
    {"1.,5\n", 1.5F},
    // Single precision: nine digits are more than it holds.
    {"123456789\n", 123456792.0F},
    {"999999999\n", 1e9F},
    {"333106897\n", 333106880.0F},  // 333106912 with more precision on the way
    {"0.9984235\n", 0.998423517F},  // 0.998423457 with more precision on the way
    {"0.1\n", 0.1F},
    {"1.1\n", 1 + 1 / 10.0F},
    {"0.1234567\n",
     1 / 10.0F + 2 / 100.0F + 3 / 1000.0F + 4 / 10000.0F + 5 / 100000.0F + 6 / 1000000.0F + 7 / 10000000.0F},
};

TEST(MicResult, DigitsBeforeAndBehindTheSeparatorMakeTheValue) {
    for (const SoundRow& row : kSound) {
        const MicResult result = ReadMicResult(row.bytes);

        EXPECT_EQ(row.value, result.value) << row.bytes;
        EXPECT_FALSE(result.isBad) << row.bytes;
        EXPECT_EQ(0U, result.badCount) << row.bytes;
    }
}

const struct BadRow {
    std::string bytes;
    std::vector<int> bad;
} kBad[] = {
    {"", {}},
    {"1a3\n", {'a'}},
    {"-5\n", {'-'}},
    {"+5\n", {'+'}},
    {" 5\n", {' '}},
    {"5 \n", {' '}},
    {"5\r\n", {'\r'}},
    {"1e5\n", {'e'}},
    {"12.5\nx", {'\n'}},
    {"\n\n", {'\n'}},
    {std::string("\0\n", 2), {0}},
    {"\xc3\xa9\n", {0xC3, 0xA9}},
    {"\xff\n", {0xFF}},
    {"a1b.c2,d\n", {'a', 'b', 'c', 'd'}},
    {"abcdefghi\n", {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i'}},
};

TEST(MicResult, AnyOtherByteIsBadAndTheRestIsReadOn) {
    for (const BadRow& row : kBad) {
        const MicResult result = ReadMicResult(row.bytes);

        EXPECT_TRUE(result.isBad) << row.bytes;
        EXPECT_EQ(0, result.value) << row.bytes;
        EXPECT_EQ(row.bad, BadBytes(result)) << row.bytes;
    }
}

TEST(MicResult, EveryByteIsADigitASeparatorOrBad) {
    for (int byte = 0; byte < 256; ++byte) {
        const MicResult result = ReadMicResult(std::string{static_cast<char>(byte), '\n'});

        const bool isDigit = byte >= '0' && byte <= '9';
        const bool isSeparator = byte == '.' || byte == ',';
        EXPECT_EQ(!isDigit && !isSeparator, result.isBad) << byte;
        EXPECT_EQ(isDigit ? static_cast<float>(byte - '0') : 0, result.value) << byte;
    }
}

}  // namespace
