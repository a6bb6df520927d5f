/// The menus that have a source of their own. Each runs one command, whose number is neither the one that leads back
/// to the main menu nor the one that displays the menu, and takes its arguments from input.
/// Running answers the status of the last call of the eCall service in this command; 0 without one.
#ifndef ECALL_UI_CONSOLE_MENUS_H
#define ECALL_UI_CONSOLE_MENUS_H

#include <cstdint>

#include "EcallUIConsoleInput.h"

void DisplayEcallMenu();
int32_t RunEcallCommand(int32_t number, ConsoleInput& input);

void DisplayGpioMenu();
int32_t RunGpioCommand(int32_t number, ConsoleInput& input);

#endif
