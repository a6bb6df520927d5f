#include "EcallUIapp_implMic.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "File.h"
#include "Script.h"
#include "Trace.h"

namespace {

constexpr Script kMicTestScript{.path = "/usr/bin/ecall_analog_mic_test.sh",
                                .name = "ecall_analog_mic_test.sh",
                                .argument = nullptr,
                                .action = "start",  // nothing but the log's word for a run that fails
                                .resultFile = "/tmp/ecall_analog_mic_test_result.txt",
                                .end = ScriptEnd::ItsOwn};
constexpr std::chrono::milliseconds kResultDelay{200};  // the result may reach the file system after the script's end

/// The number in the making.
struct Measure {
    float value = 0;
    float divisor = 10;  ///< of the next digit of the fraction
    bool isFraction = false;

    void Add(int digit) {
        const auto number = static_cast<float>(digit);
        if (isFraction) {
            value += number / divisor;
            divisor *= 10;
        } else {
            value = value * 10 + number;
        }
    }
};

/// The result as a text that is always terminated.
struct ResultText {
    std::array<char, kMicResultLength + 1> text{};
    std::size_t length = 0;
};

/// A file that opens but cannot be read, such as a folder, is an empty one.
ResultText ReadResultFile(const FileDescriptor& file) {
    ResultText result;
    const ssize_t count = read(file.get(), result.text.data(), kMicResultLength);
    result.length = count > 0 ? static_cast<std::size_t>(count) : 0;
    EcallUITrace("Read /tmp/ecall_analog_mic_test_result.txt : %s, ByteRead = %d", result.text.data(),
                 static_cast<int>(result.length));
    return result;
}

std::optional<float> ValueOf(const MicResult& result) {
    for (std::size_t i = 0; i < result.badCount; ++i) {
        EcallUITraceError("Error, bad value 0x%X ", result.badBytes[i]);
    }
    if (result.isBad) {
        return std::nullopt;
    }
    EcallUITrace("MesuredValue = %f", result.value);
    return result.value;
}

}  // namespace

MicResult ReadMicResult(std::string_view bytes) {
    MicResult result{.isBad = bytes.empty()};
    Measure measure;
    for (const char byte : bytes.substr(0, result.isBad ? 0 : bytes.size() - 1)) {
        if (byte >= '0' && byte <= '9') {
            measure.Add(byte - '0');
        } else if (byte == '.' || byte == ',') {
            measure.isFraction = true;
        } else {
            result.badBytes[result.badCount++] = static_cast<uint8_t>(byte);
            result.isBad = true;
        }
    }
    result.value = result.isBad ? 0 : measure.value;
    return result;
}

std::optional<float> RunMicTest() {
    EcallUITrace("launches the external script to run the analog microphone test");
    if (RunScript(kMicTestScript) != 0) {
        return std::nullopt;
    }
    std::this_thread::sleep_for(kResultDelay);
    const FileDescriptor file = OpenFile(kMicTestScript.resultFile, O_RDONLY);
    if (!file.IsOpen()) {
        // The log names a folder that the file was never in.
        EcallUITraceError(" impossible to open /var/logs/ecall/ecall_analog_mic_test_result.txt");
        return 0;
    }
    const ResultText result = ReadResultFile(file);
    return ValueOf(ReadMicResult({result.text.data(), result.length}));
}
