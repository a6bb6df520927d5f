// The console's eCall menu: what it shows, what goes over the wire, what it prints of the answer.
#include <gmock/gmock.h>

#include "ConsoleWorld.h"
#include "LocationPeer.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

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

constexpr char kError[] = "srvcResult ERROR !!!!!! \n";
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

TEST(EcallUIConsoleEcall, CallsWhatTakesNoArguments) {
    EcallMenu world;

    ExpectExchanges(
        world,
        {
            {"4", "\n", {"userRequestCancelEcall"}},
            {"15", "\n", {"switchToTestMode"}},
            {"16", "\n", {"switchFromTestMode"}},
            {"17", "OperatingMode=1\n\n", {"getOperatingMode"}},
            {"50", "com_vantu_ecallapp_iecallapp_get_version_impl \nVersion = virtual module 1.0\n\n", {"getVersion"}},
        });
}

namespace {

/// A line of command 5 and what goes out for it.
Exchange VehicleConfig(const char* line, const std::string& vin, int vehicleType, const std::string& flagSet) {
    std::string said;
    std::string sent;
    for (const char* flag : {"gasolineTankPresent", "dieselTankPresent", "compressedNaturalGas", "liquidPropaneGas",
                             "electricEnergyStorage", "hydrogenStorage", "otherPropulsionStorage"}) {
        const std::string value = std::string(flag) + "=" + (flag == flagSet ? "1" : "0");
        said.append(", ").append(value);
        sent.append(value).append(" ");
    }
    const std::string type = std::to_string(vehicleType);
    static constexpr const char* kTypes[] = {"ClassM1",  "ClassM2",  "ClassM3",  "ClassN1",  "ClassN2",
                                             "ClassN3",  "ClassL1e", "ClassL2e", "ClassL3e", "ClassL4e",
                                             "ClassL5e", "ClassL6e", "ClassL7e"};
    return {line,
            "XirEcallapp_updateVehicleConfig : VIN=" + vin + ", vehicleType = " + type + said +
                "\nXirEcallapp_updateVehicleConfig, srvcResult = 0\n\n",
            {"updateVehicleConfig VIN=\"" + vin + "\" " + sent + "vehicleType=" + kTypes[vehicleType] + "(" + type +
             ") audioTuningSet=\"\""}};
}

}  // namespace

TEST(EcallUIConsoleEcall, TellsTheVehicleWithExactlyOnePropulsion) {
    EcallMenu world;

    ExpectExchanges(world,
                    {
                        VehicleConfig("5 ABCDEFGHJKLMNPRST 3 0", "ABCDEFGHJKLMNPRST", 0, "compressedNaturalGas"),
                        VehicleConfig("5 12345678901234567 1 12", "12345678901234567", 12, "gasolineTankPresent"),
                        VehicleConfig("5 12345678901234567 2 1", "12345678901234567", 1, "dieselTankPresent"),
                        VehicleConfig("5 12345678901234567 4 5", "12345678901234567", 5, "liquidPropaneGas"),
                        VehicleConfig("5 12345678901234567 5 0", "12345678901234567", 0, "electricEnergyStorage"),
                        VehicleConfig("5 12345678901234567 6 0 9", "12345678901234567", 0, "hydrogenStorage"),
                        VehicleConfig("5 12345678901234567 7 0", "12345678901234567", 0, "otherPropulsionStorage"),
                        // Quotes count among the 17, but do not belong to the number.
                        VehicleConfig("5 \"ABCDEFGHJKLMNPR\" 1 0", "ABCDEFGHJKLMNPR", 0, "gasolineTankPresent"),
                    });
}

