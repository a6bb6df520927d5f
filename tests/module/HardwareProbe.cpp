// Stands in for the service where a test looks at single operations on the hardware: carries its arguments out in
// order, one operation each, and prints each result as a line on standard error: "GpioRead 2 = 1".
//
// The linker's --wrap puts the functions below in front of some calls that the service's units make. After "fail
// FUNCTION ERRNO" every call of that function fails, and 0 heals it; recvmsg and an interrupted call fail once, as they
// would for the service's loop. Each sleep is told as "slept 100 ms", each timer as it is made and set.
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "EcallUIAppConnect.h"
#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioAnt.h"
#include "EcallUIGpioDtr.h"
#include "EcallUIGpioEvent.h"
#include "EcallUIGpioI2c.h"
#include "EcallUIGpioLed.h"
#include "EcallUIGpioRelay.h"
#include "EcallUIGpioState.h"
#include "EcallUIGpioTest.h"
#include "EcallUIShared.h"
#include "EcallUIapp_implMic.h"
#include "Trace.h"

namespace {

struct WrappedCall {
    std::atomic<int> error{0};    ///< 0: works
    std::atomic<int> passing{0};  ///< so many calls still work
    bool Fails() {
        if (error == 0 || passing.fetch_sub(1) > 0) {
            return false;
        }
        errno = error;
        return true;
    }
    /// EINTR comes once.
    bool FailsOrIsInterrupted() {
        int interrupted = EINTR;
        if (error.compare_exchange_strong(interrupted, 0)) {
            errno = EINTR;
            return true;
        }
        return Fails();
    }
};
WrappedCall CreateThreadCall;
WrappedCall ForkCall;
WrappedCall LockCall;
WrappedCall PipeCall;
WrappedCall PopenCall;
WrappedCall ReceiveCall;
WrappedCall SelectCall;
WrappedCall SocketCall;
WrappedCall TimerCall;
WrappedCall WaitCall;
WrappedCall WaitPidCall;
const std::map<std::string, WrappedCall*> WrappedCalls = {
    {"pthread_create", &CreateThreadCall},
    {"fork", &ForkCall},
    {"pthread_mutex_lock", &LockCall},
    {"pipe2", &PipeCall},
    {"popen", &PopenCall},
    {"recvmsg", &ReceiveCall},
    {"select", &SelectCall},
    {"socket", &SocketCall},
    {"timer_create", &TimerCall},
    {"wait", &WaitCall},
    {"waitpid", &WaitPidCall},
};

}  // namespace

// clang-format off
extern "C" {
pid_t __real_fork();
pid_t __wrap_fork() { return ForkCall.Fails() ? -1 : __real_fork(); }
int __real_pipe2(int* ends, int flags);
int __wrap_pipe2(int* ends, int flags) { return PipeCall.Fails() ? -1 : __real_pipe2(ends, flags); }
FILE* __real_popen(const char* command, const char* mode);
FILE* __wrap_popen(const char* command, const char* mode) {
    return PopenCall.Fails() ? nullptr : __real_popen(command, mode);
}
ssize_t __real_recvmsg(int socket, msghdr* message, int flags);
/// Fails once, then receives again. ENODATA, which recvmsg itself never answers, asks for the end of the data: a
/// result of 0.
ssize_t __wrap_recvmsg(int socket, msghdr* message, int flags) {
    const int error = ReceiveCall.error.exchange(0);
    if (error == 0) {
        return __real_recvmsg(socket, message, flags);
    }
    errno = error;
    return error == ENODATA ? 0 : -1;
}
int __real_select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* limit);
/// EINTR fails once. ENODATA, which select itself never answers, asks for one return with nothing ready.
int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* limit) {
    const int error = SelectCall.error.load();
    if (error == EINTR || error == ENODATA) {
        SelectCall.error = 0;
    }
    if (error == ENODATA) {
        FD_ZERO(in);
        return 0;
    }
    errno = error;
    return error != 0 ? -1 : __real_select(count, in, out, other, limit);
}
int __real_timer_create(clockid_t clock, sigevent* event, timer_t* timer);
int __wrap_timer_create(clockid_t clock, sigevent* event, timer_t* timer) {
    if (TimerCall.Fails()) {
        return -1;
    }
    fprintf(stderr, "timer made: %s clock, %s, value %d\n", clock == CLOCK_MONOTONIC ? "monotonic" : "another",
            event->sigev_notify == SIGEV_THREAD ? "thread" : "no thread", event->sigev_value.sival_int);
    return __real_timer_create(clock, event, timer);
}
long long Milliseconds(const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}
int __real_timer_settime(timer_t timer, int flags, const itimerspec* value, itimerspec* old);
int __wrap_timer_settime(timer_t timer, int flags, const itimerspec* value, itimerspec* old) {
    fprintf(stderr, "timer set: %s %lld ms, then every %lld ms\n", flags == 0 ? "in" : "at",
            Milliseconds(value->it_value), Milliseconds(value->it_interval));
    return __real_timer_settime(timer, flags, value, old);
}
int __real_nanosleep(const timespec* duration, timespec* left);
int __wrap_nanosleep(const timespec* duration, timespec* left) {
    fprintf(stderr, "slept %lld ms\n", Milliseconds(*duration));
    return __real_nanosleep(duration, left);
}
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
    return CreateThreadCall.Fails() ? errno : __real_pthread_create(thread, attributes, run, argument);
}
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    return LockCall.Fails() ? errno : __real_pthread_mutex_lock(mutex);
}
int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
    return SocketCall.Fails() ? -1 : __real_socket(domain, type, protocol);
}
pid_t __real_wait(int* status);
pid_t __wrap_wait(int* status) { return WaitCall.FailsOrIsInterrupted() ? -1 : __real_wait(status); }
pid_t __real_waitpid(pid_t child, int* status, int options);
/// ENODATA, which waitpid itself never answers, asks to leave the child to whoever waits for any.
pid_t __wrap_waitpid(pid_t child, int* status, int options) {
    if (!WaitPidCall.FailsOrIsInterrupted()) {
        return __real_waitpid(child, status, options);
    }
    while (errno == ENODATA && kill(child, 0) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        errno = ENODATA;
    }
    errno = errno == ESRCH ? ECHILD : errno;
    return -1;
}
}
// clang-format on

