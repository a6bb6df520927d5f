// One blocking call through the proxy beside a bare exchange on a socket with the same hand-over: the caller sends and
// sleeps, another thread receives and wakes it. The same peer process answers both.

#include <linux/futex.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <thread>

#include "EchoPeer.h"
#include "Floor.h"
#include "Measure.h"
#include "XirEcallapp.h"

namespace {

constexpr int kRounds = 50;
constexpr int kPerRound = 400;

/// A connection whose replies another thread receives.
class BareExchange {
  public:
    explicit BareExchange(std::uint16_t port) : fd(ConnectTo(port)) {
        std::thread([this] { Receive(); }).detach();
    }

    Nanoseconds Call() {
        // triggerEcall, manual: the very bytes that the proxy sends.
        static constexpr std::array<std::uint8_t, 14> request{2, 0, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 8, 0};
        const Nanoseconds start = Now();
        answered.store(0, std::memory_order_relaxed);
        if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
            std::exit(1);
        }
        while (answered.load(std::memory_order_acquire) == 0) {
            syscall(SYS_futex, &answered, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
        }
        return Now() - start;
    }

  private:
    void Receive() {
        const int poller = epoll_create1(EPOLL_CLOEXEC);
        epoll_event event{};
        event.events = EPOLLIN;
        epoll_ctl(poller, EPOLL_CTL_ADD, fd, &event);
        std::array<std::uint8_t, 4096> buffer{};
        while (epoll_wait(poller, &event, 1, -1) == 1 && recv(fd, buffer.data(), buffer.size(), 0) > 0) {
            answered.store(1, std::memory_order_release);
            syscall(SYS_futex, &answered, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
        }
    }

    int fd;
    std::atomic<std::uint32_t> answered{0};
};

}  // namespace

int main() {
    std::uint16_t port = 0;
    const int listener = EchoPeerListen(port);
    const pid_t peer = fork();
    if (peer == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        EchoPeerServe(listener, EcallPayload, [](std::uint16_t, int) {});
    }
    const std::string url = "xirtcp://127.0.0.1:" + std::to_string(port);
    const XirConnection connection{"EcallAppClient", url.c_str()};
    IEcallAppPubProxy* proxy = nullptr;
    if (XirEcallapp_createProxy(&proxy, &connection) != 0 || proxy == nullptr) {
        fputs("no connection to the benchmark's own peer\n", stderr);
        return 1;
    }
    static BareExchange bare(port);
    auto call = [proxy] {
        const Nanoseconds start = Now();
        if (XirEcallapp_triggerEcall(proxy, 0) != 0) {
            std::exit(1);
        }
        return Now() - start;
    };
    std::vector<Nanoseconds> calls;
    std::vector<Nanoseconds> exchanges;
    MeasureInTurn(
        kRounds, kPerRound, call, [] { return bare.Call(); }, calls, exchanges);
    const bool kept = PrintRatio("One blocking call through the proxy", calls, exchanges, 1.3, stderr);
    kill(peer, SIGKILL);
    std::_Exit(kept ? 0 : 1);
}
