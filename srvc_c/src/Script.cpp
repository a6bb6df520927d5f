// The trap here is the fork: other threads may hold the locks of the trace, of stdio or of malloc at that moment, and
// in the child nobody will ever release them. So the child only makes system calls, and when it cannot become the
// script it sends its errno through a pipe that a successful exec closes; the parent writes the log line.
#include "Script.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "FileDescriptor.h"
#include "Trace.h"

namespace {

/// Between fork and exec: async-signal-safe calls only. What this process ignores or blocks is not meant for the
/// script.
[[noreturn]] void BecomeScript(const Script& script, int failurePipe) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    if (script.resultFile != nullptr) {
        unlink(script.resultFile);  // usually there is none
    }
    execl(script.path, script.name, script.argument, nullptr);
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

/// Waits for this child, or for any with -1. Answers its id, or -1 with errno; status is written on success only.
pid_t AwaitEnd(pid_t child, int& status) {
    pid_t ended = -1;
    do {
        ended = child < 0 ? wait(&status) : waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    return ended;
}

int WaitForScript(pid_t child, ScriptEnd end) {
    constexpr pid_t kAnyChild = -1;
    int status = 0;
    pid_t ended = AwaitEnd(end == ScriptEnd::ItsOwn ? child : kAnyChild, status);
    if (ended < 0 && end == ScriptEnd::ItsOwn) {
        ended = AwaitEnd(kAnyChild, status);
    }
    if (ended < 0) {
        EcallUITraceError("wait() failed (%s)", strerror(errno));
        return 0;
    }
    EcallUITrace("Child process exited with status %d", status);
    return status;
}

}  // namespace

int RunScript(const Script& script) {
    FailurePipe failure = OpenFailurePipe();
    const pid_t child = fork();
    if (child == 0) {
        BecomeScript(script, failure.writeEnd.get());
    }
    if (child < 0) {
        EcallUITraceError("fork() failed (%s)", strerror(errno));
        return 0;
    }
    failure.writeEnd.Close();
    const int error = ReadExecError(failure.readEnd.get());
    if (error != 0) {
        EcallUITraceError("execl %s %s failed ret = %d (%s)\n", script.path, script.action, -1, strerror(error));
    }
    return WaitForScript(child, script.end);
}
