// The event thread's socket: who may be heard on it, bursts and overflows, and calls on it that fail.
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// ---- Who is heard ----

/// The number of a process that has just been; the next ones come right after it.
uint32_t LatestProcess() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
    return static_cast<uint32_t>(child);
}

/// Takes the netlink ports of the processes to come: whoever binds its own process number then fails.
class PortTaker {
  public:
    explicit PortTaker(uint32_t count) {
        const uint32_t latest = LatestProcess();
        for (uint32_t i = 1; i <= count; ++i) {
            const int taker = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
            sockaddr_nl address{};
            address.nl_family = AF_NETLINK;
            address.nl_pid = latest + i;
            EXPECT_EQ(0, bind(taker, reinterpret_cast<const sockaddr*>(&address), sizeof address));
            takers.push_back(taker);
        }
    }
    ~PortTaker() { std::ranges::for_each(takers, close); }
    PortTaker(const PortTaker&) = delete;
    PortTaker& operator=(const PortTaker&) = delete;

  private:
    std::vector<int> takers;
};

TEST(EcallUIGpioEventSocket, WithoutItsSocketTheServiceEnds) {
    Unit unit;
    const PortTaker taker(200);
    Configure(unit.module, {{"ConnectEcallService", "false"}});

    unit.module.StartService();

    const std::optional<int> status = unit.module.Service().WaitForEnd();
    ASSERT_TRUE(status.has_value()) << unit.journal.Dump();
    EXPECT_EQ("exited 1", PrintStatus(*status));
    EXPECT_THAT(unit.module.Service().Output(), HasSubstr("nuevent bind fail"));
    unit.journal.Await(IsInSyslog("nuevent bind fail"));
    EXPECT_THAT(HardwareMessages(unit.module), Contains("nuevent bind fail"));
}

TEST(EcallUIGpioEventSocket, SocketThatCannotBeMadeEndsTheProcessToo) {
    Module module;
    Configure(module, {{"ConnectEcallService", "false"}});

    ModuleProcess& probe = StartPerforming(module, {"fail socket " + std::to_string(EMFILE), "InitGpio", "stay"});

    const std::optional<int> status = probe.WaitForEnd();
    ASSERT_TRUE(status.has_value()) << module.journal.Dump();
    EXPECT_EQ("exited 1", PrintStatus(*status));
    EXPECT_THAT(probe.Output(), HasSubstr("nuevent bind fail"));
    EXPECT_THAT(HardwareMessages(module), Contains("nuevent bind fail"));
    module.journal.Await(IsInSyslog("nuevent bind fail"));
}

/// A copy of the service's event socket; -1 when there is none.
int CopyEventSocket(const ModuleProcess& service) {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, service.Pid(), 0));
    int found = -1;
    for (int fd = 0; fd < 64 && found < 0; ++fd) {
        const int copy = static_cast<int>(syscall(SYS_pidfd_getfd, process, fd, 0));
        int protocol = 0;
        socklen_t size = sizeof protocol;
        int domain = 0;
        const bool isEventSocket =
            copy >= 0 && getsockopt(copy, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_NETLINK &&
            getsockopt(copy, SOL_SOCKET, SO_PROTOCOL, &protocol, &size) == 0 && protocol == NETLINK_KOBJECT_UEVENT;
        if (isEventSocket) {
            found = copy;
        } else if (copy >= 0) {
            close(copy);
        }
    }
    close(process);
    return found;
}

int ReceiveBuffer(const ModuleProcess& service) {
    const int copy = CopyEventSocket(service);
    int granted = 0;
    socklen_t size = sizeof granted;
    EXPECT_EQ(0, getsockopt(copy, SOL_SOCKET, SO_RCVBUF, &granted, &size));
    close(copy);
    return granted;
}

TEST(EcallUIGpioEventSocket, SocketHearsAllGroupsUnderTheProcessNumber) {
    Unit unit;
    unit.StartAlone();

    const int copy = CopyEventSocket(unit.module.Service());

    sockaddr_nl address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(0, getsockname(copy, reinterpret_cast<sockaddr*>(&address), &size));
    EXPECT_EQ(0xFFFFFFFFU, address.nl_groups);
    EXPECT_EQ(static_cast<uint32_t>(unit.module.Service().Pid()), address.nl_pid);
    close(copy);
}

