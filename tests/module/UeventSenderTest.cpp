// What the kernel promises about its events, and that the module's arrive just like them.
#include "UeventSender.h"

#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>

#include "Descriptor.h"
#include "Module.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// A listener as the service is one.
Descriptor Listen() {
    Descriptor listener(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 0xFFFFFFFF;
    EXPECT_EQ(0, bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address));
    return listener;
}

uint32_t PortOf(const Descriptor& listener) {
    sockaddr_nl address{};
    socklen_t size = sizeof address;
    getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    return address.nl_pid;
}

struct Received {
    int error = 0;
    std::string bytes;
    uint32_t port = 0;
};

Received Receive(const Descriptor& listener) {
    char bytes[4096];
    sockaddr_nl sender{};
    socklen_t size = sizeof sender;
    const ssize_t count =
        recvfrom(listener.Get(), bytes, sizeof bytes, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &size);
    if (count < 0) {
        return {errno, {}, 0};
    }
    return {0, std::string(bytes, static_cast<size_t>(count)), sender.nl_pid};
}

}  // namespace

TEST(UeventSender, AnEventArrivesFromTheKernelWithASequenceNumber) {
    Module module;
    const Descriptor listener = Listen();

    module.uevents.Send({"change@/devices/vantu_pwm.0", "EVENT=EMERGENCY"});

    const Received event = Receive(listener);
    EXPECT_EQ(0, event.error);
    EXPECT_EQ(0U, event.port);
    const std::string strings("change@/devices/vantu_pwm.0\0EVENT=EMERGENCY\0SEQNUM=", 51);
    EXPECT_THAT(event.bytes, AllOf(StartsWith(strings), EndsWith(std::string(1, '\0'))));
    EXPECT_EQ(EAGAIN, Receive(listener).error) << "and arrives once";
}

TEST(UeventSender, TheJournalHasTheEventBeforeAnyoneCouldAct) {
    Module module;

    module.uevents.Send({"change@/devices/vantu_pwm.0", "ACTION=change", "EVENT=NORMAL"});

    const Entry entry = module.journal.All(IsKind(Kind::Uevent)).at(0);
    EXPECT_EQ("change@/devices/vantu_pwm.0", entry.subject);
    EXPECT_EQ("ACTION=change EVENT=NORMAL", entry.text);
    EXPECT_EQ(std::string("change@/devices/vantu_pwm.0\0ACTION=change\0EVENT=NORMAL\0", 55), entry.bytes);
}

TEST(UeventSender, BytesThatAreNoProperEventArriveAsTheyAre) {
    Module module;
    const Descriptor listener = Listen();

    module.uevents.SendRaw("EMERGENCY");

    EXPECT_THAT(Receive(listener).bytes, StartsWith("EMERGENCYSEQNUM="));
}

TEST(UeventSender, AnEventLongerThanTheKernelsIsRefused) {
    Module module;

    EXPECT_NO_THROW(module.uevents.SendRaw(std::string(1900, 'x')));
    EXPECT_THROW(module.uevents.SendRaw(std::string(2048, 'x')), std::runtime_error);
}

TEST(UeventSender, WithoutAListenerAnEventIsLostQuietly) {
    Module module;

    EXPECT_NO_THROW(module.SensorBecomes(SensorStatus::Normal));
}

TEST(UeventSender, AProcessWithoutPrivilegeCannotForgeAnEvent) {
    Module module;
    const Descriptor listener = Listen();

    ModuleProcess& forger = module.Start(MODULE_PROBE, {"drop", "forge", std::to_string(PortOf(listener))});

    EXPECT_EQ(0, forger.WaitForEnd());
    EXPECT_EQ(
        "drop ok\n\rmulticast Operation not permitted\n\runicast Operation not permitted\n\r"
        "relay Operation not permitted\n\r",
        forger.Output());
    EXPECT_EQ(EAGAIN, Receive(listener).error);
}

TEST(UeventSender, APrivilegedProcessThatMulticastsShowsItsPort) {
    Module module;
    const Descriptor listener = Listen();

    ModuleProcess& sender = module.Start(MODULE_PROBE, {"forge", std::to_string(PortOf(listener))});

    EXPECT_EQ(0, sender.WaitForEnd());
    const Received multicast = Receive(listener);
    EXPECT_NE(0U, multicast.port);
    EXPECT_THAT(multicast.bytes, Not(HasSubstr("SEQNUM")));
    EXPECT_NE(0U, Receive(listener).port) << "so does one that sends to this listener alone";
    EXPECT_EQ(0U, Receive(listener).port) << "only the kernel's relay is the kernel";
}

TEST(UeventSender, AFullReceiveBufferLosesEventsBehindASingleError) {
    Module module;
    const Descriptor listener = Listen();
    constexpr int kSent = 10'000;
    for (int i = 0; i < kSent; ++i) {
        module.uevents.Send({"change@/devices/vantu_pwm.0", "EVENT=OTHER"});
    }

    int received = 0;
    int overflows = 0;
    for (Received event = Receive(listener); event.error != EAGAIN; event = Receive(listener)) {
        overflows += event.error == ENOBUFS ? 1 : 0;
        received += event.error == 0 ? 1 : 0;
    }
    EXPECT_EQ(1, overflows);
    EXPECT_GE(received, 200);
    EXPECT_LT(received, kSent);

    module.SensorBecomes(SensorStatus::Emergency);
    EXPECT_THAT(Receive(listener).bytes, HasSubstr("EVENT=EMERGENCY")) << "the next one is heard again";
}
