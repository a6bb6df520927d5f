/// Checksums.
#ifndef ECALL_TOOLS_H
#define ECALL_TOOLS_H

#include <cstdint>

/// CRC-16/IBM-3740: polynomial 0x1021, initial value 0xFFFF, nothing reflected. Of no bytes: 0xFFFF. Logs each call.
uint16_t Crc16(const uint8_t* data, uint16_t length);
/// CRC-8/NRSC-5: polynomial 0x31, initial value 0xFF, nothing reflected. Of no bytes: 0xFF. Logs each call.
uint8_t Crc8(const uint8_t* data, uint16_t length);

#endif