TEST(EcallUIGpioEventSocket, ReceiveBufferIsAsLargeAsTheSystemGrants) {
    Unit unit;
    unit.StartAlone();
    const int granted = ReceiveBuffer(unit.module.Service());

    // Whatever this process may have, the service has.
    const int own = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    const int wish = 128 * 1024 * 1024;
    if (setsockopt(own, SOL_SOCKET, SO_RCVBUFFORCE, &wish, sizeof wish) != 0) {
        ASSERT_EQ(0, setsockopt(own, SOL_SOCKET, SO_RCVBUF, &wish, sizeof wish));
    }
    int expected = 0;
    socklen_t size = sizeof expected;
    ASSERT_EQ(0, getsockopt(own, SOL_SOCKET, SO_RCVBUF, &expected, &size));
    EXPECT_EQ(expected, granted);
    close(own);
}

// ---- Bursts ----

void SendOtherEvents(Unit& unit, int count) {
    const std::string datagram = "change@/devices/other" + std::string(1, '\0') + "ACTION=change" + '\0';
    for (int i = 0; i < count; ++i) {
        unit.module.uevents.SendRaw(datagram);
    }
}

/// Repeats an event, as the sensor's driver does, until a message comes: one alone may fall into an overflow.
void AnnounceUntil(Unit& unit, const std::string& text, const std::string& message, uint64_t from) {
    for (const auto end = Journal::Clock::now() + Journal::kLimit; Journal::Clock::now() < end;) {
        unit.module.uevents.Send({"change@/devices/any", text});
        if (unit.journal.WaitFor(IsTraced(message), from, 100ms)) {
            return;
        }
    }
    ADD_FAILURE() << "not said: " << message << "\n" << unit.journal.Dump();
}

// A small event takes between half a KiB and 2 KiB of the buffer.
int EventsThatFit(const ModuleProcess& service, int atMost) {
    return std::min(ReceiveBuffer(service) / 2048, atMost);
}
int EventsBeyondTheBuffer(const ModuleProcess& service) {
    return ReceiveBuffer(service) / 512;
}

/// Stops the service and waits until all its threads stand still: the signal alone does not tell when.
void Halt(ModuleProcess& service) {
    service.Signal(SIGSTOP);
    siginfo_t info{};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(service.Pid()), &info, WSTOPPED | WNOWAIT));
}

constexpr char kOverflow[] = "uevent_hdlr: Error recvmsg: 105";  // ENOBUFS
constexpr char kTriggered[] = "Auto Ecall triggered";

