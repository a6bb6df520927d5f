/// The chips on I2C bus 2: the ADS1015 analog converter and the audio amplifier.
///
/// Each operation opens the bus, makes its transfers and closes it; it blocks for their time. Any thread.
#ifndef ECALL_UI_GPIO_I2C_H
#define ECALL_UI_GPIO_I2C_H

#include <array>
#include <cstdint>
#include <span>

/// Converts one input (channel 0 to 3, against ground). *value is written on success only: 256 times the second byte of
/// the conversion register. Answers 0 or 1.
uint32_t ReadAds1015AdcInput(uint8_t channel, int32_t* value);
/// Wakes (1) or silences (0) the amplifier: its two lines, then three registers. All writes are tried; answers 1 when
/// one failed, or when there is no bus, and then nothing was driven.
uint32_t SetAudioAmplifier(uint8_t on);

/// The converter's configuration for one conversion of a channel, most significant byte first.
std::array<uint8_t, 2> Ads1015Configuration(uint8_t channel);
/// One message: the register's number, then its data. The address is passed on as it is. Answers 0 or 1.
uint32_t I2cWriteRegister(int bus, uint16_t address, uint8_t reg, std::span<const uint8_t> data);
/// One transfer of two messages to the same address: the register's number, then as many bytes as data has.
uint32_t I2cReadRegister(int bus, uint16_t address, uint8_t reg, std::span<uint8_t> data);

#endif
