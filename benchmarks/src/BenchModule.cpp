// What is measured on the whole service, in a virtual module with plain attribute files: the road from an airbag event
// to the request for a call, beside a program that makes just the road's system calls; and what the service costs to
// keep. The trace line is measured here too, since it wants the module's file system.

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
#include "LocationPeer.h"
#include "Measure.h"
#include "Module.h"
#include "Namespaces.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint16_t kEcallServicePort = 50911;
constexpr std::uint16_t kTriggerEcall = 0;
constexpr int kBlocks = 10;
constexpr int kPerBlock = 1000;
/// After this long without work a process is back in its select; a hundred times what one event takes.
constexpr microseconds kRest{500};

std::atomic<Nanoseconds> requestedAt{0};

/// One peer for the whole run; it outlives every program that connects to it.
void StartPeer() {
    std::uint16_t port = kEcallServicePort;
    const int listener = EchoPeerListen(port);
    if (listener < 0) {
        throw std::runtime_error("port 50911 cannot be bound in the module");
    }
    std::thread([listener] {
        EchoPeerServe(listener, [](std::uint16_t method) {
            if (method == kTriggerEcall) {
                requestedAt.store(Now(), std::memory_order_release);
            }
        });
    }).detach();
}

/// Sends an emergency and answers how long it took until the request for a call arrived; throws when none came.
Nanoseconds Emergency(Module& module) {
    requestedAt.store(0, std::memory_order_relaxed);
    const Nanoseconds sent = Now();
    module.uevents.Send({"change@" + module.devices.sensor, "ACTION=change", "ENS=EMERGENCY"});
    for (const Nanoseconds limit = sent + 10'000'000'000; requestedAt.load(std::memory_order_acquire) == 0;) {
        std::this_thread::sleep_for(kRest);
        if (Now() > limit) {
            throw std::runtime_error("no call was requested within 10 s of an emergency");
        }
    }
    const Nanoseconds took = requestedAt.load(std::memory_order_relaxed) - sent;
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

bool BenchRoad(Module& module) {
    std::vector<Nanoseconds> service;
    std::vector<Nanoseconds> floor;
    for (int block = 0; block < kBlocks; ++block) {
        const auto subject = RoadOf(module, BENCH_SERVICE, kPerBlock);
        service.insert(service.end(), subject.begin(), subject.end());
        const auto bare = RoadOf(module, BENCH_FLOOR_DAEMON, kPerBlock);
        floor.insert(floor.end(), bare.begin(), bare.end());
    }
    return PrintRatio("Airbag event -> call requested", service, floor, 1.5, stdout);
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
    LocationPeer positions(module.journal);
    if (!positions.Start()) {
        throw std::runtime_error("port 50778 cannot be bound in the module");
    }
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
    StartPeer();
    bool kept = true;
    {
        ModuleOptions options;
        options.attributeFiles = AttributeFiles::Plain;
        Module module(options);
        kept = BenchTraceLine(module) && kept;
        kept = BenchRoad(module) && kept;
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
