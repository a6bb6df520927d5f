// Between fork and exec the child of a threaded process may only make system calls: everything it needs is laid ready
// before. The filter's listener comes back over a socket pair. The child then waits for a word on the same socket, so
// that nothing it does gets into the journal before its start. An errno that follows says that the exec failed, the
// socket's closing that it worked.
#include "ModuleProcess.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

void Check(bool good, const std::string& what) {
    if (!good) {
        throw std::runtime_error(what + ": " + strerror(errno));
    }
}

constexpr const char* kPassedOn[] = {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"};

// Everything that the child needs, ready before the fork.
struct ChildPlan {
    const char* root;
    char* const* arguments;
    char* const* environment;
    const sock_fprog* filter;
    int input;
    int output;
    int errors;
    int report;
};

// What the child says of itself: its listener, or an errno alone.
struct Report {
    int error = 0;
    int listener = -1;
};

struct ReportMessage {
    int error = 0;
    iovec data{&error, sizeof error};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr header{};

    ReportMessage() {
        header.msg_iov = &data;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
};

void SendListener(int connection, int listener) {
    ReportMessage message;
    cmsghdr* item = CMSG_FIRSTHDR(&message.header);
    item->cmsg_level = SOL_SOCKET;
    item->cmsg_type = SCM_RIGHTS;
    item->cmsg_len = CMSG_LEN(sizeof listener);
    memcpy(CMSG_DATA(item), &listener, sizeof listener);
    sendmsg(connection, &message.header, MSG_NOSIGNAL);
}

// Waits for the child's next word; its silence at its exec is a report without error and listener.
Report ReceiveReport(int connection) {
    ReportMessage message;
    Report report;
    if (recvmsg(connection, &message.header, MSG_CMSG_CLOEXEC | MSG_WAITALL) > 0) {
        report.error = message.error;
        const cmsghdr* item = CMSG_FIRSTHDR(&message.header);
        if (item != nullptr && item->cmsg_type == SCM_RIGHTS) {
            memcpy(&report.listener, CMSG_DATA(item), sizeof report.listener);
        }
    }
    return report;
}

int InstallFilter(const sock_fprog* filter) {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return -1;
    }
    // Killable: a timer faster than the supervisor would otherwise interrupt the ioctl again and again, for ever.
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                    SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, filter));
}

// What the host ignores or blocks would stay so through the exec; an ignored SIGPIPE would even hide a fault.
void ResetSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        sigaction(number, &action, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// System calls only.
void RunChild(const ChildPlan& plan) {
    ResetSignals();
    umask(022);
    setsid();
    dup2(plan.input, 0);
    dup2(plan.output, 1);
    dup2(plan.errors, 2);
    if (chroot(plan.root) != 0 || chdir("/") != 0) {
        return;
    }
    const int listener = InstallFilter(plan.filter);
    if (listener < 0) {
        return;
    }
    SendListener(plan.report, listener);
    char go = 0;
    if (read(plan.report, &go, 1) != 1) {
        return;
    }
    syscall(SYS_close_range, 3, ~0U, CLOSE_RANGE_CLOEXEC);
    execve(plan.arguments[0], plan.arguments, plan.environment);
}

struct Pipe {
    Descriptor read;
    Descriptor write;

    Pipe() {
        int ends[2];
        Check(pipe2(ends, O_CLOEXEC) == 0, "pipe");
        read = Descriptor(ends[0]);
        write = Descriptor(ends[1]);
    }
};

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Names in a directory but "." and ".."; none when it cannot be read.
std::vector<std::string> Names(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

uint64_t StatusNumber(const std::string& path, const std::string& key) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key + ":")) {
            return strtoull(line.c_str() + key.size() + 1, nullptr, 10);
        }
    }
    return 0;
}

std::vector<std::string> WithFirst(const std::string& first, std::vector<std::string> rest) {
    rest.insert(rest.begin(), first);
    return rest;
}

std::vector<std::string> WithSanitizerOptions(std::vector<std::string> environment) {
    for (const char* name : kPassedOn) {
        if (const char* value = getenv(name)) {
            environment.push_back(std::string(name) + "=" + value);
        }
    }
    return environment;
}

