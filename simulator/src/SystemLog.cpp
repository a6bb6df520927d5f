// What the C library's syslog sends is one datagram a message: "<13>Nov 21 03:18:00 name[42]: text". The sender blocks
// when nobody reads, so the reader does nothing else.
#include "SystemLog.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

SystemLog::SystemLog(Journal& theJournal, const std::string& path)
    : journal(theJournal), descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)), stop(eventfd(0, EFD_CLOEXEC)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(descriptor.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("binding " + path + ": " + strerror(errno));
    }
    reader = std::thread([this] { Run(); });
}

SystemLog::~SystemLog() {
    eventfd_write(stop.Get(), 1);
    reader.join();
}

void SystemLog::Run() {
    std::array<char, 65536> buffer;
    pollfd waits[] = {{descriptor.Get(), POLLIN, 0}, {stop.Get(), POLLIN, 0}};
    for (;;) {
        poll(waits, 2, -1);
        const ssize_t count = recv(descriptor.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (count >= 0) {
            journal.Append(Parse(std::string(buffer.data(), static_cast<size_t>(count))));
        } else if (waits[1].revents != 0) {
            return;
        }
    }
}

Entry SystemLog::Parse(const std::string& message) {
    constexpr size_t kStamp = sizeof "Nov 21 03:18:00 " - 1;
    Entry entry;
    entry.kind = Kind::Syslog;
    entry.bytes = message;
    std::string rest = message;
    while (!rest.empty() && rest.back() == '\0') {
        rest.pop_back();
    }
    const size_t bracket = rest.find('>');
    if (rest.starts_with('<') && bracket != std::string::npos) {
        entry.result = strtol(rest.c_str() + 1, nullptr, 10);
        rest.erase(0, bracket + 1);
    }
    if (rest.size() > kStamp && rest[kStamp - 1] == ' ' && rest[kStamp - 4] == ':') {
        rest.erase(0, kStamp);
    }
    const size_t colon = rest.find(": ");
    if (colon != std::string::npos) {
        entry.subject = rest.substr(0, std::min(colon, rest.find('[')));
        rest.erase(0, colon + 2);
    }
    entry.text = rest;
    return entry;
}
