// The console's eCall menu: what it shows, what goes over the wire, what it prints of the answer.
#include <gmock/gmock.h>

#include "ConsoleWorld.h"

namespace {

constexpr char kUpdateVehicleConfig[] =
    "  5 : XirEcallapp_updateVehicleConfig  (VIN (17 characters), propulsionStorageType (1..7), vehicleType "
    "(0..12)";
constexpr char kSetCfgParameter[] =
    " 10 : XirEcallapp_setCfgParameter (parameter number (0..45), boolean value, integer value, string value )";
constexpr char kUpdateSelfTest[] =
    " 12 : XirEcallapp_UpdateSelfTestAllDevicesState  (1: all NotHandled, 2 : all success, 3 : 50% success, "
    "50% failed)";

std::string Menu() {
    std::string text = " ECALL SRVC MENU  \n --------------- \n";
    for (const char* entry : {
             "  . : display main menu",
             "  0 : display this menu",
             "  1 : XirEcallapp_createProxy",
             "  2 : XirEcallapp_releaseProxy",
             "  3 : XirEcallapp_triggerEcall (manual(0)/auto(1)",
             "  4 : XirEcallapp_userRequestCancelEcall",
             kUpdateVehicleConfig,
             "  6 : XirEcallapp_updateVehicleState (Number of passengers, backupBatteryUsed, ignitionOn",
             "  7 : XirEcallapp_updateGnssLocation (latitude, longitude, direction)",
             "  8 : XirEcallapp_requestState",
             "  9 : XirEcallapp_getCfgParameter (parameter number (0..45) )",
             kSetCfgParameter,
             " 11 : XirEcallapp_getSelfTestAllDevicesState",
             kUpdateSelfTest,
             " 13 : XirEcallapp_getGnssLocationHistory (index)",
             " 14 : XirEcallapp_getMsdHistory (index)",
             " 15 : XirEcallapp_switchToTestMode",
             " 16 : XirEcallapp_switchFromTestMode",
             " 17 : XirEcallapp_getOperatingMode",
             " 18 : XirEcallapp_registerNotifyState",
             " 19 : XirEcallapp_deregisterNotifyState",
             "",
             " 50 : XirEcallapp_get_version_impl",
         }) {
        text += Padded(entry, 116) + "\n";
    }
    return text;
}

constexpr char kNoProxy[] = "pProxyEcallapp == NULL ==> do nothing\n\n";

/// At the eCall menu.
struct EcallMenu : ConsoleWorld {
    EcallMenu() {
        Start();
        ConsoleWorld::Type("1");
    }

    /// The requests that a line sends, with their fields.
    std::vector<std::string> Requests(uint64_t from) {
        std::vector<std::string> requests;
        for (const Entry& entry : module.journal.All(IsKind(Kind::RpcRequest), from)) {
            requests.push_back(entry.text.empty() ? entry.subject : entry.subject + " " + entry.text);
        }
        return requests;
    }
};

}  // namespace

TEST(EcallUIConsoleEcall, TheMenuIsShownPaddedTo116Characters) {
    ConsoleWorld world;
    world.StartAlone();

    EXPECT_EQ(Menu(), world.Type("1"));
    EXPECT_EQ(Menu() + "\n", world.Type("0"));
    EXPECT_EQ(kNoNumber + Menu() + "\n", world.Type(""));
}

TEST(EcallUIConsoleEcall, ACommandOutsideTheTableIsWrong) {
    EcallMenu world;

    for (const char* line : {"20", "49", "51", "-2", "100"}) {
        EXPECT_EQ("wrong command \n\n", world.Type(line)) << line;
    }
}

TEST(EcallUIConsoleEcall, WithoutAProxyNothingIsCalledWhateverTheArguments) {
    ConsoleWorld world;
    world.StartAlone();
    world.Type("1");

    for (const char* command :
         {"3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14", "15", "16", "17", "18", "19", "50"}) {
        EXPECT_EQ(kNoProxy, world.Type(command)) << command;
    }
    EXPECT_EQ(kNoProxy, world.Type("3 1"));
    EXPECT_EQ(kNoProxy, world.Type("3 x"));
    EXPECT_EQ(std::string("XirEcallapp_releaseProxy \n") + kNoProxy, world.Type("2"));
}

namespace {

/// A line, what it prints and what it sends.
struct Exchange {
    const char* line;
    std::string output;
    std::vector<std::string> requests;
};

/// Every line in turn.
void ExpectExchanges(EcallMenu& world, const std::vector<Exchange>& exchanges) {
    for (const Exchange& exchange : exchanges) {
        const uint64_t mark = world.module.journal.Mark();
        EXPECT_EQ(exchange.output, world.Type(exchange.line)) << exchange.line;
        EXPECT_EQ(exchange.requests, world.Requests(mark)) << exchange.line;
    }
}

}  // namespace

TEST(EcallUIConsoleEcall, TriggersACallOfTheGivenKind) {
    const std::string help = "XirEcallapp_triggerEcall needs 1 parameters \n" + Padded("   0 ==> manual ecall", 116) +
                             "\n" + Padded("   1 ==> automatic ecall", 116) + "\n\n";
    EcallMenu world;

    ExpectExchanges(
        world, {
                   {"3 1", "XirEcallapp_triggerEcall : automatic = 1 \n\n", {"triggerEcall automatic=1"}},
                   {"3 0", "XirEcallapp_triggerEcall : automatic = 0 \n\n", {"triggerEcall automatic=0"}},
                   // Its low byte is sent.
                   {"3 256", "XirEcallapp_triggerEcall : automatic = 256 \n\n", {"triggerEcall automatic=0"}},
                   {"3 1 what follows", "XirEcallapp_triggerEcall : automatic = 1 \n\n", {"triggerEcall automatic=1"}},
                   {"3  1", "getIntParam : *piVal = 0 ==> bad parameter\n" + help, {}},
                   {"3", "getIntParam : *piVal = 0 ==> bad parameter\n" + help, {}},
                   {"3 1x", "getIntParam : *piVal = 1 ==> bad parameter\n" + help, {}},
               });
}
