// Why three processes: unshare(CLONE_NEWPID) only takes effect for children, so the caller stays outside; process 1 of
// a PID namespace ignores signals without a handler and confuses sanitizers, so it only reaps; the host is an ordinary
// process. Always an own user namespace, also for root: with only a network namespace the machine's real uevents leak
// in.
#include "Namespaces.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr char kAdvice[] =
    "The virtual module needs user, mount, network and PID namespaces; no root rights.\n"
    "  Debian, older kernels:  sysctl kernel.unprivileged_userns_clone=1\n"
    "  Ubuntu 24.04:           sysctl kernel.apparmor_restrict_unprivileged_userns=0\n"
    "  anywhere:               sysctl user.max_user_namespaces must not be 0\n"
    "  in a container:         allow unshare and mount (docker run --privileged, or --security-opt seccomp=unconfined\n"
    "                          --security-opt systempaths=unconfined --cap-add SYS_ADMIN --device /dev/fuse)\n";

[[noreturn]] void Refuse(const char* what) {
    fprintf(stderr, "%s: %s\n%s", what, strerror(errno), kAdvice);
    _exit(1);
}

void WriteProcFile(const char* path, const std::string& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        Refuse(path);
    }
    close(fd);
}

void Unshare() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWUTS) != 0) {
        Refuse("unshare");
    }
    WriteProcFile("/proc/self/setgroups", "deny");
    WriteProcFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    WriteProcFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// The parent may have ended before the death signal was asked for: it holds the other end of alive, so that shows.
void DieWithParent(int alive) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd parent{alive, POLLIN, 0};
    if (poll(&parent, 1, 0) != 0) {
        _exit(1);
    }
}

void MountOwnProc() {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        Refuse("making the mounts private");
    }
    if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        Refuse("mounting /proc");
    }
}

void BringUpLoopback() {
    ifreq request{};
    strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    request.ifr_flags = IFF_UP;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ioctl(fd, SIOCSIFFLAGS, &request) != 0) {
        Refuse("bringing lo up");
    }
    close(fd);
}

sigset_t WaitedSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&set, signal);
    }
    return set;
}

int ExitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Ends when child ends, with its exit status; other children are orphans to be reaped. The signals must be blocked.
int WaitForChild(pid_t child, const sigset_t& signals) {
    for (;;) {
        siginfo_t info{};
        if (sigwaitinfo(&signals, &info) < 0) {
            continue;
        }
        // A terminal's Ctrl-C has reached the child already: it is sent to the whole foreground group by the kernel.
        if (info.si_signo != SIGCHLD && info.si_code != SI_KERNEL) {
            kill(child, info.si_signo);
        }
        int status = 0;
        pid_t ended = 0;
        while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
            if (ended == child) {
                return ExitStatus(status);
            }
        }
    }
}

// Forks; the child gets a descriptor that hangs up when the parent is gone.
pid_t ForkWatched(int& alive) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        Refuse("pipe");
    }
    const pid_t child = fork();
    if (child < 0) {
        Refuse("fork");
    }
    alive = child == 0 ? ends[0] : ends[1];
    close(child == 0 ? ends[1] : ends[0]);
    return child;
}

[[noreturn]] void RunInit(int parent, const sigset_t& signals, const sigset_t& previous,
                          const std::function<int()>& body) {
    DieWithParent(parent);
    umask(022);  // the modes of the module's files must not depend on who starts it
    MountOwnProc();
    BringUpLoopback();
    int alive = -1;
    const pid_t host = ForkWatched(alive);
    if (host != 0) {
        _exit(WaitForChild(host, signals));
    }
    close(parent);
    DieWithParent(alive);
    close(alive);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    exit(body());
}

}  // namespace

void RunInModuleNamespaces(const std::function<int()>& body) {
    fflush(nullptr);           // what is buffered now would be printed by each of the processes
    signal(SIGCHLD, SIG_DFL);  // where the caller ignores it, children would vanish without a status
    const sigset_t signals = WaitedSignals();
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &signals, &previous);
    Unshare();
    int alive = -1;
    const pid_t init = ForkWatched(alive);
    if (init == 0) {
        RunInit(alive, signals, previous, body);
    }
    // Leave without exit handlers: a leak checker hangs in a process whose children live in another PID namespace.
    _exit(WaitForChild(init, signals));
}
