#include "EcallUIConsole.h"

#include <iterator>
#include <span>

#include "EcallUIConsoleMenus.h"
#include "EcallUIConsoleOutput.h"
#include "EcallUIData.h"

uint32_t ConsoleMenu = kConsoleMainMenu;

namespace {

constexpr int32_t kToMainMenu = -1;  // what "." stands for; typed as a number it is the same
constexpr int32_t kDisplayMenu = 0;

constexpr const char* kMainMenuText[] = {
    " MAIN MENU  ",              //
    " ---------  ",              //
    " 0  : display this menu ",  //
    " 1  : EcallSrvc Menu    ",  //
    " 2  : LocationSrvc Menu ",  //
    " 3  : GpioUI Menu       ",
};
constexpr const char* kLocationMenuText[] = {
    " LOCATION SRVC MENU  ",     //
    " ------------------  ",     //
    " .  : display main menu ",  //
    " 0  : display this menu ",  //
    " 1  : ...               ",
};

void PrintLines(std::span<const char* const> lines) {
    for (const char* line : lines) {
        PrintLine("%s", line);
    }
}

void DisplayMainMenu() {
    PrintLines(kMainMenuText);
}

void DisplayLocationMenu() {
    PrintLines(kLocationMenuText);
}

void OpenMenu(uint32_t menu) {
    ConsoleMenu = menu;
    DisplayMenu();
}

int32_t RunMainCommand(int32_t number, ConsoleInput& /*input*/) {
    const auto menu = static_cast<uint32_t>(number);
    if (menu >= kConsoleEcallMenu && menu <= kConsoleGpioMenu) {
        OpenMenu(menu);
    } else {
        PrintLine("bad parameter");
    }
    return 0;
}

/// Nothing can be called there yet.
int32_t RunLocationCommand(int32_t /*number*/, ConsoleInput& /*input*/) {
    return 0;
}

struct Menu {
    void (*display)();
    int32_t (*run)(int32_t number, ConsoleInput& input);
    bool tellsStatus = false;  ///< after every command
};
constexpr Menu kMenus[] = {
    {DisplayMainMenu, RunMainCommand},
    {DisplayEcallMenu, RunEcallCommand, true},
    {DisplayLocationMenu, RunLocationCommand},
    {DisplayGpioMenu, RunGpioCommand},
};

/// Null, and said, when there is no such menu.
const Menu* CurrentMenu() {
    if (ConsoleMenu < std::size(kMenus)) {
        return &kMenus[ConsoleMenu];
    }
    PrintLine("ERROR !!!!!! ");
    return nullptr;
}

int32_t ReadCommandNumber(ConsoleInput& input) {
    if (input.line.starts_with('.')) {
        return kToMainMenu;
    }
    int32_t number = 0;
    return getIntParam(input, number) ? number : kDisplayMenu;
}

}  // namespace

void RunDebugMenuOnce() {
    std::array<char, kConsoleLineSize> line{};
    PrintLine("\n");
    if (!ReadConsoleLine(line)) {
        EcallUI_Configuration.DebugMenuMode = 0;
        return;
    }
    PrintLine("\n");
    ConsoleInput input{line.data()};
    RunConsoleLine(input);
}

void DisplayMenu() {
    if (const Menu* menu = CurrentMenu()) {
        menu->display();
    }
}

void RunConsoleLine(ConsoleInput& input) {
    const Menu* const menu = CurrentMenu();
    if (menu == nullptr) {
        return;
    }
    int32_t status = 0;
    switch (const int32_t number = ReadCommandNumber(input); number) {
        case kToMainMenu:
            OpenMenu(kConsoleMainMenu);
            break;
        case kDisplayMenu:
            DisplayMenu();
            break;
        default:
            status = menu->run(number, input);
            break;
    }
    if (menu->tellsStatus) {
        PrintLine(status == 0 ? "\n" : "srvcResult ERROR !!!!!! \n");
    }
}
