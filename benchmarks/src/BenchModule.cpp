// What is measured on the whole service, in a virtual module with plain attribute files: the road from an airbag event
// to the request for a call, beside a program that makes just the road's system calls; that of a position from the
// location service to the eCall service, likewise; and what the service costs to keep. The trace line is
// measured here too, since it wants the module's file system.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "BenchParameters.h"
#include "EchoPeer.h"
#include "Floor.h"
#include "Measure.h"
#include "Module.h"
#include "Namespaces.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint16_t kTriggerEcall = 0;
constexpr std::uint16_t kUpdateGnssLocation = 7;
constexpr std::uint16_t kLocationSubscribe = 5;
constexpr int kBlocks = 10;
constexpr int kPerBlock = 1000;
/// After this long without work a process is back in its select; a hundred times what one event takes.
constexpr microseconds kRest{500};

std::atomic<Nanoseconds> requestedAt{0};

std::atomic<Nanoseconds> forwardedAt{0};
std::atomic<int> positionsGoTo{-1};  ///< the connection that subscribed last

/// One peer for the whole run; it outlives every program that connects to it.
void StartPeer(std::uint16_t port, EchoPayloads payloads, EchoSeen seen) {
    const int listener = EchoPeerListen(port);
    if (listener < 0) {
        throw std::runtime_error("port " + std::to_string(port) + " cannot be bound in the module");
    }
    std::thread([listener, payloads, seen = std::move(seen)] { EchoPeerServe(listener, payloads, seen); }).detach();
}

void StartPeers() {
    StartPeer(kEcallServicePort, EcallPayload, [](std::uint16_t method, int) {
        if (method == kTriggerEcall) {
            requestedAt.store(Now(), std::memory_order_release);
        } else if (method == kUpdateGnssLocation) {
            forwardedAt.store(Now(), std::memory_order_release);
        }
    });
    StartPeer(kLocationServicePort, LocationPayload, [](std::uint16_t method, int connection) {
        if (method == kLocationSubscribe) {
            positionsGoTo.store(connection, std::memory_order_release);
        }
    });
}

/// Waits until a peer has stamped what it was sent, and answers the stamp; throws when nothing came.
Nanoseconds AwaitStamp(const std::atomic<Nanoseconds>& stamp, const char* what) {
    for (const Nanoseconds limit = Now() + 10'000'000'000; stamp.load(std::memory_order_acquire) == 0;) {
        std::this_thread::sleep_for(kRest);
        if (Now() > limit) {
            throw std::runtime_error(std::string(what) + " within 10 s");
        }
    }
    return stamp.load(std::memory_order_relaxed);
}

/// Sends an emergency and answers how long it took until the request for a call arrived; throws when none came.
Nanoseconds Emergency(Module& module) {
    requestedAt.store(0, std::memory_order_relaxed);
    const Nanoseconds sent = Now();
    module.uevents.Send({"change@" + module.devices.sensor, "ACTION=change", "ENS=EMERGENCY"});
    const Nanoseconds took = AwaitStamp(requestedAt, "no call was requested after an emergency") - sent;
    std::this_thread::sleep_for(kRest);
    module.uevents.Send({"change@" + module.devices.sensor, "ACTION=change", "ENS=NORMAL"});
    std::this_thread::sleep_for(kRest);
    return took;
}

/// The program with its console going nowhere: neither program is to wait for a reader.
ModuleProcess& StartSilent(Module& module, const std::string& program) {
    return module.Start("/bin/sh", {"-c", "exec " + module.root.Install(program) + " >/dev/null"});
}

/// Both programs say in the trace when they listen.
void AwaitListening(const Module& module, const ModuleProcess& process) {
    while (module.root.ReadFile(file::kTrace).value_or("").find("Wait for an event") == std::string::npos) {
        if (!process.IsRunning()) {
            throw std::runtime_error("the measured program ended at once: " + process.Errors());
        }
        std::this_thread::sleep_for(kRest);
    }
    std::this_thread::sleep_for(milliseconds(10));
}

std::vector<Nanoseconds> RoadOf(Module& module, const std::string& program, int events) {
    ModuleProcess& process = StartSilent(module, program);
    AwaitListening(module, process);
    for (int warmUp = 0; warmUp < 100; ++warmUp) {
        Emergency(module);
    }
    std::vector<Nanoseconds> samples;
    samples.reserve(static_cast<std::size_t>(events));
    for (int i = 0; i < events; ++i) {
        samples.push_back(Emergency(module));
    }
    process.Kill();
    module.root.Remove(file::kTrace);
    return samples;
}

void Append(std::vector<Nanoseconds>& samples, const std::vector<Nanoseconds>& more) {
    samples.insert(samples.end(), more.begin(), more.end());
}

bool BenchRoad(Module& module) {
    std::vector<Nanoseconds> service;
    std::vector<Nanoseconds> floor;
    for (int block = 0; block < kBlocks; ++block) {
        Append(service, RoadOf(module, BENCH_SERVICE, kPerBlock));
        Append(floor, RoadOf(module, BENCH_FLOOR_DAEMON, kPerBlock));
    }
    return PrintRatio("Airbag event -> call requested", service, floor, 1.5, stdout);
}

/// Sends a position and answers how long it took until it arrived at the eCall service.
Nanoseconds SendPosition() {
    static const std::string position = PositionNotification();
    forwardedAt.store(0, std::memory_order_relaxed);
    const Nanoseconds sent = Now();
    if (send(positionsGoTo.load(std::memory_order_relaxed), position.data(), position.size(), MSG_NOSIGNAL) < 0) {
        throw std::runtime_error("the program that forwards positions is gone");
    }
    const Nanoseconds took = AwaitStamp(forwardedAt, "no position was forwarded") - sent;
    std::this_thread::sleep_for(kRest);
    return took;
}