// User and system time are the 12th and 13th word after the name, which stands in brackets and may hold blanks.
std::chrono::nanoseconds ReadCpuTime(const std::string& statFile) {
    std::ifstream file(statFile);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    std::istringstream words(text.substr(std::min(text.size(), text.rfind(')') + 1)));
    std::string skipped;
    for (int i = 0; i < 11; ++i) {
        words >> skipped;
    }
    int64_t user = 0;
    int64_t system = 0;
    words >> user >> system;
    return std::chrono::seconds(user + system) / sysconf(_SC_CLK_TCK);
}

}  // namespace

std::string PrintStatus(int status) {
    if (WIFEXITED(status)) {
        return "exited " + std::to_string(WEXITSTATUS(status));
    }
    const char* name = sigabbrev_np(WTERMSIG(status));
    return std::string("killed by SIG") + (name != nullptr ? name : "?");
}

struct ModuleProcess::Stream {
    Descriptor descriptor;
    Kind kind;
    std::string* bytes;
    std::string line{};
};

ModuleProcess::ModuleProcess(Journal& theJournal, IoctlSupervisor& ioctls, const std::string& root,
                             ProcessOptions theOptions)
    : journal(theJournal), options(std::move(theOptions)) {
    Pipe output;
    Pipe errors;
    Descriptor feed;
    if (options.hasInput) {
        Pipe pipe;
        feed = std::move(pipe.read);
        input = std::move(pipe.write);
    } else {
        feed = Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    Launch(ioctls, root, feed.Get(), output.write.Get(), errors.write.Get());
    watcher = std::thread(
        [this, out = output.read.Release(), err = errors.read.Release()] { Watch(Descriptor(out), Descriptor(err)); });
}

// Forks, records the start and executes.
void ModuleProcess::Launch(IoctlSupervisor& ioctls, const std::string& root, int feed, int output, int errors) {
    const std::vector<std::string> arguments = WithFirst(options.program, options.arguments);
    const std::vector<std::string> environment = WithSanitizerOptions(options.environment);
    const std::vector<char*> argumentPointers = Pointers(arguments);
    const std::vector<char*> environmentPointers = Pointers(environment);
    std::vector<sock_filter> filter = IoctlSupervisor::Filter();
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    int ends[2];
    Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    const Descriptor report(ends[0]);
    Descriptor childReport(ends[1]);
    const ChildPlan plan{root.c_str(), argumentPointers.data(), environmentPointers.data(), &program, feed, output,
                         errors,       childReport.Get()};
    pid = fork();
    Check(pid >= 0, "fork");
    if (pid == 0) {
        RunChild(plan);
        const int error = errno;
        [[maybe_unused]] const ssize_t told = write(plan.report, &error, sizeof error);
        _exit(127);
    }
    childReport.Close();
    const Report prepared = ReceiveReport(report.Get());
    if (prepared.listener < 0) {
        GiveUp("preparing it (its ioctl filter needs Linux 5.19)", prepared.error);
    }
    ioctls.Serve(prepared.listener);
    handle = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    Record("started");
    send(report.Get(), "", 1, MSG_NOSIGNAL);
    if (const int error = ReceiveReport(report.Get()).error) {
        GiveUp("executing it", error);
    }
}

void ModuleProcess::GiveUp(const std::string& step, int error) {
    waitpid(pid, nullptr, 0);
    Record("not executed");
    throw std::runtime_error("starting " + options.program + ": " + step + ": " + strerror(error));
}

ModuleProcess::~ModuleProcess() {
    kill(-pid, SIGKILL);  // it leads its own group, so this reaches its scripts and shells too
    watcher.join();
    waitpid(pid, nullptr, 0);
}

bool ModuleProcess::IsRunning() const {
    const std::lock_guard lock(mutex);
    return !status;
}

void ModuleProcess::Signal(int signal) {
    const std::lock_guard lock(mutex);
    if (!status) {
        syscall(SYS_pidfd_send_signal, handle.Get(), signal, nullptr, 0);
    }
}

std::optional<int> ModuleProcess::WaitForEnd(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    isEndExpected = true;
    ended.wait_until(lock, Journal::Clock::now() + limit, [this] { return status.has_value(); });
    return status;
}

void ModuleProcess::Kill() {
    Signal(SIGKILL);
    std::unique_lock lock(mutex);
    ended.wait(lock, [this] { return status.has_value(); });
    isEndExpected |= WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL;
}

std::optional<int> ModuleProcess::UnexpectedEnd() const {
    const std::lock_guard lock(mutex);
    return isEndExpected ? std::nullopt : status;
}

std::string ModuleProcess::Output() const {
    const std::lock_guard lock(mutex);
    return outputBytes;
}

std::string ModuleProcess::Errors() const {
    const std::lock_guard lock(mutex);
    return errorBytes;
}

void ModuleProcess::Input(const std::string& text) {
    Check(write(input.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), "feeding " + Name());
}

void ModuleProcess::CloseInput() {
    input.Close();
}

// Reads both streams until the process has ended and they are empty. Who inherited them may still hold them open.
void ModuleProcess::Watch(Descriptor output, Descriptor errors) {
    Stream streams[] = {{std::move(output), Kind::Console, &outputBytes},
                        {std::move(errors), Kind::Stderr, &errorBytes}};
    pollfd waits[] = {
        {streams[0].descriptor.Get(), POLLIN, 0}, {streams[1].descriptor.Get(), POLLIN, 0}, {handle.Get(), POLLIN, 0}};
    for (const Stream& stream : streams) {
        fcntl(stream.descriptor.Get(), F_SETFL, O_NONBLOCK);
    }
    while (waits[2].revents == 0) {
        poll(waits, 3, -1);
        for (size_t i = 0; i < 2; ++i) {
            if (waits[i].fd >= 0 && waits[i].revents != 0 && !Drain(streams[i])) {
                waits[i].fd = -1;
            }
        }
    }
    for (Stream& stream : streams) {
        Drain(stream);
        if (!stream.line.empty() && stream.line != "\r") {
            EndLine(stream);
        }
    }
    // Left as a zombie until the end, so that its number, which is also its group's, is not given away anew.
    siginfo_t info{};
    waitid(P_PIDFD, static_cast<id_t>(handle.Get()), &info, WEXITED | WNOWAIT);
    Finish(info.si_code == CLD_EXITED ? W_EXITCODE(info.si_status, 0) : info.si_status);
}

void ModuleProcess::EndLine(Stream& stream) {
    const bool hasReturn = stream.line.starts_with('\r');
    journal.Append(stream.kind, options.name, stream.line.substr(hasReturn ? 1 : 0));
    stream.line.clear();
}

// Takes what is there; answers false at the stream's end. A line ends with "\n"; the "\r" that follows it belongs to
// it.
bool ModuleProcess::Drain(Stream& stream) {
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t count = read(stream.descriptor.Get(), buffer.data(), buffer.size());
        if (count <= 0) {
            return count < 0 && (errno == EAGAIN || errno == EINTR);
        }
        const std::string_view bytes(buffer.data(), static_cast<size_t>(count));
        {
            const std::lock_guard lock(mutex);
            stream.bytes->append(bytes);
        }
        for (const char byte : bytes) {
            if (byte == '\n') {
                EndLine(stream);
            } else {
                stream.line += byte;
            }
        }
    }
}

void ModuleProcess::Finish(int result) {
    Record(PrintStatus(result));
    const std::lock_guard lock(mutex);
    status = result;
    ended.notify_all();
}

void ModuleProcess::Record(std::string text) {
    Entry entry;
    entry.kind = Kind::Process;
    entry.subject = options.name;
    entry.text = std::move(text);
    entry.pid = pid;
    journal.Append(std::move(entry));
}

ProcessUsage ModuleProcess::Usage() const {
    const std::string directory = "/proc/" + std::to_string(pid);
    ProcessUsage usage;
    usage.residentBytes = StatusNumber(directory + "/status", "VmRSS") * 1024;
    usage.descriptors = Names(directory + "/fd").size();
    usage.cpu = ReadCpuTime(directory + "/stat");
    const std::filesystem::path tasks = directory + "/task";
    for (const std::string& task : Names(tasks)) {
        ++usage.threads;
        usage.wakeups += StatusNumber(tasks / task / "status", "voluntary_ctxt_switches");
    }
    return usage;
}
