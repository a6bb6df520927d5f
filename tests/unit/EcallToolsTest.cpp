#include "EcallTools.h"

#include <gtest/gtest.h>

#include <array>
#include <string_view>

#include "ServiceTest.h"

namespace {

const uint8_t* Bytes(std::string_view text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

constexpr std::string_view kCheckText = "123456789";

}  // namespace

TEST(EcallTools, Crc16HasThePublishedCheckValue) {
    EXPECT_EQ(0x29B1, Crc16(Bytes(kCheckText), 9));
}

TEST(EcallTools, Crc8HasThePublishedCheckValue) {
    EXPECT_EQ(0xF7, Crc8(Bytes(kCheckText), 9));
}

TEST(EcallTools, ACrcOfNoBytesIsItsInitialValue) {
    EXPECT_EQ(0xFFFF, Crc16(nullptr, 0));
    EXPECT_EQ(0xFF, Crc8(nullptr, 0));
}

TEST(EcallTools, TheInitialStateHasTheKnownCrc) {
    constexpr std::array<uint8_t, 3> state{0, 0, 1};

    EXPECT_EQ(0xDCBD, Crc16(state.data(), 3));
}

TEST(EcallTools, Crc16TakesTheGreatestLength) {
    const std::string zeros(65535, '\0');

    // Without reflection and final XOR, a CRC followed by itself leaves nothing.
    const uint16_t crc = Crc16(Bytes(zeros), 65533);
    std::string closed(65535, '\0');
    closed[65533] = static_cast<char>(crc >> 8);
    closed[65534] = static_cast<char>(crc & 0xFF);

    EXPECT_EQ(0, Crc16(Bytes(closed), 65535));
}

TEST(EcallTools, EachCrcLogsItsEnterAndItsExit) {
    const Logged logged = LogOf([] {
        Crc16(Bytes(kCheckText), 9);
        Crc8(Bytes(kCheckText), 9);
    });

    EXPECT_EQ("Crc16 - Enter\n\rCrc16 - Exit\n\rCrc8 - Enter\n\rCrc8 - Exit\n\r", logged.console);
}
