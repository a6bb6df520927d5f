// What of the console no person can bring about: a menu that there is not, no thread for a connection.
#include "EcallUIConsole.h"

#include <gtest/gtest.h>

#include <thread>

#include "EcallUIShared.h"
#include "Scarcity.h"
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

namespace {

std::string SaidWithoutThreads(const char* line) {
    return LogOf([line] {
               std::thread([line] {
                   ForbidNewThreads();
                   ConsoleInput input{line};
                   RunConsoleLine(input);
               }).join();
           })
        .console;
}

}  // namespace

TEST(EcallUIConsole, AProxyWithoutAThreadIsNoneAndLeavesTheOneInUse) {
    char address = 0;  // of a proxy that is never looked into
    ConsoleMenu = kConsoleEcallMenu;
    for (auto* const inUse :
         {static_cast<IEcallAppPubProxy*>(nullptr), reinterpret_cast<IEcallAppPubProxy*>(&address)}) {
        pProxyEcallapp.exchange(inUse);

        // The status is that of a success: the missing proxy alone tells.
        EXPECT_EQ("XirEcallapp_createProxy \nERROR srvcResult = 0 !!!!!! \n\n", SaidWithoutThreads("1"));

        EXPECT_EQ(inUse, pProxyEcallapp.hold().get());
    }
    pProxyEcallapp.exchange(nullptr);
    ConsoleMenu = kConsoleMainMenu;
}
