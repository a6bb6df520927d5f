/// A log line of the service as its bare system calls.
#ifndef FLOOR_LINE_H
#define FLOOR_LINE_H

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <string_view>

/// One message: on the console, then opened, appended, measured and closed in the trace file.
inline void FloorLine(std::string_view message) {
    const std::string console = "\r" + std::string(message) + "\n";
    const std::string line = "Nov 21 02:54:16.123 EcallUIGpioEvent.cpp ( 123) : " + std::string(message) + "\n";
    const int fd =
        open("/var/logs/ecall/XirEcallUIappSrvc_traces.txt", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const bool written = write(STDOUT_FILENO, console.data(), console.size()) > 0 &&
                         write(fd, line.data(), line.size()) > 0 && lseek(fd, 0, SEEK_CUR) > 0;
    close(fd);
    if (!written) {
        _exit(1);
    }
}

#endif
