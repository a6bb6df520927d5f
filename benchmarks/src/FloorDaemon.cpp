// The floor of the road from an airbag event to the request for a call: a program that makes just the system calls that
// the road demands (select, recvmsg, a console and a trace line for each message, the request), and decides nothing.

#include <linux/netlink.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "Floor.h"
#include "FloorLine.h"

namespace {

// triggerEcall, automatic: the very bytes that the proxy sends.
constexpr std::string_view kCallRequest("\2\0\0\0\0\0\1\0\1\0\0\0\10\1", 14);

int ListenToKernel() {
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = static_cast<std::uint32_t>(getpid());
    address.nl_groups = 0xFFFFFFFF;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        perror("FloorDaemon: no event socket");
        _exit(1);
    }
    return fd;
}

std::string_view Receive(int events, std::array<char, 512>& buffer) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(events, &set);
    select(events + 1, &set, nullptr, nullptr, nullptr);
    FloorLine("NbReadyDescriptor = 1 ");
    iovec vector{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    const ssize_t count = recvmsg(events, &message, 0);
    return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

}  // namespace

int main() {
    const int peer = ConnectTo(kEcallServicePort);
    const int events = ListenToKernel();
    std::array<char, 512> buffer{};
    for (;;) {
        FloorLine("Wait for an event (blocking wait) ");
        const std::string_view datagram = Receive(events, buffer);
        if (datagram.find("EMERGENCY") != std::string_view::npos) {
            FloorLine("ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)");
            FloorLine("ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)");
            Exchange(peer, kCallRequest);
        }
    }
}
