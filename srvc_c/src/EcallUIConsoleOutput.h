/// How the debug console speaks: on standard output and not through the trace, since a person waits there.
#ifndef ECALL_UI_CONSOLE_OUTPUT_H
#define ECALL_UI_CONSOLE_OUTPUT_H

/// Prints a line, and its line feed if the format has none. Other threads' messages never come between its parts.
[[gnu::format(printf, 1, 2)]] void PrintLine(const char* format, ...);

#endif
