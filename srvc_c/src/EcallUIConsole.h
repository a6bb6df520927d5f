/// The debug console of -m: menus on standard input and output, from which a person calls every operation by hand.
///
/// For the main thread only. What the menus call may block, and may change what the rest of the service works with.
#ifndef ECALL_UI_CONSOLE_H
#define ECALL_UI_CONSOLE_H

#include <cstdint>

#include "EcallUIConsoleInput.h"

enum ConsoleMenuNumber : uint32_t {
    kConsoleMainMenu = 0,
    kConsoleEcallMenu = 1,
    kConsoleLocationMenu = 2,
    kConsoleGpioMenu = 3
};

/// The current menu, kept from one pass to the next.
extern uint32_t ConsoleMenu;

/// One pass: waits for a line, carries it out in the current menu. At the end of the input the debug menu mode is over:
/// DebugMenuMode becomes 0.
void RunDebugMenuOnce();
/// Prints the current menu's text.
void DisplayMenu();

/// Carries a line out in the current menu; input is at the line's start.
void RunConsoleLine(ConsoleInput& input);

#endif
