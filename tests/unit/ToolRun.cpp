#include "ToolRun.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include "ScratchSocket.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 60s;

pid_t Spawn(const std::vector<std::string>& arguments, const posix_spawn_file_actions_t& actions) {
    std::vector<std::string> words{ECALLUICTL};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    pid_t pid = -1;
    EXPECT_EQ(0, posix_spawn(&pid, ECALLUICTL, &actions, nullptr, pointers.data(), environ));
    return pid;
}

int StatusOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// The exit status; -1, and a failure of the test, when the program does not end, which is killed then.
int WaitForEnd(pid_t pid) {
    int status = 0;
    for (const auto deadline = Clock::now() + kPatience; Clock::now() < deadline; std::this_thread::sleep_for(5ms)) {
        if (waitpid(pid, &status, WNOHANG) == pid) {
            return StatusOf(status);
        }
    }
    ADD_FAILURE() << "the program does not end";
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return -1;
}

std::string Content(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace

std::vector<std::string> ToolResult::Lines() const {
    std::vector<std::string> lines;
    std::istringstream text(output);
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

ToolResult RunTool(const std::vector<std::string>& arguments, const std::string& input, const std::string& outputPath) {
    const ScratchSocket place;  // for its folder
    const std::string base = place.Path();
    std::ofstream(base + ".in") << input;
    const std::string output = outputPath.empty() ? base + ".out" : outputPath;
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, (base + ".in").c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (base + ".err").c_str(), O_WRONLY | O_CREAT, 0600);
    const pid_t pid = Spawn(arguments, actions);
    posix_spawn_file_actions_destroy(&actions);
    return {.status = WaitForEnd(pid),
            .output = outputPath.empty() ? Content(output) : "",
            .errors = Content(base + ".err")};
}

ToolProcess::ToolProcess(const std::vector<std::string>& arguments) {
    std::array<int, 2> ends{};
    EXPECT_EQ(0, pipe2(ends.data(), O_CLOEXEC));
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid = Spawn(arguments, actions);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    output = ends[0];
}

ToolProcess::~ToolProcess() {
    CloseOutput();
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

std::string ToolProcess::Line() {
    const auto deadline = Clock::now() + kPatience;
    while (waiting.find('\n') == std::string::npos) {
        pollfd readable{.fd = output, .events = POLLIN, .revents = 0};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        std::array<char, 4096> piece{};
        const bool isReady = left > 0 && poll(&readable, 1, static_cast<int>(left)) > 0;
        const ssize_t count = isReady ? read(output, piece.data(), piece.size()) : 0;
        if (count <= 0) {
            ADD_FAILURE() << "no further line; what there is: " << waiting;
            return "";
        }
        waiting.append(piece.data(), static_cast<size_t>(count));
    }
    std::string line = waiting.substr(0, waiting.find('\n'));
    waiting.erase(0, line.size() + 1);
    return line;
}

void ToolProcess::CloseOutput() {
    if (output >= 0) {
        close(output);
        output = -1;
    }
}

void ToolProcess::Signal(int signal) const {
    kill(pid, signal);
}

int ToolProcess::Wait() {
    return WaitForEnd(std::exchange(pid, -1));
}
