// One trace line beside the bare system calls that it needs: one write to the console, then open, write, position and
// close on the trace file. Started inside a module, so that both write to the same file system.

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "Measure.h"
#include "Trace.h"

namespace {

constexpr int kRounds = 50;
constexpr int kPerRound = 400;

Nanoseconds OneLine() {
    const Nanoseconds start = Now();
    EcallUITrace("NbReadyDescriptor = %d ", 1);
    return Now() - start;
}

Nanoseconds BareCalls() {
    static const char console[] = "\rNbReadyDescriptor = 1 \n";
    static const char line[] = "Nov 21 02:54:16.123      BenchTrace.cpp (  19) : NbReadyDescriptor = 1 \n";
    const Nanoseconds start = Now();
    bool done = write(STDOUT_FILENO, console, strlen(console)) > 0;
    const int fd = open("/var/logs/ecall/floor.txt", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    done = done && write(fd, line, strlen(line)) > 0 && lseek(fd, 0, SEEK_CUR) > 0;
    close(fd);
    return done ? Now() - start : 0;
}

}  // namespace

int main() {
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::vector<Nanoseconds> lines;
    std::vector<Nanoseconds> bare;
    MeasureInTurn(kRounds, kPerRound, OneLine, BareCalls, lines, bare);
    return PrintRatio("One trace line", lines, bare, 1.3, stderr) ? 0 : 1;
}
