/// The test of the analog microphone: an outside script measures, the service runs it and reads what it found.
#ifndef ECALL_UI_APP_IMPL_MIC_H
#define ECALL_UI_APP_IMPL_MIC_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

constexpr std::size_t kMicResultLength = 10;  ///< bytes of the script's result that are read

/// What the bytes of a result say.
struct MicResult {
    float value = 0;     ///< 0 when the result is bad
    bool isBad = false;  ///< there are bad bytes, or no bytes at all
    std::size_t badCount = 0;
    std::array<uint8_t, kMicResultLength> badBytes{};  ///< the first badCount, in their order
};
/// Reads "12.5" or "12,5" and a line end. The last byte is passed over, whatever it is; a second separator changes
/// nothing. bytes: at most kMicResultLength. Any thread.
MicResult ReadMicResult(std::string_view bytes);

/// Runs the script and answers what it has measured: 0 when it left no result; nothing when it failed, or when its
/// result is bad. Blocks until the script ends, without limit, and 200 ms more. Any thread, one at a time.
std::optional<float> RunMicTest();

#endif
