#include "EcallUIConsoleOutput.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>

void PrintLine(const char* format, ...) {
    flockfile(stdout);
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    if (!std::string_view(format).ends_with('\n')) {
        putchar_unlocked('\n');
    }
    funlockfile(stdout);
}