TEST(EcallUIConsoleEcall, ExplainsWhatItNeedsToTellTheVehicle) {
    const std::string help =
        "XirEcallapp_updateVehicleConfig needs 3 parameters : string of 17 characters + 1 number between 1 and 7 + 1 "
        "number between 0 and 12 \n"
        "propulsionStorageType :\n"
        "   1 ==> gasolineTankPresent\n"
        "   2 ==> dieselTankPresent\n"
        "   3 ==> compressedNaturalGas\n"
        "   4 ==> liquidPropaneGas\n"
        "   5 ==> electricEnergyStorage\n"
        "   6 ==> hydrogenStorage\n"
        "   7 ==> otherPropulsionStorage\n"
        "vehicleType :\n"
        "   0 ==> TVehicleType_ClassM1\n"
        "   1 ==> TVehicleType_ClassM2\n"
        "   2 ==> TVehicleType_ClassM3\n"
        "   3 ==> TVehicleType_ClassN1\n"
        "   4 ==> TVehicleType_ClassN2\n"
        "   5 ==> TVehicleType_ClassN3\n"
        "   6 ==> TVehicleType_ClassL1e\n"
        "   7 ==> TVehicleType_ClassL2e\n"
        "   8 ==> TVehicleType_ClassL3e\n"
        "   9 ==> TVehicleType_ClassL4e\n"
        "  10 ==> TVehicleType_ClassL5e\n"
        "  11 ==> TVehicleType_ClassL6e\n"
        "  12 ==> TVehicleType_ClassL7e\n"
        "\n";
    const std::string badString = "getStringParam : bad parameter\n";
    EcallMenu world;

    ExpectExchanges(world, {
                               {"5", help, {}},               // no text is not said
                               {"5 ", kNoNumber + help, {}},  // an empty text, and no number
                               {"5 12345678901234567 0 0", help, {}},
                               {"5 12345678901234567 8 0", help, {}},
                               {"5 12345678901234567 -1 0", help, {}},
                               {"5 12345678901234567 1 13", help, {}},
                               {"5 12345678901234567 1 -1", help, {}},
                               {"5 12345678901234567 1", kNoNumber + help, {}},
                               {"5 12345678901234567", kNoNumber + help, {}},
                               {"5 12345678901234567  1 0", kNoNumber + help, {}},
                               {"5 123456789012345678 1 0", badString + help, {}},
                               {"5 1234567890123456 1 0", badString + help, {}},  // one too short: eats the blank
                               {"5 SHORT 1 0", kNoNumber + help, {}},             // eats all that follows
                           });
}

TEST(EcallUIConsoleEcall, TellsTheVehiclesState) {
    const std::string help =
        "XirEcallapp_updateVehicleState needs 3 parameters : number of passengers + backupBatteryUsed (0..1) + "
        "ignitionOn (0..1) \n\n";
    const auto said = [](const char* passengers, const char* battery, const char* ignition) {
        return std::string("XirEcallapp_updateVehicleState : numberOfPassengers = ") + passengers +
               ", backupBatteryUsed = " + battery + ", ignitionOn = " + ignition + "\n\n";
    };
    EcallMenu world;

    ExpectExchanges(world, {
                               {"6 4 0 1",
                                said("4", "0", "1"),
                                {"updateVehicleState numberOfPassengers=4 backupBatteryUsed=0 ignitionOn=1"}},
                               {"6 0 1 0",
                                said("0", "1", "0"),
                                {"updateVehicleState numberOfPassengers=0 backupBatteryUsed=1 ignitionOn=0"}},
                               {"6 258 1 1",
                                said("258", "1", "1"),
                                {"updateVehicleState numberOfPassengers=2 backupBatteryUsed=1 ignitionOn=1"}},
                               {"6 4 2 1", help, {}},
                               {"6 4 -1 1", help, {}},
                               {"6 4 0 2", help, {}},
                               {"6 4 0", kNoNumber + help, {}},
                               {"6 4", kNoNumber + help, {}},
                               {"6", kNoNumber + help, {}},
                               {"6 x 0 1", kNoNumber + help, {}},
                           });
}

TEST(EcallUIConsoleEcall, SendsAPositionWithCourse) {
    const std::string help =
        "getDoubleParam : bad parameter\n"
        "XirEcallapp_updateGnssLocation needs 3 float parameters : latitude + longitude + course \n\n";
    const auto sent = [](const std::string& latitude, const std::string& longitude, const std::string& course) {
        return "updateGnssLocation isValid=1 utcTime=0 latitude=" + latitude + " longitude=" + longitude +
               " altitude=0 horizontalAccuracy=0 course=" + course +
               " courseAccuracy=0 speed=0 speedAccuracy=0 courseMagnetic=0 courseMagneticAccuracy=0";
    };
    EcallMenu world;

    ExpectExchanges(world, {
                               {"7 48.8566 2,3522 -90.5",
                                "XirEcallapp_updateGnssLocation : latitude = 48.856600, longitude = 2.352200, course = "
                                "-90.500000 \n\n",
                                {sent("48.8566", "2.3522", "-90.5")}},
                               {"7 0 -0.5 .25",
                                "XirEcallapp_updateGnssLocation : latitude = 0.000000, longitude = -0.500000, course = "
                                "0.250000 \n\n",
                                {sent("0", "-0.5", "0.25")}},
                               {"7 1 2", help, {}},
                               {"7 1", help, {}},
                               {"7", help, {}},
                               {"7 1 2 x", help, {}},
                               {"7 1  2 3", help, {}},
                           });
}

