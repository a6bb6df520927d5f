/// The log: console, system log and rotating trace file; the time stamps; two byte dumps.
#ifndef TRACE_H
#define TRACE_H

#include <syslog.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "XirOsal.h"

constexpr std::size_t kTraceLineSize = 512;  ///< what of a message reaches the trace file, in bytes with terminator
extern XirMutex TraceMutex;

/// A message, information form: console and trace file; only without the mutex the system log instead.
/// The arguments are evaluated once for each output, and each time with the errno of the call.
#define EcallUITrace(format, ...) EcallUITraceEnded("", "", format __VA_OPT__(, ) __VA_ARGS__)
/// A message about a failure, error form: console and system log in any case, the trace file when the mutex can be
/// taken.
#define EcallUITraceError(format, ...) EcallUITraceErrorEnded("", format __VA_OPT__(, ) __VA_ARGS__)
/// The same two forms for the few messages whose copy in the system log ends in a line feed.
#define EcallUITraceLf(format, ...) EcallUITraceEnded("", "\n", format __VA_OPT__(, ) __VA_ARGS__)
#define EcallUITraceErrorLf(format, ...) EcallUITraceErrorEnded("\n", format __VA_OPT__(, ) __VA_ARGS__)

/// consoleEnd, systemLogEnd: literals that follow the message there only.
#define EcallUITraceEnded(consoleEnd, systemLogEnd, format, ...)                                          \
    do {                                                                                                  \
        if (GetMutex(&TraceMutex)) {                                                                      \
            TraceToConsole(format consoleEnd __VA_OPT__(, ) __VA_ARGS__);                                 \
            TraceToFile("%20s (%4d) : " format "\n", __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
            ReleaseMutex(&TraceMutex);                                                                    \
        } else {                                                                                          \
            TraceToSystemLog("ERROR Getting the mutex");                                                  \
            TraceToSystemLog(format systemLogEnd __VA_OPT__(, ) __VA_ARGS__);                             \
        }                                                                                                 \
    } while (false)

#define EcallUITraceErrorEnded(systemLogEnd, format, ...)                                            \
    do {                                                                                             \
        TraceToConsole(format __VA_OPT__(, ) __VA_ARGS__);                                           \
        TraceToSystemLog(format systemLogEnd __VA_OPT__(, ) __VA_ARGS__);                            \
        if (GetMutex(&TraceMutex)) {                                                                 \
            TraceToFile("%20s (%4d) : " format "\n", __FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
            ReleaseMutex(&TraceMutex);                                                               \
        }                                                                                            \
    } while (false)

/// The outputs of the two forms. Each leaves errno as it was. TraceToFile is called with TraceMutex held.
[[gnu::format(printf, 1, 2)]] void TraceToConsole(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void TraceToSystemLog(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void TraceToFile(const char* format, ...);

/// Appends one formatted line (kTraceLineSize - 1 bytes of it) to the live trace file and rotates the files when it has
/// grown too long. A line that cannot be written is dropped: the log never stops its caller.
/// Called with TraceMutex held.
void SaveTraceLogInfo(std::string_view line);

/// How many trace files are kept, and at which size, in KiB, the live one is put aside.
void SetTraceFileSizing(uint16_t count, uint16_t sizeInKb);

/// Time stamps in local time. Each operation answers a text of its own, valid until the same thread calls it again.
/// A time that cannot be converted reads as a text of dashes or crosses of about the same shape.
/// "Jan  1 00:00:00.500": the fraction is the first three digits of the nanosecond count, not milliseconds.
const char* TraceLineStamp();
const char* CurrentDateTime();             ///< "2024:01:31 23:59:59"
const char* CurrentDateTimeForFileName();  ///< "20240131_235959"
/// Of the given seconds since 1970; 0 stands for a time that is not known and reads as underscores.
const char* TimeOfDay(time_t seconds);  ///< "23:59:59"
const char* DateTime(time_t seconds);   ///< "2024:01:31 23:59:59"
/// Seconds since 1970, kept to 32 bits; 0 when the clock cannot be read.
int32_t CurrentSeconds();

/// "Bin (length =   2) : 0X00ff". Stores the text in *text, to be freed with free, and answers its length; stores null
/// and answers 0 without memory.
std::size_t HexDump(const uint8_t* bytes, std::size_t length, char** text);

/// Converts pairs of hexadecimal digits, high digit first; an odd last character is ignored. Stores the bytes in
/// *bytes, to be freed with free, and answers their count. Without memory: stores null and answers the count. A null
/// bytes: answers the count. On any other character: answers 0, and *bytes must be neither used nor freed.
std::size_t HexTextToBytes(const char* text, uint8_t** bytes);

#endif
