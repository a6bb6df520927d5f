// The console does not say when it has carried out a line. So the end of the input is followed by a line of our own,
// which is no command: what the service says about it comes after all else, and is not shown.
#include "TerminalConsole.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>

using namespace std::chrono_literals;

namespace {

constexpr auto kLook = 100ms;  // for the service's end while nobody types
const std::string kLastLine = "987654321x\n";
const std::string kLastAnswer = "getIntParam : *piVal = 987654321 ==> bad parameter";

/// Shows the console until the answer to the last line has come (true) or the service has ended.
bool Show(const Journal& journal, const std::string& service, uint64_t from) {
    for (;; std::fflush(stdout)) {
        for (const Entry& entry : journal.Follow(from, Journal::kLimit)) {
            from = entry.seq + 1;
            if (entry.subject != service || entry.text == "started") {
                continue;
            }
            if (entry.kind == Kind::Process) {
                return false;
            }
            if (entry.kind == Kind::Console && entry.text.find(kLastAnswer) != std::string::npos) {
                return true;
            }
            if (entry.kind == Kind::Console) {
                std::puts(entry.text.c_str());
            }
        }
    }
}

/// Waits for input as long as the service runs; empty at the end of either.
std::string ReadInput(const ModuleProcess& service) {
    pollfd wait{STDIN_FILENO, POLLIN, 0};
    while (service.IsRunning()) {
        if (poll(&wait, 1, kLook.count()) > 0) {
            std::array<char, 4096> piece{};
            const ssize_t count = read(STDIN_FILENO, piece.data(), piece.size());
            return {piece.data(), count > 0 ? static_cast<size_t>(count) : 0};
        }
    }
    return "";
}

void Feed(ModuleProcess& service) {
    try {
        bool isWholeLine = true;
        for (std::string piece = ReadInput(service); !piece.empty(); piece = ReadInput(service)) {
            isWholeLine = piece.ends_with('\n');
            service.Input(piece);
        }
        service.Input((isWholeLine ? "" : "\n") + kLastLine);
    } catch (const std::runtime_error& /*failure*/) {
        // The service has ended meanwhile, which the journal tells too.
    }
}

}  // namespace

bool RunTerminalConsole(const Journal& journal, ModuleProcess& service, uint64_t from) {
    std::future<bool> shown = std::async(std::launch::async, Show, std::cref(journal), service.Name(), from);
    Feed(service);
    return shown.get();
}