std::vector<Nanoseconds> ForwardingBy(Module& module, const std::string& program) {
    positionsGoTo.store(-1);
    ModuleProcess& process = StartSilent(module, program);
    while (positionsGoTo.load(std::memory_order_acquire) < 0) {
        if (!process.IsRunning()) {
            throw std::runtime_error("the program that forwards positions ended at once: " + process.Errors());
        }
        std::this_thread::sleep_for(kRest);
    }
    std::this_thread::sleep_for(milliseconds(100));  // its start-up is over
    for (int warmUp = 0; warmUp < 100; ++warmUp) {
        SendPosition();
    }
    std::vector<Nanoseconds> samples;
    samples.reserve(kPerBlock);
    for (int i = 0; i < kPerBlock; ++i) {
        samples.push_back(SendPosition());
    }
    process.Kill();
    module.root.Remove(file::kTrace);
    return samples;
}

bool BenchForwarding(Module& module) {
    module.root.WriteFile(file::kConfiguration, R"({"ConnectLocationService": true})");
    std::vector<Nanoseconds> service;
    std::vector<Nanoseconds> relay;
    for (int block = 0; block < kBlocks; ++block) {
        Append(service, ForwardingBy(module, BENCH_SERVICE));
        Append(relay, ForwardingBy(module, BENCH_FLOOR_RELAY));
    }
    module.root.Remove(file::kConfiguration);
    return PrintRatio("Position received -> sent on", service, relay, 1.5, stdout);
}

bool BenchTraceLine(Module& module) {
    ModuleProcess& process = StartSilent(module, BENCH_TRACE);
    const auto status = process.WaitForEnd(seconds(60));
    fputs(process.Errors().c_str(), stdout);
    return status == 0;
}

bool BenchStart(Module& module) {
    std::vector<Nanoseconds> starts;
    for (int i = 0; i < 20; ++i) {
        const auto mark = module.journal.Mark();
        const Nanoseconds start = Now();
        ModuleProcess& process = module.Start(BENCH_SERVICE);
        module.journal.Await(IsOnConsole("SetGpioServiceState - exit"), mark);
        starts.push_back(Now() - start);
        process.Kill();
    }
    return PrintFigure("exec -> first state handled", static_cast<double>(Quantile(starts, 0.5)) / 1e6, "ms", 20,
                       stdout);
}

/// What a second at idle costs, measured over some time.
struct IdleCost {
    double residentMib;
    double wakeups;
};

IdleCost MeasureIdle(Module& module) {
    constexpr int kWatched = 20;
    const auto mark = module.journal.Mark();
    ModuleProcess& process = module.Start(BENCH_SERVICE);
    module.journal.Await(IsOnConsole("Wait for an event (blocking wait) "), mark);
    std::this_thread::sleep_for(seconds(2));
    const ProcessUsage before = process.Usage();
    std::this_thread::sleep_for(seconds(kWatched));
    const ProcessUsage after = process.Usage();
    process.Kill();
    return {static_cast<double>(after.residentBytes) / 1048576,
            static_cast<double>(after.wakeups - before.wakeups) / kWatched};
}

/// demanded: the wake-ups a second that the service must make. One more is allowed: the ends of the watched time may
/// cut periods, and something rare may fall into it.
bool BenchIdle(Module& module, const std::string& what, double demanded) {
    const IdleCost cost = MeasureIdle(module);
    const bool resident = PrintFigure(("Resident" + what).c_str(), cost.residentMib, "MiB", 6, stdout);
    return PrintFigure(("Wake-ups a second" + what).c_str(), cost.wakeups, "", demanded + 1, stdout) && resident;
}

/// Main loop 2, self-test worker 1, two dispatch threads 5 each.
bool BenchIdleByDefault(Module& module) {
    return BenchIdle(module, " at idle", 13);
}

/// A dispatch thread more, and the button looked at 5 times. No position comes, which is reported every 10 s.
bool BenchIdleWithEverything(Module& module) {
    module.root.WriteFile(file::kConfiguration,
                          R"({"ConnectLocationService": true, "EcallButtonPullingDetectionMode": true})");
    const bool kept = BenchIdle(module, ", everything on", 23);
    module.root.Remove(file::kConfiguration);
    return kept;
}

bool BenchSize() {
    const std::string stripped = std::string(BENCH_SERVICE) + ".stripped";
    const std::string command = std::string("strip -o ") + stripped + " " + BENCH_SERVICE;
    struct stat file {};
    const bool done = std::system(command.c_str()) == 0 && stat(stripped.c_str(), &file) == 0;
    unlink(stripped.c_str());
    return done && PrintFigure("Stripped binary", static_cast<double>(file.st_size) / 1024, "KiB", 400, stdout);
}

int Bench() {
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    StartPeers();
    bool kept = true;
    {
        ModuleOptions options;
        options.attributeFiles = AttributeFiles::Plain;
        Module module(options);
        kept = BenchTraceLine(module) && kept;
        kept = BenchRoad(module) && kept;
        kept = BenchForwarding(module) && kept;
        kept = BenchParameters(module) && kept;
        kept = BenchStart(module) && kept;
        kept = BenchIdleByDefault(module) && kept;
        kept = BenchIdleWithEverything(module) && kept;
    }
    return BenchSize() && kept ? 0 : 1;
}

}  // namespace

int main() {
    RunInModuleNamespaces([]() -> int {
        int result = 1;
        try {
            result = Bench();
        } catch (const std::exception& error) {
            fprintf(stderr, "bench_module: %s\n", error.what());
        }
        std::_Exit(result);  // the peer's thread has no end
    });
}