TEST(EcallUIGpioEventSocket, BurstThatFitsAroundAnEmergencyMakesOneCall) {
    Unit unit;
    unit.Start();
    const int half = EventsThatFit(unit.module.Service(), 10'000) / 2;

    const uint64_t mark = unit.journal.Mark();
    ASSERT_NO_FATAL_FAILURE(Halt(unit.module.Service()));
    SendOtherEvents(unit, half);
    unit.module.SensorBecomes(SensorStatus::Emergency);
    SendOtherEvents(unit, half);
    unit.module.uevents.Send({"change@/devices/any", "EVENT=SENSOR NOT DETECTED"});
    unit.module.Service().Signal(SIGCONT);

    unit.journal.Await(IsTraced("AIRBAG_SENSOR_NOT_DETECTED"), mark);
    EXPECT_THAT(unit.Triggers(mark), ElementsAre(kAutomaticCall));
    EXPECT_EQ(0U, unit.journal.Count(IsTraced(kOverflow), mark));
}

TEST(EcallUIGpioEventSocket, BurstOf10000AroundAnEmergencyMakesOneCallAsTheDriverRepeatsIt) {
    Unit unit;
    unit.Start();

    const uint64_t mark = unit.journal.Mark();
    SendOtherEvents(unit, 5000);
    unit.module.SensorBecomes(SensorStatus::Emergency);
    SendOtherEvents(unit, 5000);
    AnnounceUntil(unit, "EVENT=EMERGENCY", kTriggered, mark);

    AnnounceUntil(unit, "EVENT=SENSOR NOT DETECTED", "AIRBAG_SENSOR_NOT_DETECTED", mark);
    EXPECT_THAT(unit.Triggers(mark), ElementsAre(kAutomaticCall));
}

TEST(EcallUIGpioEventSocket, OverflowIsOneReceiveErrorAndWhatCameBeforeIsHandled) {
    Unit unit;
    unit.Start();
    const uint64_t mark = unit.journal.Mark();

    // What came first is in the buffer, however much comes behind it.
    ASSERT_NO_FATAL_FAILURE(Halt(unit.module.Service()));
    unit.module.SensorBecomes(SensorStatus::Emergency);
    SendOtherEvents(unit, EventsBeyondTheBuffer(unit.module.Service()));
    unit.module.Service().Signal(SIGCONT);

    const Entry overflow = unit.journal.Await(IsTraced(kOverflow), mark);
    unit.journal.Await(IsTraced("ecall-ens NO_EVENT_ERROR ==> error sensor"), overflow.seq);
    unit.journal.Await(IsInSyslog(kOverflow), mark);
    const Entry triggered = unit.journal.Await(IsTraced(kTriggered), mark);
    AnnounceUntil(unit, "EVENT=SENSOR NOT DETECTED", "AIRBAG_SENSOR_NOT_DETECTED", triggered.seq);
    EXPECT_THAT(unit.Triggers(mark), ElementsAre(kAutomaticCall));
    EXPECT_EQ(1U, unit.journal.Count(IsTraced(kOverflow), mark));
}

TEST(EcallUIGpioEventSocket, EmergencyThatFellIntoAnOverflowCallsWhenItIsRepeated) {
    Unit unit;
    unit.Start();
    const uint64_t mark = unit.journal.Mark();

    ASSERT_NO_FATAL_FAILURE(Halt(unit.module.Service()));
    SendOtherEvents(unit, EventsBeyondTheBuffer(unit.module.Service()));
    unit.module.SensorBecomes(SensorStatus::Emergency);
    unit.module.Service().Signal(SIGCONT);
    const Entry overflow = unit.journal.Await(IsTraced(kOverflow), mark);
    AnnounceUntil(unit, "EVENT=SENSOR NOT DETECTED", "AIRBAG_SENSOR_NOT_DETECTED", overflow.seq);
    EXPECT_THAT(unit.Triggers(mark), IsEmpty());

    AnnounceUntil(unit, "EVENT=EMERGENCY", kTriggered, overflow.seq);

    EXPECT_THAT(unit.Triggers(mark), ElementsAre(kAutomaticCall));
    EXPECT_EQ(1U, unit.journal.Count(IsTraced(kOverflow), mark));
}

// ---- Forgers ----

constexpr char kForged[] = "change@/devices/vantu_pwm.0\0EVENT=EMERGENCY";

/// Sends bytes to one port, or to groups; answers the errno.
int SendTo(int forger, uint32_t port, uint32_t groups, const std::string& bytes) {
    sockaddr_nl target{};
    target.nl_family = AF_NETLINK;
    target.nl_pid = port;
    target.nl_groups = groups;
    const ssize_t sent =
        sendto(forger, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&target), sizeof target);
    return sent < 0 ? errno : 0;
}

/// Asks the kernel to pass the event on as its own; answers the errno in its reply, 0 when it did.
int AskKernel(int forger) {
    nlmsghdr header{};
    header.nlmsg_len = NLMSG_LENGTH(sizeof kForged);
    header.nlmsg_type = NLMSG_MIN_TYPE;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    std::string request(reinterpret_cast<const char*>(&header), sizeof header);
    request.append(kForged, sizeof kForged);
    EXPECT_EQ(0, SendTo(forger, 0, 0, request));
    struct {
        nlmsghdr header;
        nlmsgerr error;
        char original[256];
    } reply{};
    EXPECT_LT(0, recv(forger, &reply, sizeof reply, MSG_DONTWAIT));  // the kernel has answered by now
    EXPECT_EQ(NLMSG_ERROR, reply.header.nlmsg_type);
    return -reply.error.error;
}

/// Tries to send an emergency without any capability; answers the errno of each way: to all listeners, to the service,
/// to both, through the kernel.
std::vector<int> Forge(uint32_t servicePort) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2] = {};
    EXPECT_EQ(0, syscall(SYS_capset, &header, none));
    const int forger = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    const std::string datagram(kForged, sizeof kForged);
    std::vector<int> errors = {SendTo(forger, 0, 1, datagram), SendTo(forger, servicePort, 0, datagram),
                               SendTo(forger, servicePort, 1, datagram), AskKernel(forger)};
    close(forger);
    return errors;
}

