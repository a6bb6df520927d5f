/// The service's debug console at this program's own standard input and output.
#ifndef TERMINAL_CONSOLE_H
#define TERMINAL_CONSOLE_H

#include "Journal.h"
#include "ModuleProcess.h"

/// Hands standard input to a service that runs with -m and an input, line by line, and shows its console. Returns when
/// the input has ended and all of it is carried out, or when the service has ended; answers whether it still runs.
/// from: the first journal entry to show.
bool RunTerminalConsole(const Journal& journal, ModuleProcess& service, uint64_t from);

#endif
