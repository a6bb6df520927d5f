#include "EcallUIGpioDtr.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>

#include "EcallUIData.h"
#include "Trace.h"

namespace {

constexpr char kReadDtrEnable[] = "cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr_enable";
constexpr char kReadDtr[] = "cat /sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr";
constexpr int kLineSize = 20;

constexpr unsigned long kRecoveryIoctl = 0x89F0;  // the driver's first private command
constexpr uint32_t kRecoverIrq = 44;
constexpr uint32_t kRecoverIrqWithoutDtr = 43;
constexpr std::chrono::milliseconds kRecoveryTime{1000};

/// What the driver reads through the request.
struct RecoveryBlock {
    uint32_t unused;
    uint32_t zero;
    uint32_t command;
};

enum class QueryResult { Answered, NotStarted, NoLine };

struct Query {
    QueryResult result;
    char first = '\0';  ///< first character of the answer
    int error = 0;      ///< errno of what failed
};

/// Runs a shell command and reads its first line. Without a line the pipe is left open, and its child unwaited for.
Query RunQuery(const char* command) {
    std::array<char, kLineSize> line{};
    FILE* const pipe = popen(command, "re");
    if (pipe == nullptr) {
        return {.result = QueryResult::NotStarted, .error = errno};
    }
    errno = 0;  // the end of the file sets none
    if (fgets(line.data(), static_cast<int>(line.size()), pipe) == nullptr) {
        return {.result = QueryResult::NoLine, .error = errno};
    }
    pclose(pipe);
    return {.result = QueryResult::Answered, .first = line[0]};
}

int32_t ReadDtrLine() {
    const Query dtr = RunQuery(kReadDtr);
    switch (dtr.result) {
        case QueryResult::NotStarted:
            EcallUITrace("cat open error dtr_status path");
            return -1;
        case QueryResult::NoLine:
            EcallUITraceError("can't read data from %s file with %s\n", kReadDtr, strerror(dtr.error));
            return -1;
        case QueryResult::Answered:
            break;
    }
    if (dtr.first == '0') {  // active low
        EcallUITrace("DTR is enalbed ");
        return 1;
    }
    EcallUITrace("DTR is disabled ");
    return 0;
}

/// Sends one command to the network driver; answers whether it took it.
bool SendRecoveryCommand(int handle, uint32_t command) {
    RecoveryBlock block{0, 0, command};
    ifreq request{};
    std::string_view("eth0").copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_data = reinterpret_cast<char*>(&block);
    return ioctl(handle, kRecoveryIoctl, &request) >= 0;
}

}  // namespace

int32_t ReadDtrStatus() {
    const Query enable = RunQuery(kReadDtrEnable);
    switch (enable.result) {
        case QueryResult::NotStarted:
            EcallUITraceError("can't open %s file with %s\n", kReadDtrEnable, strerror(enable.error));
            return -1;
        case QueryResult::NoLine:
            EcallUITraceError("can't read data from %s file with %s\n", kReadDtrEnable, strerror(enable.error));
            return -1;
        case QueryResult::Answered:
            break;
    }
    if (enable.first != '1') {
        EcallUITraceLf("DTR is disabled ");
        return 0;
    }
    return ReadDtrLine();
}

void GpioRecoveryThread() {
    EcallUITrace("GpioRecoveryThread - Enter");
    const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);  // never closed
    if (!SendRecoveryCommand(handle, kRecoverIrq)) {
        EcallUITraceError("IOCTL ERROR (1) ==> GpioRecoveryThread - Exit");
        return;
    }
    std::this_thread::sleep_for(kRecoveryTime);
    if (ReadDtrStatus() == 0 && !SendRecoveryCommand(handle, kRecoverIrqWithoutDtr)) {
        EcallUITraceError("IOCTL ERROR (2) ==> GpioRecoveryThread - Exit");
    }
    EcallUI_Configuration.GpioIrqRecovery = 1;
    EcallUITrace("GpioRecoveryThread - Exit");
}
