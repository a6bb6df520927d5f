// The configuration file holds any bytes. Whatever was taken over, the record stays one that can be shown and saved.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "EcallUIDataConfig.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return freopen("/dev/null", "w", stdout) != nullptr ? 0 : -1;  // the units log each key
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
    EcallUIConfiguration configuration;
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    const bool isTaken = ReadConfigurationText(text, configuration);

    const bool isWholeText = memchr(bytes, 0, length) == nullptr;
    const bool isStill = strcmp(configuration.HW_Name.get().c_str(), "KORVA_FDA803_ZX118A4") == 0 &&
                         configuration.LedPwmPeriodMs == 10 && configuration.GpioIrqRecovery == 1;
    if (isTaken ? !isWholeText : !isStill) {
        abort();
    }
    return 0;
}