TEST(EcallUIConsoleEcall, ReadsAParameter) {
    EcallMenu world;
    world.peer.With(
        [](EcallService& service) { service.params[13] = {.boolValue = true, .intValue = -7, .strValue = "a text"}; });

    ExpectExchanges(
        world,
        {
            {"9 13",
             "XirEcallapp_getCfgParameter, parameter = 13 \n"
             "parameter boolValue = 1, intValue = -7, StrValue = a text\n\n",
             {"getCfgParameter cfgParamName=ECALL_TIMER_T1_VALUE(13)"}},
            {"9 53",
             "XirEcallapp_getCfgParameter, parameter = 53 \n"
             "parameter boolValue = 0, intValue = 1, StrValue = \n\n",
             {"getCfgParameter cfgParamName=APP_AUDIO_CONFIG_NUMBER(53)"}},
            // The service has no such one and says so; what it sends along is shown.
            {"9 54",
             "XirEcallapp_getCfgParameter, parameter = 54 \n"
             "parameter boolValue = 0, intValue = 0, StrValue = \nsrvcResult ERROR !!!!!! \n",
             {"getCfgParameter cfgParamName=?(54)"}},
            {"9", kNoNumber + "XirEcallapp_getCfgParameter needs 1 parameters : parameter number (0..45) \n\n", {}},
            {"9 a", kNoNumber + "XirEcallapp_getCfgParameter needs 1 parameters : parameter number (0..45) \n\n", {}},
        });
}

TEST(EcallUIConsoleEcall, SetsAParameter) {
    const std::string help =
        "XirEcallapp_setCfgParameter needs 4 parameters : parameter number (0..45), boolean value, integer value, "
        "string value \n"
        "Depending of the parameter number, only one parameter is used.\n\n";
    EcallMenu world;

    ExpectExchanges(
        world,
        {
            {"10 10 0 0 +33 1 12",  // blanks do not belong to a text
             "XirEcallapp_setCfgParameter, paramNumber=10, boolVal=0, intVal=0, stringVal=+33112  \n\n",
             {"setCfgParameter cfgParamName=ECALL_PHONE_NUMBER(10) boolValue=0 intValue=0 StrValue=\"+33112\""}},
            {"10 13 1 -5 \"\"",
             "XirEcallapp_setCfgParameter, paramNumber=13, boolVal=1, intVal=-5, stringVal=  \n\n",
             {"setCfgParameter cfgParamName=ECALL_TIMER_T1_VALUE(13) boolValue=1 intValue=-5 StrValue=\"\""}},
            {"10 9 256 0 x",  // the low byte of a boolean is sent
             "XirEcallapp_setCfgParameter, paramNumber=9, boolVal=256, intVal=0, stringVal=x  \n\n",
             {"setCfgParameter cfgParamName=PHONES_NUMBERS_FROM_USIM(9) boolValue=0 intValue=0 StrValue=\"x\""}},
            {"10 9 1 0 ",  // the line's end is a text, an empty one
             "XirEcallapp_setCfgParameter, paramNumber=9, boolVal=1, intVal=0, stringVal=  \n\n",
             {"setCfgParameter cfgParamName=PHONES_NUMBERS_FROM_USIM(9) boolValue=1 intValue=0 StrValue=\"\""}},
            {"10 9 1 0", help, {}},
            {"10 9 1", kNoNumber + help, {}},
            {"10 9", kNoNumber + help, {}},
            {"10", kNoNumber + help, {}},
        });
    world.peer.With([](EcallService& service) { EXPECT_EQ("+33112", service.params[10].strValue); });
}

