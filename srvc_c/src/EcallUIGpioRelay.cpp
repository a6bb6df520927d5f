// The trap here is the fork: other threads may hold the locks of the trace, of stdio or of malloc at that moment, and
// in the child nobody will ever release them. So the child only makes system calls, and when it cannot become the
// script it sends its errno through a pipe that a successful exec closes; the parent writes the log line.
#include "EcallUIGpioRelay.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "FileDescriptor.h"
#include "Trace.h"

namespace {

constexpr char kAudioScript[] = "/etc/init.d/launch-audio-for-ecall.sh";
constexpr char kAudioScriptName[] = "launch-audio-for-ecall.sh";
constexpr time_t kSwitchOffDelaySeconds = 5;

std::atomic<timer_t> RelayTimer{};  // null until the first use, then never deleted

// An expiry may be on its way already when the relay is asked for again. It then finds that nothing is due any more, or
// has finished its write before the relay is switched on. Taken before "Trace".
std::mutex SwitchOffTurn;
bool isSwitchOffDue = false;  // guarded by SwitchOffTurn

bool IsRelayUsed() {
    if (!EcallUI_Configuration.AudioRelayUsed) {
        EcallUITrace("EcallUI_Configuration.AudioRelayUsed == false ==> do nothing");
        return false;
    }
    return true;
}

/// Between fork and exec: async-signal-safe calls only. What this process ignores or blocks is not meant for the
/// script.
[[noreturn]] void BecomeScript(const char* argument, int failurePipe) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    execl(kAudioScript, kAudioScriptName, argument, nullptr);
    const int error = errno;
    // Should this fail too, the exit status still tells that there was no script.
    [[maybe_unused]] const ssize_t sent = write(failurePipe, &error, sizeof error);
    _exit(1);
}

/// The errno of the child's exec; 0 when it succeeded. Blocks until the child has become the script or ended.
int ReadExecError(int failurePipe) {
    int error = 0;
    ssize_t count = 0;
    do {
        count = read(failurePipe, &error, sizeof error);
    } while (count < 0 && errno == EINTR);
    return count == sizeof error ? error : 0;
}

/// Makes the pipe whose write end a successful exec closes. Without one the script runs all the same.
struct FailurePipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};
FailurePipe OpenFailurePipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        EcallUITraceError("pipe2() failed (%s)", strerror(errno));
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Waits for any child: one of a serial-port query may come first, then the script goes on meanwhile.
void WaitForChild() {
    int status = 0;
    pid_t child = 0;
    do {
        child = wait(&status);
    } while (child < 0 && errno == EINTR);
    if (child < 0) {
        EcallUITraceError("wait() failed (%s)", strerror(errno));
        return;
    }
    EcallUITrace("Child process exited with status %d", status);
}

void RunAudioScript(const char* argument) {
    EcallUITrace("launches the external script /etc/init.d/launch-audio-for-ecall.sh ");
    FailurePipe failure = OpenFailurePipe();
    const pid_t child = fork();
    if (child == 0) {
        BecomeScript(argument, failure.writeEnd.get());
    }
    if (child < 0) {
        EcallUITraceError("fork() failed (%s)", strerror(errno));
        return;
    }
    failure.writeEnd.Close();
    const int error = ReadExecError(failure.readEnd.get());
    if (error != 0) {
        EcallUITraceError("execl /etc/init.d/launch-audio-for-ecall.sh %s failed ret = %d (%s)\n", argument, -1,
                          strerror(error));
    }
    WaitForChild();
}

/// Makes the timer on first use. Of two threads that come here at once one keeps its timer, the other drops its own.
timer_t GetRelayTimer() {
    timer_t known = RelayTimer;
    if (known != nullptr) {
        return known;
    }
    sigevent notification{};
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_notify_function = RelayTimer_callback;
    timer_t created = nullptr;
    if (timer_create(CLOCK_MONOTONIC, &notification, &created) != 0) {
        return nullptr;
    }
    if (!RelayTimer.compare_exchange_strong(known, created)) {
        timer_delete(created);
        return known;
    }
    return created;
}

}  // namespace

void ControlAudioRelay(bool SetRelayOn) {
    EcallUITrace("ControlAudioRelay (SetRelayOn=%d) - Enter", SetRelayOn);
    if (EcallUI_Configuration.EcallMicrophoneSource == kExternalDigitalMic) {
        RunAudioScript(SetRelayOn ? "start" : "stop");
    }
    if (IsRelayUsed()) {
        TimerAudioRelay(!SetRelayOn);
        if (SetRelayOn) {
            GpioWrite(kGpioAudioRelay, 1);
        }
    }
    EcallUITrace("ControlAudioRelay - Exit");
}

void TimerAudioRelay(bool activateTimer) {
    EcallUITrace("TimerAudioRelay (activateTimer=%d) - Enter", activateTimer);
    if (IsRelayUsed()) {
        const timer_t timer = GetRelayTimer();
        if (timer == nullptr) {
            EcallUITraceError("Cannot create Relay timer error = %s ==> activate the relay by default",
                              strerror(errno));
            GpioWrite(kGpioAudioRelay, 1);
            return;
        }
        const std::lock_guard turn(SwitchOffTurn);
        isSwitchOffDue = activateTimer;
        itimerspec once{};
        once.it_value.tv_sec = activateTimer ? kSwitchOffDelaySeconds : 0;
        timer_settime(timer, 0, &once, nullptr);
    }
    EcallUITrace("TimerAudioRelay - Exit");
}

void RelayTimer_callback(union sigval sig) {
    EcallUITrace("RelayTimer_callback: sig = %d => switch off the audio relay", sig.sival_int);
    const std::lock_guard turn(SwitchOffTurn);
    if (std::exchange(isSwitchOffDue, false)) {
        GpioWrite(kGpioAudioRelay, 0);
    }
}
