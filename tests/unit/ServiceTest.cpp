#include "ServiceTest.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

// The system log of the code under test, taken over by the linker's --wrap: a file without a name, so that what a child
// logs is seen as well.

namespace {

int SystemLogFile() {
    static const int file = memfd_create("system log", 0);
    return file;
}

void LogToSystem(int priority, const char* format, va_list arguments) {
    char line[2048];
    const int start = snprintf(line, sizeof line, "%d ", priority);
    vsnprintf(line + start, sizeof line - static_cast<size_t>(start) - 1, format, arguments);
    const std::string record = std::string(line) + '\0';
    EXPECT_EQ(static_cast<ssize_t>(record.size()), write(SystemLogFile(), record.data(), record.size()));
    errno = ECONNREFUSED;  // as the C library leaves it when no system log listens
}

}  // namespace

extern "C" {

void __wrap_vsyslog(int priority, const char* format, va_list arguments) {
    LogToSystem(priority, format, arguments);
}
void __wrap___vsyslog_chk(int priority, int, const char* format, va_list arguments) {
    LogToSystem(priority, format, arguments);
}
}

namespace {

std::string ReadFromStart(int file) {
    std::string content;
    lseek(file, 0, SEEK_SET);
    char buffer[4096];
    for (ssize_t count = 0; (count = read(file, buffer, sizeof buffer)) > 0;) {
        content.append(buffer, static_cast<size_t>(count));
    }
    return content;
}

void StartSystemLog() {
    EXPECT_EQ(0, ftruncate(SystemLogFile(), 0));
    lseek(SystemLogFile(), 0, SEEK_SET);
}

std::vector<std::string> SystemLog() {
    std::vector<std::string> records;
    std::istringstream content(ReadFromStart(SystemLogFile()));
    for (std::string record; std::getline(content, record, '\0');) {
        records.push_back(record);
    }
    return records;
}

}  // namespace

std::vector<std::string> Logged::ConsoleLines() const {
    constexpr std::string_view kLineEnd = "\n\r";
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end = 0; (end = console.find(kLineEnd, start)) != std::string::npos; start = end + kLineEnd.size()) {
        lines.push_back(console.substr(start, end - start));
    }
    return lines;
}

std::vector<std::string> Logged::Messages() const {
    std::vector<std::string> messages;
    std::istringstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        const size_t end = line.find(") : ");
        messages.push_back(end == std::string::npos ? line : line.substr(end + 4));
    }
    return messages;
}

Logged LogOf(const std::function<void()>& run) {
    Remove(kTraceFile);
    StartSystemLog();
    testing::internal::CaptureStdout();
    run();
    return {testing::internal::GetCapturedStdout(), SystemLog(), ReadFile(kTraceFile).value_or("")};
}

Ended EndOf(const std::function<void()>& run) {
    const int output = memfd_create("output", 0);
    const int errors = memfd_create("errors", 0);
    Remove(kTraceFile);
    StartSystemLog();
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
        run();
        fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    Ended ended{WIFSIGNALED(status) ? WTERMSIG(status) : 0,
                WIFEXITED(status) ? WEXITSTATUS(status) : 0,
                ReadFromStart(errors),
                {ReadFromStart(output), SystemLog(), ReadFile(kTraceFile).value_or("")}};
    close(output);
    close(errors);
    return ended;
}

std::optional<std::string> ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    EXPECT_TRUE(file.flush().good()) << path;
}

void Remove(const std::string& path) {
    std::error_code nothingThere;
    fs::remove_all(path, nothingThere);
}

std::vector<std::string> FilesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}