TEST(EcallUIConsoleEcall, ATextMayHaveAllThatTheLineHas) {
    const std::string text(127 - sizeof "10 10 0 0", 'a');
    const std::string line = "10 10 0 0 " + text;
    EcallMenu world;

    ExpectExchanges(
        world,
        {{line.c_str(),
          "XirEcallapp_setCfgParameter, paramNumber=10, boolVal=0, intVal=0, stringVal=" + text + "  \n\n\n\n" +
              kNoNumber + Menu() + "\n",  // the line feed alone is the next line
          {"setCfgParameter cfgParamName=ECALL_PHONE_NUMBER(10) boolValue=0 intValue=0 StrValue=\"" + text + "\""}}});
}

TEST(EcallUIConsoleEcall, ShowsTheSelfTestOfAllDevices) {
    EcallMenu world;
    world.peer.With([](EcallService& service) {
        for (uint32_t device = 0; device < kSelfTestDevices; ++device) {
            service.selfTest.at(device) = 10 + device;
        }
    });

    ExpectExchanges(
        world,
        {{"11",
          "fwImageIntegrity=10, cellularAntennaConnection=11, simPresent=12, cellularReceiverOperability=13 ,\n"
          "gnssParametersIntegrity=14, gnssAntennaConnection=15, gnssReceiverOperability=16, "
          "rtaDetectorOperability=17, microphoneConnection=18, \n"
          "microphoneOperability=19, loudspeakerConnection=20, loudspeakerOperability=21, backupBatteryLevel=22, "
          "statusIndicatorOperability=23, uimOperability=24 \n\n",
          {"getSelfTestAllDevicesState"}}});
}

namespace {

/// The request of command 12, from the devices' results in field order.
std::string SelfTestReport(const std::string& results) {
    static constexpr const char* kDevices[kSelfTestDevices] = {"fwImageIntegrity",
                                                               "cellularAntennaConnection",
                                                               "simPresent",
                                                               "cellularReceiverOperability",
                                                               "gnssParametersIntegrity",
                                                               "gnssAntennaConnection",
                                                               "gnssReceiverOperability",
                                                               "rtaDetectorOperability",
                                                               "microphoneConnection",
                                                               "microphoneOperability",
                                                               "loudspeakerConnection",
                                                               "loudspeakerOperability",
                                                               "backupBatteryLevel",
                                                               "statusIndicatorOperability",
                                                               "uimOperability"};
    static constexpr const char* kResults[] = {"Success(0)", "Failed(1)", "NotHandled(2)"};
    std::string text = "updateSelfTestAllDevicesState";
    for (size_t device = 0; device < kSelfTestDevices; ++device) {
        text.append(" ").append(kDevices[device]).append("=").append(kResults[results[device] - '0']);
    }
    return text;
}

}  // namespace

TEST(EcallUIConsoleEcall, ReportsOneOfThreeSelfTests) {
    const std::string help =
        "XirEcallapp_updateSelfTestAllDevicesState needs 1 parameter :\n"
        "0 ==> all devices TSelfTestDeviceState_NotHandled\n"
        "1 ==> all devices TSelfTestDeviceState_Success\n"
        "2 ==> 50% devices TSelfTestDeviceState_Success, 50% TSelfTestDeviceState_Failed\n\n";
    EcallMenu world;

    ExpectExchanges(world, {
                               {"12 1", "\n", {SelfTestReport("222222222222222")}},
                               {"12 2", "\n", {SelfTestReport("002000000000000")}},
                               {"12 3", "\n", {SelfTestReport("012101010101010")}},
                               {"12 0", help, {}},
                               {"12 4", help, {}},
                               {"12 -2", help, {}},
                               {"12", kNoNumber + help, {}},
                           });
}

