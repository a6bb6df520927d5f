// The addresses of the converter are sent in their 8-bit form, read bit included, and the write before a read carries
// the no-start flag: the bus driver of this board wants it so, though the usual form has 7 bits.
#include "EcallUIGpioI2c.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "EcallUIGpio.h"
#include "FileDescriptor.h"
#include "Trace.h"

namespace {

constexpr char kI2cBus[] = "/dev/i2c-2";

constexpr uint16_t kAds1015Write = 0x90;
constexpr uint16_t kAds1015Read = 0x91;
constexpr uint8_t kAds1015Conversion = 0;
constexpr uint8_t kAds1015Config = 1;
constexpr std::chrono::milliseconds kConversionTime{100};

constexpr uint16_t kAmplifier = 0x72;
struct AmplifierRegister {
    uint8_t number;
    uint8_t whenOn;
    uint8_t whenOff;
};
constexpr AmplifierRegister kAmplifierRegisters[] = {{1, 0x41, 0x40}, {8, 0xE1, 0xC0}, {14, 0x07, 0x09}};

constexpr std::size_t kMaxRegisterSize = 2;

FileDescriptor OpenBus() {
    return FileDescriptor(open(kI2cBus, O_RDWR | O_CLOEXEC));
}

/// The one place that makes a transfer.
uint32_t Transfer(int bus, std::span<i2c_msg> messages) {
    i2c_rdwr_ioctl_data transfer{messages.data(), static_cast<uint32_t>(messages.size())};
    if (ioctl(bus, I2C_RDWR, &transfer) < 0) {
        EcallUITraceError("Unable to send data");
        return 1;
    }
    return 0;
}

bool ConvertInput(int bus, std::span<const uint8_t> configuration, std::span<uint8_t> conversion) {
    constexpr uint8_t kStart[] = {0x00};
    if (I2cWriteRegister(bus, kAds1015Write, kAds1015Config, configuration) != 0 ||
        I2cWriteRegister(bus, kAds1015Write, kAds1015Config, kStart) != 0) {
        return false;
    }
    std::this_thread::sleep_for(kConversionTime);
    return I2cReadRegister(bus, kAds1015Read, kAds1015Conversion, conversion) == 0;
}

}  // namespace

uint32_t I2cWriteRegister(int bus, uint16_t address, uint8_t reg, std::span<const uint8_t> data) {
    if (data.data() == nullptr || data.size() > kMaxRegisterSize) {
        EcallUITraceError("Invalid parameters");
        return 1;
    }
    uint8_t bytes[1 + kMaxRegisterSize] = {reg};
    std::copy(data.begin(), data.end(), &bytes[1]);
    i2c_msg message{address, 0, static_cast<uint16_t>(1 + data.size()), bytes};
    return Transfer(bus, {&message, 1});
}

uint32_t I2cReadRegister(int bus, uint16_t address, uint8_t reg, std::span<uint8_t> data) {
    if (data.data() == nullptr) {
        EcallUITraceError("Invalid parameters");
        return 1;
    }
    i2c_msg messages[] = {{address, I2C_M_NOSTART, 1, &reg},
                          {address, I2C_M_RD, static_cast<uint16_t>(data.size()), data.data()}};
    return Transfer(bus, messages);
}

std::array<uint8_t, 2> Ads1015Configuration(uint8_t channel) {
    constexpr int kMuxAgainstGround = 4;
    constexpr int kGain = 2;  // full scale 2.048 V
    constexpr int kSingleShot = 1;
    constexpr uint8_t kRateAndNoComparator = 0x83;
    const int high = ((channel + kMuxAgainstGround) << 4) + (kGain << 1) + kSingleShot;
    return {static_cast<uint8_t>(high), kRateAndNoComparator};
}

uint32_t ReadAds1015AdcInput(uint8_t channel, int32_t* value) {
    EcallUITrace("ReadAds1015AdcInput - Enter");
    FileDescriptor bus = OpenBus();
    if (!bus.IsOpen()) {
        EcallUITraceError("Unable to open i2c control file ==> ReadAds1015AdcInput - Exit");
        return 1;
    }
    std::array<uint8_t, 2> data = Ads1015Configuration(channel);
    EcallUITrace("ReadAds1015AdcInput - data[0] = 0x%x, data[1] = 0x%x", data[0], data[1]);
    const auto configuration = data;
    const bool converted = ConvertInput(bus.get(), configuration, data);
    bus.Close();
    const int32_t reading = converted ? data[1] << 8 : 0;  // the first byte is not used
    if (converted) {
        *value = reading;
    } else {
        EcallUITraceError("ads1015WriteRegister to Config register");
    }
    const uint32_t result = converted ? 0 : 1;
    EcallUITrace("ReadAds1015AdcInput - exit (ret=%d), data[0]=0x%x data[1]=0x%x, *pVal = %d ", result, data[0],
                 data[1], reading);
    return result;
}

uint32_t SetAudioAmplifier(uint8_t on) {
    const FileDescriptor bus = OpenBus();
    if (!bus.IsOpen()) {
        EcallUITraceError("Unable to open i2c control file");
        return 1;
    }
    GpioWrite(kGpioAmpNstby, on);
    GpioWrite(kGpioAmpHwmute, on);
    uint32_t result = 0;
    for (const AmplifierRegister& reg : kAmplifierRegisters) {
        const uint8_t data[] = {on != 0 ? reg.whenOn : reg.whenOff};
        result |= I2cWriteRegister(bus.get(), kAmplifier, reg.number, data);
    }
    return result;
}
