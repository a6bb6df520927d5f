/// A process of the module: the service, or any program put in its place.
#ifndef MODULE_PROCESS_H
#define MODULE_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Descriptor.h"
#include "IoctlSupervisor.h"
#include "Journal.h"

struct ProcessOptions {
    std::string name;                    ///< subject of its journal entries
    std::string program;                 ///< path in the module
    std::vector<std::string> arguments;  ///< without the program's own name
    std::vector<std::string> environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "TZ=UTC"};
    bool hasInput = false;  ///< standard input is a pipe fed by Input; otherwise it is /dev/null
};

/// What the kernel says of a process.
struct ProcessUsage {
    size_t residentBytes = 0;
    std::chrono::nanoseconds cpu{0};  ///< of all threads, user and system, in the kernel's ticks of 10 ms
    uint64_t wakeups = 0;             ///< voluntary context switches of all threads
    size_t threads = 0;
    size_t descriptors = 0;
};

class ModuleProcess {
  public:
    /// Starts the program with root as its root directory and no new privileges. Returns when it has been executed;
    /// throws std::runtime_error when that failed. The sanitizers' option variables are passed on from this process.
    ModuleProcess(Journal& journal, IoctlSupervisor& ioctls, const std::string& root, ProcessOptions options);
    /// Kills it and what it started.
    ~ModuleProcess();
    ModuleProcess(const ModuleProcess&) = delete;
    ModuleProcess& operator=(const ModuleProcess&) = delete;

    const std::string& Name() const { return options.name; }
    pid_t Pid() const { return pid; }
    bool IsRunning() const;
    /// Does nothing once it has ended.
    void Signal(int signal);
    /// The status as waitpid gives it; nullopt when it still runs after limit. From then on its end counts as expected.
    std::optional<int> WaitForEnd(std::chrono::milliseconds limit = Journal::kLimit);
    /// SIGKILL, and waits. What it started lives on.
    void Kill();
    /// The status when it has ended by itself: neither awaited here, nor by a SIGKILL of Kill.
    std::optional<int> UnexpectedEnd() const;

    /// Every byte so far, as written.
    std::string Output() const;
    std::string Errors() const;
    void Input(const std::string& text);
    void CloseInput();

    ProcessUsage Usage() const;

  private:
    struct Stream;

    void Launch(IoctlSupervisor& ioctls, const std::string& root, int feed, int output, int errors);
    [[noreturn]] void GiveUp(const std::string& step, int error);
    void Watch(Descriptor output, Descriptor errors);
    bool Drain(Stream& stream);
    void EndLine(Stream& stream);
    void Finish(int result);
    void Record(std::string text);

    Journal& journal;
    ProcessOptions options;
    pid_t pid = -1;
    Descriptor handle;  ///< pidfd
    Descriptor input;
    mutable std::mutex mutex;
    std::condition_variable ended;
    std::optional<int> status;
    bool isEndExpected = false;
    std::string outputBytes;
    std::string errorBytes;
    std::thread watcher;
};

/// "exited 0" or "killed by SIGKILL".
std::string PrintStatus(int status);

#endif