TEST(EcallUIConsoleEcall, ShowsTheHistoryOfPositions) {
    const std::string help =
        "XirEcallapp_getGnssLocationHistory needs 1 parameter : index of the location \n"
        "0 ==> location of the crash\n"
        "negative ==> location before the crash\n"
        "positive ==> location after the crash\n\n";
    EcallMenu world;
    world.Type("7 48.5 2.25 0");
    world.Type("7 -1.5 -0.25 0");

    ExpectExchanges(
        world,
        {
            {"13 -1",
             "XirEcallapp_getGnssLocationHistory number -1\nnbBefore=2, nbAfter=0,lat=-1.500000, long=-0.250000\n\n",
             {"getGnssLocationHistory Index=-1"}},
            {"13 65534",  // 16 bits of it are sent, with their sign
             "XirEcallapp_getGnssLocationHistory number 65534\nnbBefore=2, nbAfter=0,lat=48.500000, "
             "long=2.250000\n\n",
             {"getGnssLocationHistory Index=-2"}},
            {"13 0",
             "XirEcallapp_getGnssLocationHistory number 0\nnbBefore=2, nbAfter=0,lat=0.000000, "
             "long=0.000000\nsrvcResult ERROR !!!!!! \n",
             {"getGnssLocationHistory Index=0"}},
            {"13", kNoNumber + help, {}},
        });
}

TEST(EcallUIConsoleEcall, ShowsTheHistoryOfMsds) {
    EcallMenu world;
    world.peer.With([](EcallService& service) { service.msds = {"the newest", "one before"}; });

    ExpectExchanges(world,
                    {
                        {"14 0",
                         "XirEcallapp_getMsdHistory number 0\ntotalMsdStored=2, index=0, info=the newest\n\n",
                         {"getMsdHistory historyIndNumber=0"}},
                        {"14 257",  // its low byte is sent
                         "XirEcallapp_getMsdHistory number 257\ntotalMsdStored=2, index=1, info=one before\n\n",
                         {"getMsdHistory historyIndNumber=1"}},
                        {"14 -1",
                         "XirEcallapp_getMsdHistory number -1\ntotalMsdStored=2, index=255, info=\n"
                         "srvcResult ERROR !!!!!! \n",
                         {"getMsdHistory historyIndNumber=255"}},
                        {"14", kNoNumber + "XirEcallapp_getMsdHistory needs 1 parameter : index of the MSD  \n\n", {}},
                    });
}

// What the service answers.

TEST(EcallUIConsoleEcall, ARefusalIsSaidAfterEachCommand) {
    static constexpr const char* kLines[] = {"3 1",     "4",         "5 12345678901234567 1 0",
                                             "6 0 0 0", "7 1 2 3",   "8",
                                             "9 13",    "10 9 0 0 ", "11",
                                             "12 1",    "13 0",      "14 0",
                                             "15",      "16",        "17",
                                             "50",      "19",        "18"};
    EcallMenu world;
    world.peer.AnswerAll({.code = 7});

    for (const char* line : kLines) {
        EXPECT_THAT(world.Type(line), EndsWith(kError)) << line;
        EXPECT_EQ("wrong command \n\n", world.Type("20"));  // said of the call in its own pass only
    }
}

TEST(EcallUIConsoleEcall, AReplyThatDoesNotComeIsAnErrorAndShowsNothing) {
    EcallMenu world;
    world.peer.AnswerAll({.missing = true});

    EXPECT_EQ(kError, world.Type("4"));
    EXPECT_EQ(kError, world.Type("8"));
    EXPECT_EQ(kError, world.Type("11"));
    EXPECT_EQ(kError, world.Type("17"));
    EXPECT_EQ(std::string("XirEcallapp_getCfgParameter, parameter = 13 \n") + kError, world.Type("9 13"));
    EXPECT_EQ(std::string("XirEcallapp_getGnssLocationHistory number 0\n") + kError, world.Type("13 0"));
    EXPECT_EQ(std::string("XirEcallapp_getMsdHistory number 0\n") + kError, world.Type("14 0"));
    EXPECT_EQ(std::string("com_vantu_ecallapp_iecallapp_get_version_impl \n") + kError, world.Type("50"));
    EXPECT_THAT(world.Type("5 12345678901234567 1 0"),
                EndsWith(std::string("\nXirEcallapp_updateVehicleConfig, srvcResult = -12\n") + kError));
}

TEST(EcallUIConsoleEcall, ARefusalShowsWhatCameAlong) {
    EcallMenu world;
    world.peer.AnswerAll({.code = 7});

    EXPECT_EQ(std::string("OperatingMode=0\n") + kError, world.Type("17"));
    EXPECT_THAT(world.Type("5 12345678901234567 1 0"),
                EndsWith(std::string("\nXirEcallapp_updateVehicleConfig, srvcResult = 7\n") + kError));
}

