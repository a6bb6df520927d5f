#include "ServiceWorld.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;

Match IsTracedAs(std::string message) {
    return {.kind = Kind::Trace, .text = std::move(message)};
}

Match IsInSyslogAs(std::string message) {
    return {.kind = Kind::Syslog, .text = std::move(message)};
}

Match IsReplyTo(std::string method) {
    return {.kind = Kind::RpcReply, .subject = std::move(method)};
}

void ServiceWorld::Configure(const std::string& members) {
    module.root.WriteFile(file::kConfiguration, "{" + members + "}");
}

void ServiceWorld::Start() {
    ASSERT_TRUE(peer.Start());
    module.StartService();
    AwaitReady();
}

void ServiceWorld::AwaitReady(uint64_t from) {
    // On the console: some tests leave the service without a trace file.
    module.journal.Await(IsWithinConsoleLine("Wait for an event (blocking wait) "), from);
}

void ServiceWorld::AwaitRest() {
    AwaitReady();
    AwaitSleep(module.Service(), "XirEcallUIappSr");
}

bool ServiceWorld::IsCrashReported() {
    const size_t before = peer.Requests(EcallMethod::TriggerEcall);
    const uint64_t mark = module.journal.Mark();
    module.SensorBecomes(SensorStatus::Emergency);
    if (!peer.AwaitRequests(EcallMethod::TriggerEcall, before + 1)) {
        return false;
    }
    module.journal.Await(IsWithinConsoleLine("service state    : TEcallappServiceState_ActiveAutomaticECall (101) "),
                         mark);
    return peer.Requests(EcallMethod::TriggerEcall) == before + 1;
}

/// A message of the test's own takes the same road: when it has arrived, so has all that was sent before.
void ServiceWorld::AwaitSystemLog() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    module.root.Outside("/dev/log").copy(address.sun_path, sizeof address.sun_path - 1);
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::string message = "<13>test: settled";
    const uint64_t mark = module.journal.Mark();
    EXPECT_EQ(static_cast<ssize_t>(message.size()),
              sendto(log, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&address), sizeof address))
        << strerror(errno);
    close(log);
    module.journal.Await(IsInSyslog("settled"), mark);
}

std::vector<std::string> ServiceWorld::TraceMessages() {
    std::vector<std::string> messages;
    std::istringstream lines(module.root.ReadFile(file::kTrace).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        messages.push_back(TraceTail::Parse(line).text);
    }
    return messages;
}

std::vector<std::string> ServiceWorld::SystemLog() {
    AwaitSystemLog();
    return module.journal.Texts({.kind = Kind::Syslog, .subject = "XirEcallUIappSrvc"});
}

namespace {

struct SystemCall {
    long number = -1;
    std::array<uintptr_t, 4> arguments{};

    bool operator==(const SystemCall&) const = default;
};

/// The call in which a thread waits; without number while it runs.
SystemCall CallOf(const std::filesystem::path& task) {
    SystemCall found;
    std::ifstream call(task / "syscall");
    call >> found.number >> std::hex;
    for (uintptr_t& argument : found.arguments) {
        std::string text;
        call >> text;
        argument = text.empty() ? 0 : std::stoull(text, nullptr, 16);
    }
    return found;
}

/// The duration that a thread has just handed to the kernel's sleep; none while it does anything else.
std::optional<std::chrono::nanoseconds> SleepOf(pid_t pid, const std::filesystem::path& task) {
    const SystemCall call = CallOf(task);
    if (call.number != SYS_clock_nanosleep && call.number != SYS_nanosleep) {
        return std::nullopt;
    }
    timespec duration{};
    const iovec here{&duration, sizeof duration};
    const iovec there{std::bit_cast<void*>(call.arguments[call.number == SYS_clock_nanosleep ? 2 : 0]),
                      sizeof duration};
    if (process_vm_readv(pid, &here, 1, &there, 1, 0) != static_cast<ssize_t>(sizeof duration)) {
        return std::nullopt;
    }
    if (CallOf(task) != call) {
        return std::nullopt;  // it slept when it was looked at, but what was read may be of later
    }
    return std::chrono::seconds(duration.tv_sec) + std::chrono::nanoseconds(duration.tv_nsec);
}

std::string NameOf(const std::filesystem::path& task) {
    std::string name;
    std::getline(std::ifstream(task / "comm"), name);
    return name;
}

}  // namespace

namespace {

/// Looks at the threads of that name until look(task) answers something; nothing at the limit.
template <typename Look>
auto AwaitThread(const ModuleProcess& process, const std::string& name, Look look) {
    const std::string tasks = "/proc/" + std::to_string(process.Pid()) + "/task";
    const std::filesystem::path first = tasks + "/" + std::to_string(process.Pid());
    for (const auto deadline = Journal::Clock::now() + Journal::kLimit; Journal::Clock::now() < deadline;) {
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            // A sanitizer keeps a thread under the name of the first one.
            if (NameOf(task) != name || (name == NameOf(first) && task.path() != first)) {
                continue;
            }
            if (const auto seen = look(task)) {
                return seen;
            }
        }
        std::this_thread::sleep_for(1ms);
    }
    return decltype(look(first)){};
}

}  // namespace

std::chrono::nanoseconds AwaitSleep(const ModuleProcess& process, const std::string& name) {
    const auto sleep = AwaitThread(process, name, [&](const auto& task) { return SleepOf(process.Pid(), task); });
    EXPECT_TRUE(sleep) << "no thread " << name << " that sleeps";
    return sleep.value_or(0ns);
}

bool IsAsleep(const ModuleProcess& process, const std::string& name) {
    const auto isAsleep = AwaitThread(
        process, name, [&](const auto& task) { return std::optional(SleepOf(process.Pid(), task).has_value()); });
    EXPECT_TRUE(isAsleep) << "no thread " << name;
    return isAsleep.value_or(false);
}

void AwaitLockWait(const ModuleProcess& process, const std::string& name) {
    const bool waits = AwaitThread(process, name, [](const auto& task) { return CallOf(task).number == SYS_futex; });
    EXPECT_TRUE(waits) << "no thread " << name << " that waits for another one";
}

void AwaitLongWrite(const ModuleProcess& process, const std::string& name) {
    constexpr uintptr_t kPipeSize = 65536;
    const bool writes = AwaitThread(process, name, [](const auto& task) {
        const auto [number, arguments] = CallOf(task);
        return number == SYS_write && arguments[2] > kPipeSize;
    });
    EXPECT_TRUE(writes) << "no thread " << name << " that writes much";
}
