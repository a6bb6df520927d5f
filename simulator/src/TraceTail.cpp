// The open file is read to its end before the name is looked at again: after a rotation its last lines are only there.
// The directory's parent is watched as well, since the service may make the directory anew.
#include "TraceTail.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace {
constexpr uint32_t kDirectoryEvents = IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
// Mounts over the directory send no event, so the name is also looked at now and then.
constexpr int kLookMs = 200;
}  // namespace

TraceTail::TraceTail(Journal& theJournal, std::string theDirectory, const std::string& theFile)
    : journal(theJournal),
      directory(std::move(theDirectory)),
      path(directory + "/" + theFile),
      notifications(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      stop(eventfd(0, EFD_CLOEXEC)) {
    inotify_add_watch(notifications.Get(), directory.substr(0, directory.rfind('/')).c_str(), IN_CREATE | IN_MOVED_TO);
    Look();
    reader = std::thread([this] { Run(); });
}

TraceTail::~TraceTail() {
    eventfd_write(stop.Get(), 1);
    reader.join();
}

void TraceTail::Run() {
    pollfd waits[] = {{notifications.Get(), POLLIN, 0}, {stop.Get(), POLLIN, 0}};
    alignas(inotify_event) std::array<char, 65536> events;
    while (waits[1].revents == 0) {
        poll(waits, 2, kLookMs);
        while (read(notifications.Get(), events.data(), events.size()) > 0) {
        }
        Look();
    }
}

void TraceTail::Look() {
    inotify_add_watch(notifications.Get(), directory.c_str(), kDirectoryEvents);
    for (;;) {
        ReadOn();
        struct stat named {};
        struct stat held {};
        if (stat(path.c_str(), &named) != 0 || (file.IsOpen() && fstat(file.Get(), &held) == 0 &&
                                                named.st_ino == held.st_ino && named.st_dev == held.st_dev)) {
            return;
        }
        ReadOn();  // what came between the last look and the renaming
        file = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file.IsOpen()) {
            return;
        }
    }
}

void TraceTail::ReadOn() {
    std::array<char, 65536> buffer;
    for (ssize_t count = 0; (count = read(file.Get(), buffer.data(), buffer.size())) > 0;) {
        for (const char byte : std::string_view(buffer.data(), static_cast<size_t>(count))) {
            line += byte;
            if (byte == '\n') {
                journal.Append(Parse(std::exchange(line, {})));
            }
        }
    }
}

Entry TraceTail::Parse(const std::string& raw) {
    constexpr size_t kDateAndTime = 15;  // "Nov 21 03:18:00"; a fraction of up to four characters and a blank follow
    Entry entry;
    entry.kind = Kind::Trace;
    entry.bytes = raw;
    entry.text = raw.substr(0, raw.find('\n'));
    const size_t begin = entry.text.find_first_not_of(' ', entry.text.find(' ', kDateAndTime));
    const size_t bracket = entry.text.find(" (", begin);
    const size_t end = entry.text.find(") : ", bracket);
    if (begin != std::string::npos && bracket != std::string::npos && end != std::string::npos) {
        entry.subject = entry.text.substr(begin, bracket - begin);
        entry.text.erase(0, end + sizeof ") : " - 1);
    }
    return entry;
}
