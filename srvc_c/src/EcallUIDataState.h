/// The state file. The operations on the state itself are declared in EcallUIData.h.
///
/// | offset | size | content                                    |
/// |      0 |    1 | EcallAntennaSelected                       |
/// |      1 |    1 | EcallAntennaDetectionActivated             |
/// |      2 |    1 | CanTriggerAutoEcall                        |
/// |      3 |    2 | CRC-16 of bytes 0 to 2, low byte first     |
///
/// No magic, no version, no length; what follows the fifth byte is ignored.
#ifndef ECALL_UI_DATA_STATE_H
#define ECALL_UI_DATA_STATE_H

#include <array>
#include <cstddef>
#include <span>

#include "EcallUIData.h"

constexpr std::size_t kStateFileSize = 5;

enum class StateFileAnswer {
    Sound,
    TooShort,
    Corrupted,
};

/// Reads the file's bytes; state is written only on Sound. Logs the CRC's own lines.
StateFileAnswer ReadStateFileBytes(std::span<const uint8_t> bytes, EcallUIState& state);
std::array<uint8_t, kStateFileSize> MakeStateFileBytes(const EcallUIState& state);

#endif
