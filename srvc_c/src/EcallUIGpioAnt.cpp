// The antenna lines sit behind three character devices: one takes the line's name, one its direction, one its level.
// The three are shared by both lines, so the caller's "State" mutex also keeps two sequences from mixing.
#include "EcallUIGpioAnt.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>

#include "EcallUIGpioFile.h"
#include "Trace.h"

namespace {

constexpr char kGpioNumDevice[] = "/dev/vantu_gpio_num";
constexpr char kGpioDirDevice[] = "/dev/vantu_gpio_dir";
constexpr char kGpioValueDevice[] = "/dev/vantu_gpio_value";

constexpr int kMicrovoltsPerMillivolt = 1000;

constexpr const char* kAdcFiles[] = {
    "/sys/bus/iio/devices/iio:device0/out_temp_battemp1_raw",
    "/sys/bus/iio/devices/iio:device0/out_temp_systemp2_raw",
    "/sys/bus/iio/devices/iio:device0/out_temp_battemp0_raw",
};

// The messages of the first two steps name gpio_05 for both lines.

AttributeWrite SelectLine(const char* name) {
    const AttributeWrite written = WriteAttribute(kGpioNumDevice, O_WRONLY | O_SYNC, name);
    if (!written.opened) {
        EcallUITraceError("Unable to open /dev/vantu_gpio_num file");
    } else if (!written.whole) {
        EcallUITraceError("Unable to write value 'gpio_05', NbByteWrite = %d\n", written.count);
    } else {
        EcallUITrace("gpio_05 selected");
    }
    return written;
}

AttributeWrite MakeOutput() {
    const AttributeWrite written = WriteAttribute(kGpioDirDevice, O_RDWR, "out");
    if (!written.opened) {
        EcallUITraceError("Unable to open /dev/vantu_gpio_dir file");
    } else if (!written.whole) {
        EcallUITraceError("Unable to write value 'out', NbByteWrite = %d\n", written.count);
    } else {
        EcallUITrace("gpio_05 configured as an output");
    }
    return written;
}

AttributeWrite DriveLevel(const char* level) {
    const AttributeWrite written = WriteAttribute(kGpioValueDevice, O_RDWR, level);
    if (!written.opened) {
        EcallUITraceError("Unable to open /dev/vantu_gpio_value");
    } else if (!written.whole) {
        EcallUITraceError("Unable to write value '%s', NbByteWrite = %d\n", level, written.count);
    }
    return written;
}

void NoteLevel(uint32_t line, uint8_t level, const char* levelName, EcallUIState& state) {
    if (line == kAntDetectLine) {
        EcallUITrace("gpio_05 (ANT_DET_CTL_GPIO) configured at %s level", levelName);
        state.EcallAntennaDetectionActivated = level;
    } else {
        EcallUITrace("gpio_07 (ANT_SEL_GPIO) configured at %s level", levelName);
        state.EcallAntennaSelected = level;
    }
}

}  // namespace

uint32_t GpioAntWrite(uint32_t line, uint8_t level, EcallUIState& state) {
    if (line != kAntDetectLine && line != kAntSelectLine) {
        EcallUITraceError("GpioAntWrite : bad Gpio (%d)", line);
        return ECALLUI_ERROR;
    }
    const AttributeWrite selected = SelectLine(line == kAntDetectLine ? "gpio_05" : "gpio_07");
    const AttributeWrite directed = selected.opened ? MakeOutput() : AttributeWrite{};
    if (!directed.opened) {
        EcallUITraceError("GpioAntWrite - Exit : ret = ECALLUI_ERROR");
        return ECALLUI_ERROR;
    }
    const char* const levelName = level == 1 ? "hi" : "lo";
    const AttributeWrite driven = DriveLevel(levelName);
    if (!driven.opened) {
        return ECALLUI_ERROR;
    }
    if (driven.whole) {
        NoteLevel(line, level, levelName, state);
    }
    const uint32_t result = selected.whole && directed.whole && driven.whole ? 0 : ECALLUI_ERROR;
    EcallUITrace("GpioAntWrite - Exit : ret = %d", result);
    return result;
}

void SelectAntenna(EcallUIState& state) {
    if (state.EcallAntennaSelected == 0) {
        GpioAntWrite(kAntSelectLine, 1, state);
    }
}

uint32_t DriveAntennaLine(uint32_t line, uint8_t level) {
    EcallUIState state;
    GetUIStateAndLock(state, true);
    const uint32_t result = GpioAntWrite(line, level, state);
    SetUIStateAndUnlock(state);
    return result;
}

int32_t AdcMillivolts(const char* text) {
    const long long millivolts = strtoll(text, nullptr, 10) / kMicrovoltsPerMillivolt;
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<long long>(millivolts, Limits::min(), Limits::max()));
}

int32_t AdcRead(uint32_t adc) {
    EcallUITrace("AdcRead - Enter : adc = %d", adc);
    if (adc < 1 || adc > std::size(kAdcFiles)) {
        EcallUITraceError("AdcRead ERROR - adc = %d", adc);
        return -1;
    }
    const char* const path = kAdcFiles[adc - 1];
    const AttributeRead input = ReadAttribute(path, kAttributeReadMax);
    if (!input.opened) {
        EcallUITraceError("Unable to open %s pin value file\n", path);
        return -1;
    }
    if (input.count < 0) {
        EcallUITraceError("Unable to read adc value : NbByteRead =-1\n, errno = %s", strerror(input.error));
    }
    const int32_t millivolts = input.count < 0 ? -1 : AdcMillivolts(input.text.data());
    EcallUITrace("AdcRead - Exit : filename : %s : StrValue = %s,ValRet=%d", path, input.text.data(), millivolts);
    return millivolts;
}