TEST(EcallUIGpioEventSocket, ProcessWithoutPrivilegeCannotForgeAnEvent) {
    Unit unit;
    unit.Start();
    const uint64_t mark = unit.journal.Mark();

    std::vector<int> errors;
    std::thread([&] { errors = Forge(static_cast<uint32_t>(unit.module.Service().Pid())); }).join();

    EXPECT_THAT(errors, ElementsAre(EPERM, EPERM, EPERM, EPERM));
    unit.Announce("EVENT=SENSOR NOT DETECTED");
    EXPECT_THAT(unit.Triggers(mark), IsEmpty());
    EXPECT_EQ(1U, unit.journal.Count(IsTraced("NbReadyDescriptor = 1 "), mark));
}

// ---- Receiving and waiting that fail ----

constexpr char kWaiting[] = "Wait for an event (blocking wait) ";
constexpr char kReady[] = "NbReadyDescriptor = 1 ";
constexpr char kErrorSensor[] = "ecall-ens NO_EVENT_ERROR ==> error sensor";

struct FailingCall {
    const char* name;
    std::string failure;  ///< as the probe takes it; it strikes the first call
    Texts said;           ///< after the first wait began
    Texts logged;         ///< what of that is in the system log too
    bool goesOn;

    friend void PrintTo(const FailingCall& call, std::ostream* out) { *out << call.name; }
};

class EcallUIGpioEventFailure : public testing::TestWithParam<FailingCall> {};

TEST_P(EcallUIGpioEventFailure, OfACallIsSaid) {
    Module module;
    Configure(module, {{"ConnectEcallService", "false"}});
    StartPerforming(module, {GetParam().failure, "InitGpio", "stay"});
    module.journal.Await(IsTraced(kWaiting));

    module.uevents.Send({"change@/devices/any", "EVENT=SENSOR NOT DETECTED"});
    module.uevents.Send({"change@/devices/any", "EVENT=DTR ACTIVATED"});

    Texts expected = GetParam().said;
    if (GetParam().goesOn) {
        const Texts ordinary = {kWaiting,
                                kReady,
                                "ecall-ens : sensor not detected (No PWM)",
                                "ecall-ens AIRBAG_SENSOR_NOT_DETECTED => sensor not detected (No PWM)",
                                kWaiting,
                                kReady,
                                "uevent_hdlr ==> DTR is activated",
                                "xgold_serial usif2 DTR is activated "};
        expected.insert(expected.end(), ordinary.begin(), ordinary.end());
    }
    module.journal.Await(IsTraced(expected.back()));
    Texts said = module.journal.Texts({.kind = Kind::Trace, .also = [](const Entry& entry) {
                                           return entry.subject.ends_with("EcallUIGpioEvent.cpp") &&
                                                  !entry.text.starts_with("InitGpio");
                                       }});
    said.erase(said.begin(), std::ranges::find(said, kWaiting) + 1);
    said.erase(std::ranges::find(said, expected.back()) + 1, said.end());
    EXPECT_EQ(expected, said);
    for (const std::string& message : GetParam().logged) {
        module.journal.Await(IsInSyslog(message));
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, EcallUIGpioEventFailure,
    testing::Values(
        FailingCall{"Reception",
                    "fail recvmsg " + std::to_string(EIO),
                    {kReady, "uevent_hdlr: Error recvmsg: 5", kErrorSensor},
                    {"uevent_hdlr: Error recvmsg: 5", kErrorSensor},
                    true},
        FailingCall{"ReceptionThatWouldBlock",
                    "fail recvmsg " + std::to_string(EAGAIN),
                    {kReady, "uevent_hdlr: Expected Error", kErrorSensor},
                    {"uevent_hdlr: Expected Error"},
                    true},
        FailingCall{"EndOfTheData",
                    "fail recvmsg " + std::to_string(ENODATA),
                    {kReady, "uevent_hdlr: lcm_uevent_hdlr: EOF", kErrorSensor},
                    {"uevent_hdlr: lcm_uevent_hdlr: EOF"},
                    true},
        FailingCall{"InterruptedWait", "fail select " + std::to_string(EINTR), {"select() error == EINTR"}, {}, true},
        FailingCall{"WaitWithoutTheSocketReady",
                    "fail select " + std::to_string(ENODATA),
                    {"NbReadyDescriptor = 0 ", kErrorSensor},
                    {kErrorSensor},
                    true},
        FailingCall{"WaitForGood",
                    "fail select " + std::to_string(ENOMEM),
                    {"select() error Cannot allocate memory", "Thread_GPIO_UEVNET - exit"},
                    {"select() error Cannot allocate memory\n"},
                    false}),
    [](const auto& tested) { return tested.param.name; });

}  // namespace
