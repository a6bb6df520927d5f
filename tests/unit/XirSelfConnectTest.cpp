// Runs in a network namespace of its own, where the only port for outgoing connections can be the very one that is
// called: then the kernel connects the socket to itself.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cstring>
#include <fstream>

#include "XirCommonRpcWorld.h"

namespace {

void BringLoopbackUp() {
    const RawSocket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    ASSERT_EQ(0, ioctl(socket.Fd(), SIOCSIFFLAGS, &request));
}

void AllowOnlyPort(uint16_t port) {
    std::ofstream range("/proc/sys/net/ipv4/ip_local_port_range");
    range << port << ' ' << port << std::endl;
    ASSERT_TRUE(range.good());
}

void SeeASocketConnectToItself(uint16_t port) {
    const RawSocket socket = RawSocket::ConnectTcp(port);
    ASSERT_TRUE(socket.IsOpen());
    const linger resetOnClose = {.l_onoff = 1, .l_linger = 0};
    ASSERT_EQ(0, setsockopt(socket.Fd(), SOL_SOCKET, SO_LINGER, &resetOnClose, sizeof resetOnClose));
}

}  // namespace

TEST(XirSelfConnect, AClientNeverTakesItselfForItsPeer) {
    constexpr uint16_t kPort = 50911;
    ASSERT_NO_FATAL_FAILURE(BringLoopbackUp());
    ASSERT_NO_FATAL_FAILURE(AllowOnlyPort(kPort));
    ASSERT_NO_FATAL_FAILURE(SeeASocketConnectToItself(kPort));

    Client client(XIR_COMMON_RPC_TRANSPORT_TCP, "127.0.0.1:50911");
    ASSERT_TRUE(client.errors.Wait(1));

    EXPECT_EQ(0, client.opened.Count());
    // The real server still gets its port, between two attempts of the client.
    RawSocket server = RawSocket::ListenTcp(kPort);
    for (const auto end = std::chrono::steady_clock::now() + kPatience;
         !server.IsOpen() && std::chrono::steady_clock::now() < end;) {
        std::this_thread::yield();
        server = RawSocket::ListenTcp(kPort);
    }
    ASSERT_TRUE(server.IsOpen());
    std::ofstream("/proc/sys/net/ipv4/ip_local_port_range") << "40000 50000" << std::endl;
    EXPECT_TRUE(client.WaitConnected());
}
