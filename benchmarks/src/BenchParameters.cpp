#include "BenchParameters.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Measure.h"
#include "Module.h"

namespace {

using std::chrono::milliseconds;

constexpr std::uint16_t kServicePort = 50101;
constexpr int kBlocks = 5;
constexpr int kReadsAlone = 2000;  // of each block
constexpr int kReadsOfEach = 500;  // likewise, when eight read at once
constexpr int kClients = 8;

/// A client's end: it sends the request's bytes and waits for the reply's, and does nothing else.
class Reader {
  public:
    Reader() : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        Connect();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() { close(fd); }

    Nanoseconds Read() const {
        // getUiCfgParameter, LED_PWM_PERIOD_MS.
        static constexpr std::array<std::uint8_t, 14> kRequest{2, 0, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 8, 7};
        std::array<std::uint8_t, 64> reply{};
        const Nanoseconds start = Now();
        if (send(fd, kRequest.data(), kRequest.size(), MSG_NOSIGNAL) != ssize_t{kRequest.size()} ||
            recv(fd, reply.data(), reply.size(), 0) <= 12) {
            throw std::runtime_error("a parameter read got no reply");
        }
        return Now() - start;
    }

  private:
    /// The program under measure may only just have started.
    void Connect() const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(kServicePort);
        for (int attempt = 0; attempt < 1000; ++attempt) {
            if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
                return;
            }
            std::this_thread::sleep_for(milliseconds(10));
        }
        throw std::runtime_error("nobody listens on port 50101 of the module");
    }

    int fd;
};

struct Samples {
    std::vector<Nanoseconds> alone;     ///< one read
    std::vector<Nanoseconds> together;  ///< wall-clock time over number of reads, with eight readers
};

void ReadAlone(Samples& samples) {
    const Reader reader;
    for (int warmUp = 0; warmUp < 100; ++warmUp) {
        reader.Read();
    }
    for (int i = 0; i < kReadsAlone; ++i) {
        samples.alone.push_back(reader.Read());
    }
}

void ReadTogether(Samples& samples) {
    const std::array<Reader, kClients> readers;
    std::vector<std::jthread> threads;
    threads.reserve(readers.size());
    const Nanoseconds start = Now();
    for (const Reader& reader : readers) {
        threads.emplace_back([&reader] {
            for (int i = 0; i < kReadsOfEach; ++i) {
                reader.Read();
            }
        });
    }
    threads.clear();
    samples.together.push_back((Now() - start) / (Nanoseconds{kClients} * kReadsOfEach));
}

void Measure(Module& module, const std::string& program, const std::string& argument, Samples& samples) {
    const std::string command = "exec " + module.root.Install(program) + argument + " >/dev/null";
    ModuleProcess& process = module.Start("/bin/sh", {"-c", command});
    ReadAlone(samples);
    ReadTogether(samples);
    process.Kill();
    module.root.Remove(file::kTrace);
}

}  // namespace

bool BenchParameters(Module& module) {
    Samples service;
    Samples floor;
    Samples echo;
    for (int block = 0; block < kBlocks; ++block) {
        Measure(module, BENCH_SERVICE, "", service);
        Measure(module, BENCH_FLOOR_SERVER, "", floor);
        Measure(module, BENCH_FLOOR_SERVER, " --silent", echo);
    }
    const bool kept = PrintRatio("Parameter read, 1 client", service.alone, floor.alone, 1.5, stdout);
    const bool keptTogether =
        PrintRatio("Parameter read, 8 clients at once", service.together, floor.together, 1.5, stdout);
    PrintComparison("... beside an echo without log, 1 client", service.alone, echo.alone, stdout);
    PrintComparison("... beside an echo without log, 8 clients", service.together, echo.together, stdout);
    printf("%-42s %9.0f calls a second\n", "Parameter reads of 8 clients",
           1e9 / static_cast<double>(Quantile(service.together, 0.5)));
    return kept && keptTogether;
}
