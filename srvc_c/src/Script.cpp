// The trap here is the fork: other threads may hold the locks of the trace, of stdio or of malloc at that moment, and
// in the child nobody will ever release them. So the child only makes system calls, and when it cannot become the
// script it sends its errno through a pipe that a successful exec closes; the parent writes the log line.
//
// And whose end it is: a wait for any child is also given the end of a script that another thread awaits as its own.
// That thread must not wait for some other child then, which may never end; it is told what the wait was given.
#include "Script.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>

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

void LogExecError(const Script& script, int error) {
    if (error != 0) {
        EcallUITraceError("execl %s %s failed ret = %d (%s)\n", script.path, script.action, -1, strerror(error));
    }
}

/// The end of a child that a thread awaits as its own. Listed, so that another thread that was given it can note it.
struct OwnEnd {
    pid_t child = -1;
    std::optional<int> status;  ///< noted by the other thread
    OwnEnd* next = nullptr;
};

/// All that are awaited. The mutex is taken last of all, and held over a fork and short looks at the list only.
struct OwnEnds {
    std::mutex mutex;
    std::condition_variable noted;
    OwnEnd* first = nullptr;
};

/// Never destroyed: threads may wait while the process ends.
OwnEnds& AllOwnEnds() {
    static auto* const all = new OwnEnds;
    return *all;
}

/// Forks and runs the script in the child. Lists own, unless it is null, before anybody can note that child's end.
/// Answers the child, or a negative errno.
pid_t ForkScript(const Script& script, int failurePipe, OwnEnd* own) {
    OwnEnds& all = AllOwnEnds();
    const std::lock_guard lock(all.mutex);  // also held in the child, which never asks for it
    const pid_t child = fork();
    if (child == 0) {
        BecomeScript(script, failurePipe);
    }
    if (child > 0 && own != nullptr) {
        *own = {.child = child, .status = std::nullopt, .next = all.first};
        all.first = own;
    }
    return child < 0 ? -errno : child;
}

void Unlist(const OwnEnd& own) {
    OwnEnds& all = AllOwnEnds();
    const std::lock_guard lock(all.mutex);
    OwnEnd** at = &all.first;
    while (*at != &own) {
        at = &(*at)->next;
    }
    *at = own.next;
}

void NoteEnd(pid_t child, int status) {
    OwnEnds& all = AllOwnEnds();
    const std::lock_guard lock(all.mutex);
    for (OwnEnd* own = all.first; own != nullptr; own = own->next) {
        if (own->child == child && !own->status) {  // the number may be in use again
            own->status = status;
        }
    }
    all.noted.notify_all();
}

/// Answers 0 or the errno, as those below do; the status is written with 0 only.
int AwaitAnyEnd(int& status) {
    pid_t ended = -1;
    do {
        ended = wait(&status);
    } while (ended < 0 && errno == EINTR);
    if (ended < 0) {
        return errno;
    }
    NoteEnd(ended, status);
    return 0;
}

/// Another thread was given the end, but may not have noted it yet.
int AwaitNote(const OwnEnd& own, int& status) {
    constexpr std::chrono::seconds kNoteWait{1};  // it is on its way, or nobody noted it and nobody ever will
    OwnEnds& all = AllOwnEnds();
    std::unique_lock lock(all.mutex);
    if (!all.noted.wait_for(lock, kNoteWait, [&own] { return own.status.has_value(); })) {
        return ECHILD;
    }
    status = own.status.value_or(0);
    return 0;
}

int AwaitOwnEnd(const OwnEnd& own, int& status) {
    pid_t ended = -1;
    do {
        ended = waitpid(own.child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    const int error = ended < 0 ? errno : 0;
    const int result = error == ECHILD ? AwaitNote(own, status) : error;
    Unlist(own);
    return result;
}

}  // namespace

int RunScript(const Script& script) {
    FailurePipe failure = OpenFailurePipe();
    OwnEnd own;
    const bool isOwn = script.end == ScriptEnd::ItsOwn;
    const pid_t child = ForkScript(script, failure.writeEnd.get(), isOwn ? &own : nullptr);
    if (child < 0) {
        EcallUITraceError("fork() failed (%s)", strerror(-child));
        return 0;
    }
    failure.writeEnd.Close();
    LogExecError(script, ReadExecError(failure.readEnd.get()));
    int status = 0;
    const int error = isOwn ? AwaitOwnEnd(own, status) : AwaitAnyEnd(status);
    if (error != 0) {
        EcallUITraceError("wait() failed (%s)", strerror(error));
        return 0;
    }
    EcallUITrace("Child process exited with status %d", status);
    return status;
}