TEST(EcallUIConsoleEcall, AServiceThatIsGoneIsAnErrorUntilItIsBack) {
    EcallMenu world;
    Journal& journal = world.module.journal;

    world.peer.Stop();
    world.module.Service().Input("4\n");
    journal.Await(IsWithinConsoleLine("srvcResult ERROR !!!!!! "));

    const uint64_t mark = journal.Mark();
    ASSERT_TRUE(world.peer.Start());
    Match subscribed = IsKind(Kind::RpcReply);  // the client repeats it by itself
    subscribed.subject = "subscribe";
    journal.Await(subscribed, mark);
    world.peer.SetState({.serviceState = ecall::kBroken});  // once it is followed, the client knows its connection
    journal.Await(IsTraced("TEcallappServiceState_Broken"), mark);
    world.module.Service().Input("50\n");
    journal.Await(IsWithinConsoleLine("Version = virtual module 1.0"), mark);
}

// States.

namespace {

const std::string kSubscribed =
    "SendSubscribeRequest send subscription message to server side (msgId=18)\n"
    "SendSubscribeRequest- subscription response = 0\n\n";
const std::string kUnsubscribed =
    "SendUnSubscribeRequest send unsubscription message to server side (msgId=18)\n"
    "SendUnSubscribeRequest- subscription response = 0\n\n";

}  // namespace

TEST(EcallUIConsoleEcall, AStateThatIsAskedForIsFollowed) {
    EcallMenu world;
    world.Type("19");
    world.peer.SetState({.serviceState = ecall::kActiveManualCall});
    const uint64_t mark = world.module.journal.Mark();

    const std::string output = world.Type("8");

    EXPECT_THAT(output, HasSubstr("service state    : TEcallappServiceState_ActiveManualECall (100) \n\r"));
    EXPECT_THAT(output, EndsWith("SetGpioServiceState - exit\n\r\n"));
    EXPECT_THAT(world.Requests(mark), ElementsAre("requestState"));
    EXPECT_EQ(0U, world.module.journal.Count(IsKind(Kind::RpcNotify), mark));
    EXPECT_EQ(1U, world.module.journal.Count(IsWritten(line::kNlock, "0"), mark));
}

TEST(EcallUIConsoleEcall, AStateThatComesWithARefusalIsFollowedToo) {
    EcallMenu world;
    world.peer.Answer(EcallMethod::RequestState, {.code = 7});

    const std::string output = world.Type("8");

    // What comes along is a record of zeros.
    EXPECT_THAT(output, HasSubstr("service state    : TEcallappServiceState_Disabled (0) \n\r"));
    EXPECT_THAT(output, EndsWith("SetGpioServiceState - exit\n\r" + std::string(kError)));
}

TEST(EcallUIConsoleEcall, StatesAreNotifiedWhileTheirHandlerIsRegistered) {
    EcallMenu world;
    Journal& journal = world.module.journal;

    EXPECT_EQ(kError, world.Type("18"));  // start-up has registered it
    EXPECT_EQ(kUnsubscribed, world.Type("19"));
    EXPECT_EQ(kError, world.Type("19"));
    world.peer.SetState({.serviceState = ecall::kBroken});
    EXPECT_EQ(kSubscribed, world.Type("18"));
    EXPECT_EQ(kError, world.Type("18"));
    world.peer.SetState({.serviceState = ecall::kInitializing});

    journal.Await(IsTraced("service state    : TEcallappServiceState_Initializing (2)"));
    EXPECT_EQ(0U, journal.Count(IsTraced("service state    : TEcallappServiceState_Broken (1)")));
    EXPECT_EQ(2U, world.peer.Requests(EcallMethod::Subscribe));
    EXPECT_EQ(1U, world.peer.Requests(EcallMethod::Unsubscribe));
}

// The proxy.

namespace {

constexpr char kCreate[] = "XirEcallapp_createProxy \n";
constexpr char kRelease[] = "XirEcallapp_releaseProxy \n";

/// An eCall menu without a proxy, beside a service that is there.
struct UnconnectedMenu : EcallMenu {
    UnconnectedMenu() { EcallMenu::Type("2"); }
};

}  // namespace

