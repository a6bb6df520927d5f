// The program: the command-line client of the service.
#include <csignal>
#include <span>

#include "CommandLine.h"

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is a failed write, and told as one
    const std::span<char*> words(argv, static_cast<size_t>(argc));
    return RunCommandLine({words.begin() + (argc > 0 ? 1 : 0), words.end()});
}
