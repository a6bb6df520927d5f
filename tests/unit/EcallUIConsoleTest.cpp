// What the console says when it stands in a menu that there is not.
#include "EcallUIConsole.h"

#include <gtest/gtest.h>

#include "ServiceTest.h"

namespace {

std::string Said(const char* line) {
    ConsoleInput input{line};
    return LogOf([&] { RunConsoleLine(input); }).console;
}

}  // namespace

TEST(EcallUIConsole, StartsInTheMainMenu) {
    EXPECT_EQ(kConsoleMainMenu, ConsoleMenu);
    EXPECT_EQ(0, LogOf(DisplayMenu).console.find(" MAIN MENU  \n"));
}

TEST(EcallUIConsole, AMenuThatThereIsNotIsAnError) {
    for (const uint32_t menu : {4U, UINT32_MAX}) {
        ConsoleMenu = menu;

        EXPECT_EQ("ERROR !!!!!! \n", Said("0"));
        EXPECT_EQ("ERROR !!!!!! \n", Said("."));
        EXPECT_EQ("ERROR !!!!!! \n", LogOf(DisplayMenu).console);
    }
    ConsoleMenu = kConsoleMainMenu;
}