TEST(EcallUIConsoleEcall, AReleasedProxyIsGoneAndCalledNoMore) {
    EcallMenu world;

    EXPECT_THAT(world.Type("2"), StartsWith(std::string(kRelease) + "releaseIEcallAppPubProxy (0x"));

    const uint64_t mark = world.module.journal.Mark();
    EXPECT_EQ(kNoProxy, world.Type("4"));
    EXPECT_EQ(kNoProxy, world.Type("18"));
    EXPECT_EQ(kRelease + std::string(kNoProxy), world.Type("2"));
    EXPECT_THAT(world.Requests(mark), IsEmpty());
}

TEST(EcallUIConsoleEcall, ACreatedProxyIsTheOneThatAllUse) {
    UnconnectedMenu world;
    const uint64_t mark = world.module.journal.Mark();

    const std::string output = world.Type("1");

    EXPECT_THAT(output, StartsWith(kCreate));
    EXPECT_THAT(output, HasSubstr("Connected. (srvcUrl=xirtcp://127.0.0.1:50911)\n"));
    EXPECT_THAT(output, Not(HasSubstr("ERROR")));
    EXPECT_THAT(world.Requests(mark), ElementsAre(HasSubstr("getIEcallAppVersion")));
    EXPECT_EQ("\n", world.Type("4"));
    EXPECT_EQ(kSubscribed, world.Type("18"));  // nothing was registered with it
}

TEST(EcallUIConsoleEcall, AServiceThatWasNotUsedCanBeConnected) {
    ConsoleWorld world;
    ASSERT_TRUE(world.peer.Start());
    world.peer.SetState({});
    world.StartAlone();
    world.Type("1");

    EXPECT_THAT(world.Type("1"), StartsWith(kCreate));

    EXPECT_EQ("XirEcallapp_triggerEcall : automatic = 0 \n\n", world.Type("3 0"));
}

TEST(EcallUIConsoleEcall, ASecondProxyTakesThePlaceOfTheFirst) {
    EcallMenu world;

    const std::string output = world.Type("1");

    const size_t released = output.find("releaseIEcallAppPubProxy (0x");
    ASSERT_NE(std::string::npos, released);
    EXPECT_LT(output.find("Connected. (srvcUrl="), released);
    EXPECT_EQ("\n", world.Type("4"));
    EXPECT_EQ(kSubscribed, world.Type("18"));
}

TEST(EcallUIConsoleEcall, AProxyThatCannotBeCreatedLeavesNone) {
    UnconnectedMenu world;
    world.peer.With([](EcallService& service) { service.identity.major = 3; });

    const std::string output = world.Type("1");

    EXPECT_THAT(output, StartsWith(kCreate));
    EXPECT_THAT(output, EndsWith(std::string("ERROR srvcResult = -14 !!!!!! \n") + kError));
    EXPECT_EQ(kNoProxy, world.Type("4"));
}

TEST(EcallUIConsoleEcall, AProxyThatCannotBeCreatedLeavesTheOneInUse) {
    EcallMenu world;
    world.peer.With([](EcallService& service) { service.identity.name = "com.vantu.location"; });

    EXPECT_THAT(world.Type("1"), EndsWith(std::string("ERROR srvcResult = -13 !!!!!! \n") + kError));

    EXPECT_EQ("\n", world.Type("4"));
    EXPECT_EQ(kError, world.Type("18"));  // still registered
}

// The proxy while others use it.

namespace {

/// At the eCall menu of a service with sensor, button and positions, whose eCall service lives; there is much on the
/// console.
struct BusyMenu : ConsoleWorld {
    LocationPeer locations{module.journal};

    BusyMenu() {
        EXPECT_TRUE(peer.Start() && locations.Start());
        StartAsConfigured(R"("ConnectLocationService": true)");
        EXPECT_TRUE(locations.AwaitRequests(LocationMethod::Subscribe, 1));
        AwaitReady();
        module.Service().Input("1\n");
    }
};

}  // namespace