namespace {

using Words = std::vector<std::string>;

uint32_t Number(const std::string& word) {
    return static_cast<uint32_t>(strtol(word.c_str(), nullptr, 0));
}
uint8_t Byte(const std::string& word) {
    return static_cast<uint8_t>(Number(word));
}

std::string Text(int64_t number) {
    return std::to_string(number);
}

// Each fills its buffer first, so that it shows whether the operation left it alone.
std::string DevicePath(uint32_t id, std::size_t size) {
    std::array<char, 300> path{"untouched"};
    const int result = GpioGetDevicePath(id, path.data(), size);
    return Text(result) + " " + path.data();
}
std::string DeviceFilePath(uint32_t id, std::size_t size, const char* attribute) {
    std::array<char, 300> path{"untouched"};
    const int result = GpioGetDeviceFilePath(path.data(), size, id, attribute);
    return Text(result) + " " + path.data();
}

std::string DriveAntenna(uint32_t line, uint8_t level) {
    EcallUIState state;
    GetUIStateAndLock(state, true);
    const uint32_t result = GpioAntWrite(line, level, state);
    SetUIStateAndUnlock(state);
    return Text(result) + " detection " + Text(state.EcallAntennaDetectionActivated) + " selected " +
           Text(state.EcallAntennaSelected);
}

std::string Convert(uint8_t channel) {
    int32_t value = -1;
    const uint32_t result = ReadAds1015AdcInput(channel, &value);
    return Text(result) + " " + Text(value);
}

void NotifyState(uint32_t serviceState, uint32_t audioOutState) {
    const TEcallappState state{serviceState, 0, 5, 0, audioOutState, TSelfTestState_Unknown};
    SetGpioServiceState(&state);
}

std::string MicTest() {
    const std::optional<float> value = RunMicTest();
    return value ? std::to_string(*value) : "failed";
}

int32_t Descriptors() {
    int32_t count = 0;
    for (int fd = 0; fd < 256; ++fd) {
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

/// Lets threads log as fast as they can until the process ends.
void LogInBackground(uint32_t threads) {
    for (uint32_t i = 0; i < threads; ++i) {
        std::thread([] {
            for (;;) {
                EcallUITrace("%s", std::string(200, 'x').c_str());
            }
        }).detach();
    }
}

void BlockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

/// A child that has ended, and that nobody has waited for yet.
void LeaveChild(uint32_t exitStatus) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(static_cast<int>(exitStatus));
    }
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
}

std::string Perform(const std::string& line);

/// Performs one operation on several threads at once.
void PerformAtOnce(uint32_t count, const std::string& line) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            while (!go) {
            }
            Perform(line);
        });
    }
    go = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

using Operation = std::function<std::string(const Words&)>;

