// A line is a text file. Three devices have a directory whose last characters the kernel chooses at each boot: their
// rows hold the fixed beginning, and the first access completes it by a scan. The trap is that several threads may make
// that first access at once, so exactly one of them writes the row, and nobody reads it before it is whole.
#include "EcallUIGpio.h"

#include <dirent.h>
#include <fcntl.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "EcallUIData.h"
#include "EcallUIGpioFile.h"
#include "Trace.h"

namespace {

constexpr std::size_t kLineReadSize = 4;

enum class Completion : uint8_t { Missing, InWork, Published };

struct EcallGpioDevice {
    const char* path;  ///< of the value file; with search, of a directory and the beginning of a name in it
    uint32_t id;
    bool search;
    std::atomic<Completion> completion{Completion::Missing};
    std::array<char, kGpioPathSize> completedPath{};  ///< constant once Published
};

EcallGpioDevice EcallGpioDevices[] = {
    {"/sys/class/ecall_gpio/sos-button-det/value", kGpioSosButtonDet, false},
    {"/sys/class/ecall_gpio/gnss-system-on/value", kGpioGnssSystemOn, false},
    {"/sys/class/ecall_gpio/gnss-ant-det/value", kGpioGnssAntDet, false},
    {"/sys/class/ecall_gpio/bat-present/value", kGpioBatPresent, false},
    {"/sys/class/ecall_gpio/ecall-nrqst/value", kGpioEcallNrqst, false},
    {"/sys/devices/vantu_pwm.", kPwmEcallEns, true},
    {"/sys/class/ecall_gpio/lte-ecall-relay/value", kGpioAudioRelay, false},
    {"/sys/class/ecall_gpio/UNUSE_GPIO22/value", kGpioAntSelect, false},
    {"/sys/class/ecall_gpio/ecall-nlock/value", kGpioEcallNlock, false},
    {"/sys/class/ecall_gpio/amp-nstby/value", kGpioAmpNstby, false},
    {"/sys/class/ecall_gpio/gnss-on-off/value", kGpioGnssOnOff, false},
    {"/sys/class/ecall_gpio/gnss-boot-sel/value", kGpioGnssBootSel, false},
    {"/sys/class/ecall_gpio/amp-hwmute/value", kGpioAmpHwmute, false},
    {"/sys/devices/vantu_pwm_led.", kPwmEcallLed, true},
    {"/sys/devices/ecall_isr.", kIsrEcallButton, true},
};

EcallGpioDevice* FindDevice(uint32_t id) {
    for (EcallGpioDevice& device : EcallGpioDevices) {
        if (device.id == id) {
            return &device;
        }
    }
    return nullptr;
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

using EntryName = std::array<char, sizeof(dirent::d_name)>;

/// Finds the first entry of the directory whose name begins with the prefix.
bool FindEntry(const char* directory, std::string_view prefix, EntryName& name) {
    const std::unique_ptr<DIR, DirectoryCloser> entries(opendir(directory));
    if (entries == nullptr) {
        return false;
    }
    while (const dirent* entry = readdir(entries.get())) {
        if (std::string_view(entry->d_name).starts_with(prefix)) {
            // The kernel packs entries by their length: behind the name lies the next one, or nothing.
            memcpy(name.data(), entry->d_name, strlen(entry->d_name) + 1);
            return true;
        }
    }
    return false;
}

/// Keeps the completed path, which fits; only the first thread that comes here writes it.
void PublishPath(EcallGpioDevice& device, std::string_view directory, std::string_view name) {
    Completion expected = Completion::Missing;
    if (device.completion.compare_exchange_strong(expected, Completion::InWork, std::memory_order_relaxed)) {
        directory.copy(device.completedPath.data(), directory.size());
        name.copy(&device.completedPath[directory.size()], name.size());
        device.completion.store(Completion::Published, std::memory_order_release);
    }
}

int CompletePath(EcallGpioDevice& device, char* out, std::size_t size) {
    const std::string_view stored = device.path;
    const std::size_t directoryLength = stored.rfind('/') + 1;
    std::array<char, kGpioPathSize> directory{};
    stored.copy(directory.data(), directoryLength);
    EntryName name;
    if (!FindEntry(directory.data(), stored.substr(directoryLength), name)) {
        return -1;
    }
    const std::size_t length = directoryLength + strlen(name.data());
    if (length < kGpioPathSize) {
        PublishPath(device, directory.data(), name.data());
    }
    if (length > size) {
        return -1;
    }
    snprintf(out, size, "%s%s", directory.data(), name.data());
    return 0;
}

/// The path of a line's value file; empty when the table has no such row or the device is not there.
std::array<char, kGpioPathSize> LinePath(uint32_t id) {
    std::array<char, kGpioPathSize> path{};
    GpioGetDevicePath(id, path.data(), path.size());
    return path;
}

/// Writes one of the attributes that tell the LED device of its external enable line. Answers whether it took the text.
bool WriteExternalGpio(const char* attribute, const char* value) {
    std::array<char, kGpioPathSize> path{};
    GpioGetDeviceFilePath(path.data(), path.size(), kPwmEcallLed, attribute);
    const AttributeWrite written = WriteAttribute(path.data(), O_RDWR | O_SYNC, value);
    if (!written.opened) {
        EcallUITraceError("Unable to open pwm led ExternalGpio_enable file");
    } else if (!written.whole) {
        EcallUITraceError("Unable to write pwm led %s file : value = %s in \n", path.data(), value);
    }
    return written.whole;
}

}  // namespace

int GpioGetDevicePath(uint32_t id, char* out, std::size_t size) {
    EcallGpioDevice* const device = FindDevice(id);
    if (device == nullptr) {
        return -1;
    }
    if (!device->search) {
        if (strlen(device->path) > size) {
            return -1;
        }
        snprintf(out, size, "%s", device->path);
        return 0;
    }
    if (device->completion.load(std::memory_order_acquire) != Completion::Published) {
        return CompletePath(*device, out, size);
    }
    if (strlen(device->completedPath.data()) >= size) {
        return -1;
    }
    snprintf(out, size, "%s", device->completedPath.data());
    return 0;
}

int GpioGetDeviceFilePath(char* out, std::size_t size, uint32_t id, const char* attribute) {
    std::array<char, kGpioPathSize> device{};
    if (out == nullptr || attribute == nullptr || GpioGetDevicePath(id, device.data(), device.size()) != 0 ||
        strlen(device.data()) + strlen(attribute) + 1 > size) {
        return -1;
    }
    snprintf(out, size, "%s/%s", device.data(), attribute);
    return 0;
}

int32_t GpioRead(uint32_t id) {
    const bool isTraced = id != kGpioEcallNrqst;  // the button is read twice for every press
    if (isTraced) {
        EcallUITrace("GpioRead - Enter : GpioId = %d", id);
    }
    const auto path = LinePath(id);
    const AttributeRead line = ReadAttribute(path.data(), kLineReadSize);
    if (!line.opened) {
        EcallUITraceError("Unable to open %d pin value file\n", id);
        return -1;
    }
    if (line.count == 0) {
        EcallUITraceError("Unable to read pin value file : NbByteRead = %d\n", line.count);
        return -1;
    }
    const int32_t value = line.text[0] - '0';
    if (isTraced) {
        EcallUITrace("%s : StrValue = %s", path.data(), line.text.data());
        EcallUITrace("GpioRead - Exit : ret = %d", value);
    }
    return value;
}

uint32_t GpioWrite(uint32_t id, uint8_t value) {
    EcallUITrace("GpioWrite - Enter : GpioId = %d, value = %d ", id, value);
    const auto path = LinePath(id);
    std::array<char, 4> text{};
    snprintf(text.data(), text.size(), "%1d", value);
    const AttributeWrite line = WriteAttribute(path.data(), O_RDWR | O_SYNC, text.data());
    if (!line.opened) {
        EcallUITraceError("Unable to open %d pin value file\n", id);
        return 1;
    }
    const uint32_t result = line.count == 1 ? 0 : 1;
    if (result != 0) {
        EcallUITraceError("Unable to write value file : StrValue = %s, NbByteWrite = %d\n", text.data(), line.count);
    } else {
        EcallUITrace("%s : set to value = %s", path.data(), text.data());
    }
    EcallUITrace("GpioWrite - Exit : ret = %d", result);
    return result;
}

bool IsEcallButtonPressed() {
    const int32_t pressedLevel = EcallUI_Configuration.GpioInputButton_nRQST_ActiveLow ? 0 : 1;
    return GpioRead(kGpioEcallNrqst) == pressedLevel;
}

int32_t GpioRead_EcallEns() {
    EcallUITrace("GpioRead_EcallEns - Enter");
    std::array<char, kGpioPathSize> path{};
    GpioGetDeviceFilePath(path.data(), path.size(), kPwmEcallEns, "pwm_status");
    const AttributeRead status = ReadAttribute(path.data(), kLineReadSize);
    if (!status.opened) {
        EcallUITraceErrorLf("Unable to open /sys/devices/vantu_pwm.xxx/pwm_status file");
        return -1;
    }
    if (status.count == 0) {
        EcallUITraceError("Unable to read pin value file : NbByteRead = %d\n", status.count);
        return -1;
    }
    EcallUITrace("pwm_status = %s", status.text.data());
    const int32_t value = status.text[0] - '0';
    EcallUITrace("GpioRead_EcallEns - Exit : ret = %d", value);
    return value;
}

void ExternalGpio_enable(const char* value, uint8_t /*activeLow*/) {
    if (WriteExternalGpio("ExternalGpio_enable", value)) {
        WriteExternalGpio("ExternalGpio_active_low", "0");
    }
}
