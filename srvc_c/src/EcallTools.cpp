#include "EcallTools.h"

#include <array>
#include <cstddef>

#include "Trace.h"

namespace {

/// The table of a checksum that takes a byte at a time, most significant bit first.
template <typename Word>
constexpr std::array<Word, 256> MakeTable(unsigned polynomial) {
    constexpr unsigned topBit = 1U << (8 * sizeof(Word) - 1);
    std::array<Word, 256> table{};
    for (std::size_t index = 0; index < table.size(); ++index) {
        unsigned value = static_cast<unsigned>(index) << (8 * (sizeof(Word) - 1));
        for (int bit = 0; bit < 8; ++bit) {
            value = (value << 1) ^ ((value & topBit) != 0 ? polynomial : 0);
        }
        table[index] = static_cast<Word>(value);
    }
    return table;
}

constexpr std::array<uint16_t, 256> kCrc16Table = MakeTable<uint16_t>(0x1021);
constexpr std::array<uint8_t, 256> kCrc8Table = MakeTable<uint8_t>(0x31);

}  // namespace

uint16_t Crc16(const uint8_t* data, uint16_t length) {
    EcallUITrace("Crc16 - Enter");
    uint16_t crc = 0xFFFF;
    for (uint16_t i = 0; i < length; ++i) {
        crc = static_cast<uint16_t>(kCrc16Table[(crc >> 8) ^ data[i]] ^ (crc << 8));
    }
    EcallUITrace("Crc16 - Exit");
    return crc;
}

uint8_t Crc8(const uint8_t* data, uint16_t length) {
    EcallUITrace("Crc8 - Enter");
    uint8_t crc = 0xFF;
    for (uint16_t i = 0; i < length; ++i) {
        crc = kCrc8Table[data[i] ^ crc];
    }
    EcallUITrace("Crc8 - Exit");
    return crc;
}