const std::map<std::string, Operation>& Operations() {
    const auto done = [](auto work) {
        return [work](const Words& w) {
            work(w);
            return std::string("done");
        };
    };
    static const std::map<std::string, Operation> operations = {
        {"GpioGetDevicePath", [](const Words& w) { return DevicePath(Number(w[1]), Number(w[2])); }},
        {"GpioGetDeviceFilePath",
         [](const Words& w) {
             return DeviceFilePath(Number(w[1]), Number(w[2]), w.size() > 3 ? w[3].c_str() : nullptr);
         }},
        {"GpioGetDeviceFilePathNowhere",
         [](const Words&) { return Text(GpioGetDeviceFilePath(nullptr, 128, kPwmEcallLed, "enable")); }},
        {"GpioRead", [](const Words& w) { return Text(GpioRead(Number(w[1]))); }},
        {"GpioWrite", [](const Words& w) { return Text(GpioWrite(Number(w[1]), Byte(w[2]))); }},
        {"GpioRead_EcallEns", [](const Words&) { return Text(GpioRead_EcallEns()); }},
        {"ExternalGpio_enable", done([](const Words& w) { ExternalGpio_enable(w[1].c_str(), Byte(w[2])); })},
        {"SetGpioEcallLed",
         [](const Words& w) { return Text(SetGpioEcallLed(Number(w[1]), Number(w[2]), Number(w[3]), Number(w[4]))); }},
        {"SetGpioEnableEcallLed", [](const Words& w) { return Text(SetGpioEnableEcallLed(Byte(w[1]))); }},
        {"ControlAudioRelay", done([](const Words& w) { ControlAudioRelay(Byte(w[1]) != 0); })},
        {"TimerAudioRelay", done([](const Words& w) { TimerAudioRelay(Byte(w[1]) != 0); })},
        {"RelayTimer_callback", done([](const Words&) { RelayTimer_callback({}); })},
        {"GpioAntWrite", [](const Words& w) { return DriveAntenna(Number(w[1]), Byte(w[2])); }},
        {"DriveAntennaLine", [](const Words& w) { return Text(DriveAntennaLine(Number(w[1]), Byte(w[2]))); }},
        {"AdcRead", [](const Words& w) { return Text(AdcRead(Number(w[1]))); }},
        {"ReadAds1015AdcInput", [](const Words& w) { return Convert(Byte(w[1])); }},
        {"SetAudioAmplifier", [](const Words& w) { return Text(SetAudioAmplifier(Byte(w[1]))); }},
        {"I2cWriteRegisterWithoutData", [](const Words&) { return Text(I2cWriteRegister(0, 0x72, 1, {})); }},
        {"I2cReadRegisterWithoutData", [](const Words&) { return Text(I2cReadRegister(0, 0x72, 1, {})); }},
        {"RunSelfTest", done([](const Words&) { RunSelfTest(); })},
        {"SetGpioServiceState", done([](const Words& w) { NotifyState(Number(w[1]), Number(w[2])); })},
        {"RunMicTest", [](const Words&) { return MicTest(); }},
        {"ReadDtrStatus", [](const Words&) { return Text(ReadDtrStatus()); }},
        {"GpioRecoveryThread", done([](const Words&) { GpioRecoveryThread(); })},
        {"InitGpio", done([](const Words&) { InitGpio(); })},
        {"SendRtaDetectorErrorStatus", done([](const Words& w) { SendRtaDetectorErrorStatus(Byte(w[1])); })},
        {"LastSelfTestState", done([](const Words& w) { LastSelfTestState = Number(w[1]); })},
        {"GpioIrqRecovery", [](const Words&) { return Text(EcallUI_Configuration.GpioIrqRecovery); }},
        {"ConfigureExternalAudioAmp",
         done([](const Words& w) { EcallUI_Configuration.ConfigureExternalAudioAmp = Byte(w[1]); })},
        {"connect", done([](const Words&) { ConnectEcallService(); })},
        {"descriptors", [](const Words&) { return Text(Descriptors()); }},
        {"fail", done([](const Words& w) { WrappedCalls.at(w[1])->error = static_cast<int>(Number(w[2])); })},
        {"fail-after", done([](const Words& w) {
             WrappedCalls.at(w[2])->passing = static_cast<int>(Number(w[1]));
             WrappedCalls.at(w[2])->error = static_cast<int>(Number(w[3]));
         })},
        {"background", done([](const Words& w) { LogInBackground(Number(w[1])); })},
        {"leave-child", done([](const Words& w) { LeaveChild(Number(w[1])); })},
        {"at-exit", done([](const Words&) { atexit([] { fputs("exit handler has run\n", stderr); }); })},
        {"block-signals", done([](const Words&) { BlockSignals(); })},
        // Standard output goes nowhere.
        {"quiet", done([](const Words&) { dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO); })},
        {"ignore-sigpipe", done([](const Words&) { signal(SIGPIPE, SIG_IGN); })},
        {"sleep", done([](const Words& w) { std::this_thread::sleep_for(std::chrono::milliseconds(Number(w[1]))); })},
        {"stay", done([](const Words&) { pause(); })},
    };
    return operations;
}

std::string Perform(const std::string& line) {
    std::istringstream stream(line);
    Words words{std::istream_iterator<std::string>(stream), {}};
    return Operations().at(words.at(0))(words);
}

/// Performs one operation and prints its result.
void Tell(const std::string& line) {
    const std::string result = Perform(line);
    fprintf(stderr, "%s = %s\n", line.c_str(), result.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    InitConfiguration();
    std::vector<std::thread> beside;  // they end before the process does
    for (int i = 1; i < argc; ++i) {
        const std::string line = argv[i];
        if (line.starts_with("beside ")) {
            beside.emplace_back(Tell, line.substr(sizeof "beside"));
            continue;
        }
        if (line.starts_with("at-once ")) {
            PerformAtOnce(4, line.substr(sizeof "at-once"));
            continue;
        }
        Tell(line);
    }
    for (std::thread& thread : beside) {
        thread.join();
    }
    fflush(stdout);
    _exit(0);
}
