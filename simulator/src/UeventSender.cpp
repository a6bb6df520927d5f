// The kernel relays what a process with CAP_SYS_ADMIN over the network namespace sends to port 0, exactly as it would
// send an event of its own. The journal's entry is made before the send: the service's reaction must come after it.
#include "UeventSender.h"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {
constexpr uint16_t kMessageType = NLMSG_MIN_TYPE;  // below are control messages, which the kernel would swallow

[[noreturn]] void Fail(int error) {
    throw std::runtime_error(std::string("sending a uevent: ") + strerror(error));
}
}  // namespace

UeventSender::UeventSender(Journal& theJournal)
    : journal(theJournal), descriptor(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT)) {
    if (!descriptor.IsOpen()) {
        Fail(errno);
    }
}

void UeventSender::Send(const std::vector<std::string>& strings) {
    Entry entry;
    entry.kind = Kind::Uevent;
    for (size_t i = 0; i < strings.size(); ++i) {
        entry.bytes += strings[i] + '\0';
        if (i > 0) {
            entry.text += (i > 1 ? " " : "") + strings[i];
        }
    }
    entry.subject = strings.empty() ? "" : strings.front();
    const std::string bytes = entry.bytes;
    journal.Append(std::move(entry));
    Relay(bytes);
}

void UeventSender::SendRaw(const std::string& bytes) {
    Entry entry;
    entry.kind = Kind::Uevent;
    entry.subject = "raw";
    entry.bytes = bytes;
    journal.Append(std::move(entry));
    Relay(bytes);
}

void UeventSender::Relay(const std::string& bytes) {
    const std::lock_guard lock(mutex);
    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(bytes.size()));
    header.nlmsg_type = kMessageType;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    std::string datagram(reinterpret_cast<const char*>(&header), sizeof header);
    datagram += bytes;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (sendto(descriptor.Get(), datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&kernel),
               sizeof kernel) < 0) {
        Fail(errno);
    }
    struct {
        nlmsghdr header;
        nlmsgerr error;
        char original[2048];
    } reply{};
    if (recv(descriptor.Get(), &reply, sizeof reply, 0) < static_cast<ssize_t>(sizeof(nlmsghdr) + sizeof(nlmsgerr))) {
        Fail(errno);
    }
    if (reply.error.error != 0) {
        Fail(-reply.error.error);
    }
}
