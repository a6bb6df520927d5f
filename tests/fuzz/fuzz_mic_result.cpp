// The result of the microphone's test script holds any bytes. Only digits and separators make a value, which is then a
// number; every other byte but the last is named.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "EcallUIapp_implMic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    constexpr std::string_view kGood = "0123456789.,";
    const std::string_view text(reinterpret_cast<const char*>(bytes), std::min(size, kMicResultLength));
    const MicResult result = ReadMicResult(text);

    const std::string_view read = text.substr(0, text.empty() ? 0 : text.size() - 1);
    const auto bad = static_cast<std::size_t>(
        std::ranges::count_if(read, [&](char byte) { return kGood.find(byte) == std::string_view::npos; }));
    if (result.badCount != bad || result.isBad != (bad > 0 || text.empty())) {
        abort();
    }
    if (!std::isfinite(result.value) || result.value < 0 || result.value > 1e9F ||
        (result.isBad && result.value != 0)) {
        abort();
    }
    return 0;
}