TEST(EcallUIConsoleEcall, ACallUnderWayIsAwaitedBeforeItsProxyGoes) {
    BusyMenu world;
    Journal& journal = world.module.journal;
    world.peer.Answer(EcallMethod::TriggerEcall, {.held = true});
    world.module.SensorBecomes(SensorStatus::Emergency);
    ASSERT_TRUE(world.peer.AwaitRequests(EcallMethod::TriggerEcall, 1));

    world.module.Service().Input("2\n");
    const Entry asked = journal.Await(IsWithinConsoleLine("XirEcallapp_releaseProxy "));
    world.peer.SetState({.serviceState = ecall::kBroken});  // what is said next, if nothing is released meanwhile
    const Entry next = journal.Await(IsWithinConsoleLine("TEcallappServiceState_Broken"), asked.seq);
    EXPECT_EQ(0U, journal.Count(IsWithinConsoleLine("releaseIEcallAppPubProxy"), 0, next.seq));
    world.peer.Release();

    journal.Await(IsWithinConsoleLine("releaseIEcallAppPubProxy"), next.seq);
    journal.Await(IsTraced("CanTriggerAutoEcall=0"));  // the trigger had its reply
}

TEST(EcallUIConsoleEcall, TheProxyInUseStaysWhileAnotherIsWaitedFor) {
    BusyMenu world;
    Journal& journal = world.module.journal;
    world.peer.Stop();
    world.module.Service().Input("1\n");
    journal.AwaitCount(3, IsWithinConsoleLine("Connecting... (srvcUrl="));  // two at start-up

    world.module.SensorBecomes(SensorStatus::Emergency);

    journal.Await(IsTracedAs("XirEcallapp_triggerEcall error :  srvcResult = -12"));
    EXPECT_EQ(0U, journal.Count(IsTraced("pProxyEcallapp == NULL")));
}

TEST(EcallUIConsoleEcall, ACrashWithoutAProxyIsReportedOnceThereIsOneAndItIsSeenAgain) {
    BusyMenu world;
    Journal& journal = world.module.journal;
    world.module.Service().Input("2\n");
    journal.Await(IsWithinConsoleLine("IEcallApp_dispatchThread end"));

    world.module.SensorBecomes(SensorStatus::Emergency);
    journal.Await(IsTraced("pProxyEcallapp == NULL ==> do nothing"));
    const uint64_t mark = journal.Mark();
    world.module.Service().Input("1\n18\n");
    journal.Await(IsRpcRequest("subscribe"), mark);

    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIConsoleEcall, AProxyThatComesAndGoesHarmsNobodyWhoUsesIt) {
    BusyMenu world;
    Journal& journal = world.module.journal;
    constexpr int kRounds = 6;
    // The calls of positions last longer than a dispatch thread takes to end.
    world.peer.Answer(EcallMethod::UpdateGnssLocation, {.delay = 400ms});
    for (int round = 0; round < kRounds; ++round) {
        const uint64_t mark = journal.Mark();
        world.locations.Send({.latitude = 48.5, .valid = round % 2 == 0});
        journal.Await(IsRpcRequest("updateGnssLocation"), mark);
        world.module.Service().Input(round % 2 == 0 ? "2\n1\n18\n77777x\n" : "1\n18\n4\n8\n77777x\n");
        world.module.SensorBecomes(SensorStatus::Emergency);
        world.peer.RequestSelfTest();
        world.module.SensorBecomes(SensorStatus::Normal);
        world.peer.With([](EcallService& service) { service.state.selfTestState = ecall::kSelfTestUnknown; });
        journal.Await(IsWithinConsoleLine("getIntParam : *piVal = 77777 ==> bad parameter"), mark);
    }

    const uint64_t mark = journal.Mark();
    world.locations.Send({.latitude = 48.75, .valid = true});
    Match forwarded = IsRpcRequest("updateGnssLocation");
    forwarded.contains = "latitude=48.75";
    journal.Await(forwarded, mark);
    // The event thread has come to the end of what was sent, and may call.
    world.module.SensorBecomes(SensorStatus::Normal);
    journal.AwaitCount(kRounds + 1, IsTraced("AIRBAG_SENSOR_NORMAL_MODE_10HZ ==> sensor detected"));
    const size_t before = world.peer.Requests(EcallMethod::TriggerEcall);
    world.module.SensorBecomes(SensorStatus::Emergency);
    EXPECT_TRUE(world.peer.AwaitRequests(EcallMethod::TriggerEcall, before + 1));
}
