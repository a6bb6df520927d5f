// One line costs four system calls: open, write, lseek, close. That is why a record is composed before it is written,
// why no stdio stream holds the file, and why the text of the current second is kept. The trap is re-entry: what fails
// inside a log call is logged too, through the same line buffer.
#include "Trace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "File.h"
#include "Relaxed.h"

XirMutex TraceMutex{"Trace"};

namespace {

constexpr char kTraceFolder[] = "/var/logs/ecall";
constexpr char kTraceBase[] = "/var/logs/ecall/XirEcallUIappSrvc_traces";
constexpr char kTraceExtension[] = "txt";
constexpr char kLiveFile[] = "/var/logs/ecall/XirEcallUIappSrvc_traces.txt";

Relaxed<uint16_t> nbTraceFileStored{2};
Relaxed<uint16_t> maxSizeOfTraceFileInKb{1024};

char traceLine[kTraceLineSize];  // written only while TraceMutex is held

/// Puts errno back at its end, so that an argument such as strerror(errno) says the same at every output.
class ErrnoKept {
  public:
    ErrnoKept() : value(errno) {}
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;
    ~ErrnoKept() { errno = value; }

  private:
    int value;
};

}  // namespace

void TraceToConsole(const char* format, ...) {
    const ErrnoKept errnoKept;
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    printf("\n\r");
}

void TraceToSystemLog(const char* format, ...) {
    const ErrnoKept errnoKept;
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_NOTICE, format, arguments);
    va_end(arguments);
}

void TraceToFile(const char* format, ...) {
    const ErrnoKept errnoKept;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(traceLine, kTraceLineSize, format, arguments);
    va_end(arguments);
    // By length, not by terminator: a message may show a character of value 0.
    SaveTraceLogInfo({traceLine, std::min(static_cast<std::size_t>(std::max(length, 0)), kTraceLineSize - 1)});
}

// The trace file and its archives.

namespace {

using FileName = std::array<char, 128>;

FileName ArchiveName(int number) {
    FileName name;
    snprintf(name.data(), name.size(), "%s_%d.%s", kTraceBase, number, kTraceExtension);
    return name;
}

FileName ArchiveNameOfNow() {
    FileName name;
    // The blank at the end belongs to the name.
    snprintf(name.data(), name.size(), "%s_%s.%s ", kTraceBase, CurrentDateTimeForFileName(), kTraceExtension);
    return name;
}

/// Moves every archive one number up, the highest first, and answers the name that is free then.
/// With a count of 1 the number starts at 65,535, by the 16 bits that count it, and each name below is tried.
FileName ShiftArchives(uint16_t count) {
    FileName target = ArchiveName(count - 1);
    for (auto number = static_cast<uint16_t>(count - 2); number != 0; --number) {
        const FileName source = ArchiveName(number);
        remove(target.data());
        if (rename(source.data(), target.data()) != 0) {
            printf("rename 1 %s to %s error : %s\n", source.data(), target.data(), strerror(errno));
        }
        target = source;
    }
    return target;
}

void RotateTraceFiles() {
    const uint16_t count = nbTraceFileStored;
    const FileName target = count == 0 ? ArchiveNameOfNow() : ShiftArchives(count);
    remove(target.data());
    if (rename(kLiveFile, target.data()) != 0) {
        printf("rename 2 %s to %s error : %s\n", kLiveFile, target.data(), strerror(errno));
    }
}

FileDescriptor OpenLiveFile() {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND;
    constexpr mode_t kMode = 0666;
    FileDescriptor file = OpenFile(kLiveFile, kFlags, kMode);
    if (file.IsOpen()) {
        return file;
    }
    struct stat folder {};
    if (stat(kTraceFolder, &folder) != 0 || !S_ISDIR(folder.st_mode)) {
        if (mkdir(kTraceFolder, 0755) != 0) {
            TraceToSystemLog("SaveTraceLogInfo mkdir error (%s)", strerror(errno));
            return {};
        }
    }
    return OpenFile(kLiveFile, kFlags, kMode);
}

}  // namespace

void SetTraceFileSizing(uint16_t count, uint16_t sizeInKb) {
    nbTraceFileStored = count;
    maxSizeOfTraceFileInKb = sizeInKb;
}

void SaveTraceLogInfo(std::string_view line) {
    constexpr std::size_t kStampRoom = 32;
    std::array<char, kStampRoom + kTraceLineSize> record;
    // The line is copied before the clock is read: the report of a failing clock goes through the same line buffer.
    char* const lineStart = record.data() + kStampRoom;
    const std::size_t lineLength = line.copy(lineStart, kTraceLineSize - 1);
    const std::string_view stamp = TraceLineStamp();
    char* const start = lineStart - stamp.size() - 1;
    stamp.copy(start, stamp.size());
    start[stamp.size()] = ' ';

    FileDescriptor file = OpenLiveFile();
    if (!file.IsOpen()) {
        return;
    }
    WritePiecesToFile(file, start, std::array{stamp.size(), std::size_t{1}, lineLength});
    // The size is asked for even if nothing could be written: rotation is what frees space on a full disk.
    const off_t size = lseek(file.get(), 0, SEEK_END);
    file.Close();
    if (size > off_t{maxSizeOfTraceFileInKb} * 1024) {
        RotateTraceFiles();
    }
}
