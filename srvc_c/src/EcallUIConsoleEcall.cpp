// Every operation of the eCall service's client by hand: a row per command.
//
// Commands 1 and 2 change the proxy that the whole service works with. Other threads may be inside a call of the old
// one then, so it is released only after they have let go of it; all other commands hold it for their length.
#include <iterator>
#include <optional>
#include <span>

#include "EcallUIAppConnect.h"
#include "EcallUIAppNotify.h"
#include "EcallUIConsoleMenus.h"
#include "EcallUIConsoleOutput.h"
#include "EcallUIShared.h"
#include "Received.h"

namespace {

constexpr int kMenuWidth = 116;  // of an entry, in characters as shown
constexpr int kNumberWidth = 6;
constexpr std::size_t kVinLength = 17;
constexpr std::size_t kLongestText = 255;

/// Status of the command's call; none when an argument was bad and nothing was called.
using Outcome = std::optional<int32_t>;
constexpr Outcome kBadArgument = std::nullopt;

/// What a bad argument is answered with.
struct Help {
    const char* text = "";
    std::span<const char* const> lines = {};
    int width = 0;  ///< to which the lines are padded
};

/// What the command does with the service's proxy.
enum class Proxy { Used, Changed };

struct EcallCommand {
    int32_t number;
    Proxy proxy;
    const char* text;                                               ///< as the menu shows it
    Outcome (*run)(IEcallAppPubProxy* proxy, ConsoleInput& input);  ///< proxy: held while it is used, else null
    Help help = {};
};

constexpr char kNoProxy[] = "pProxyEcallapp == NULL ==> do nothing";

/// Shows the record of a get operation, if one came, and frees it.
template <typename T, typename Call, typename Show>
int32_t Get(Call call, Show show) {
    XirRecord<T>* record = nullptr;
    const int32_t status = call(&record);
    const Received<T> received(record);
    if (received != nullptr) {
        show(*received);
    }
    return status;
}

// The calls.

Outcome TriggerEcall(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    int32_t automatic = 0;
    if (!getIntParam(input, automatic)) {
        return kBadArgument;
    }
    PrintLine("XirEcallapp_triggerEcall : automatic = %d \n", automatic);
    return XirEcallapp_triggerEcall(proxy, static_cast<uint8_t>(automatic));
}

/// One flag is set: that of the storage's number, counted from 1.
TVehicleConfig MakeVehicleConfig(const char* vin, int32_t propulsionStorage, uint32_t vehicleType) {
    const auto is = [propulsionStorage](int32_t number) -> uint8_t { return propulsionStorage == number ? 1 : 0; };
    return {.VIN = vin,
            .gasolineTankPresent = is(1),
            .dieselTankPresent = is(2),
            .compressedNaturalGas = is(3),
            .liquidPropaneGas = is(4),
            .electricEnergyStorage = is(5),
            .hydrogenStorage = is(6),
            .otherPropulsionStorage = is(7),
            .vehicleType = vehicleType,
            .audioTuningSet = ""};
}

Outcome UpdateVehicleConfig(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    const char* vin = nullptr;
    int32_t propulsionStorage = 0;
    int32_t vehicleType = 0;
    if (!getStringParam(input, kVinLength, vin) || !getIntParam(input, propulsionStorage) || propulsionStorage < 1 ||
        propulsionStorage > 7 || !getIntParam(input, vehicleType) || static_cast<uint32_t>(vehicleType) > 12) {
        return kBadArgument;
    }
    const TVehicleConfig config = MakeVehicleConfig(vin, propulsionStorage, static_cast<uint32_t>(vehicleType));
    PrintLine(
        "XirEcallapp_updateVehicleConfig : VIN=%s, vehicleType = %d, gasolineTankPresent=%d, dieselTankPresent=%d, "
        "compressedNaturalGas=%d, liquidPropaneGas=%d, electricEnergyStorage=%d, hydrogenStorage=%d, "
        "otherPropulsionStorage=%d",
        config.VIN, config.vehicleType, config.gasolineTankPresent, config.dieselTankPresent,
        config.compressedNaturalGas, config.liquidPropaneGas, config.electricEnergyStorage, config.hydrogenStorage,
        config.otherPropulsionStorage);
    const int32_t status = XirEcallapp_updateVehicleConfig(proxy, &config);
    PrintLine("XirEcallapp_updateVehicleConfig, srvcResult = %d", status);
    return status;
}

bool IsFlag(int32_t value) {
    return value == 0 || value == 1;
}

Outcome UpdateVehicleState(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    int32_t passengers = 0;
    int32_t backupBatteryUsed = 0;
    int32_t ignitionOn = 0;
    if (!getIntParam(input, passengers) || !getIntParam(input, backupBatteryUsed) || !IsFlag(backupBatteryUsed) ||
        !getIntParam(input, ignitionOn) || !IsFlag(ignitionOn)) {
        return kBadArgument;
    }
    PrintLine("XirEcallapp_updateVehicleState : numberOfPassengers = %d, backupBatteryUsed = %d, ignitionOn = %d\n",
              passengers, backupBatteryUsed, ignitionOn);
    const TVehicleState state{static_cast<uint8_t>(passengers), static_cast<uint8_t>(backupBatteryUsed),
                              static_cast<uint8_t>(ignitionOn)};
    return XirEcallapp_updateVehicleState(proxy, &state);
}

Outcome UpdateGnssLocation(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    double latitude = 0;
    double longitude = 0;
    double course = 0;
    if (!getDoubleParam(input, latitude) || !getDoubleParam(input, longitude) || !getDoubleParam(input, course)) {
        return kBadArgument;
    }
    PrintLine("XirEcallapp_updateGnssLocation : latitude = %f, longitude = %f, course = %f \n", latitude, longitude,
              course);
    TGnssLocation location{};
    location.isValid = 1;
    location.latitude = latitude;
    location.longitude = longitude;
    location.course = static_cast<float>(course);
    return XirEcallapp_updateGnssLocation(proxy, &location);
}

Outcome RequestState(IEcallAppPubProxy* proxy, ConsoleInput& /*input*/) {
    return Get<TEcallappState>([proxy](auto** state) { return XirEcallapp_requestState(proxy, state); },
                               [](const TEcallappState& state) { EcallStateNotification(&state); });
}

Outcome GetCfgParameter(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    int32_t number = 0;
    if (!getIntParam(input, number)) {
        return kBadArgument;
    }
    PrintLine("XirEcallapp_getCfgParameter, parameter = %d \n", number);
    return Get<TCfgParamValue>(
        [proxy, number](auto** value) {
            return XirEcallapp_getCfgParameter(proxy, static_cast<uint32_t>(number), value);
        },
        [](const TCfgParamValue& value) {
            PrintLine("parameter boolValue = %d, intValue = %d, StrValue = %s\n", value.boolValue, value.intValue,
                      value.StrValue);
        });
}

Outcome SetCfgParameter(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    int32_t number = 0;
    int32_t boolValue = 0;
    int32_t intValue = 0;
    const char* text = nullptr;
    if (!getIntParam(input, number) || !getIntParam(input, boolValue) || !getIntParam(input, intValue) ||
        !getStringParam(input, kLongestText, text)) {
        return kBadArgument;
    }
    PrintLine("XirEcallapp_setCfgParameter, paramNumber=%d, boolVal=%d, intVal=%d, stringVal=%s  \n", number, boolValue,
              intValue, text);
    const TCfgParamValue value{static_cast<uint8_t>(boolValue), intValue, text};
    return XirEcallapp_setCfgParameter(proxy, static_cast<uint32_t>(number), &value);
}

Outcome GetSelfTest(IEcallAppPubProxy* proxy, ConsoleInput& /*input*/) {
    return Get<TSelfTestAllDevicesState>(
        [proxy](auto** result) { return XirEcallapp_getSelfTestAllDevicesState(proxy, result); },
        [](const TSelfTestAllDevicesState& devices) {
            PrintLine(
                "fwImageIntegrity=%d, cellularAntennaConnection=%d, simPresent=%d, cellularReceiverOperability=%d ,\n"
                "gnssParametersIntegrity=%d, gnssAntennaConnection=%d, gnssReceiverOperability=%d, "
                "rtaDetectorOperability=%d, microphoneConnection=%d, \n"
                "microphoneOperability=%d, loudspeakerConnection=%d, loudspeakerOperability=%d, "
                "backupBatteryLevel=%d, statusIndicatorOperability=%d, uimOperability=%d \n",
                devices.fwImageIntegrity, devices.cellularAntennaConnection, devices.simPresent,
                devices.cellularReceiverOperability, devices.gnssParametersIntegrity, devices.gnssAntennaConnection,
                devices.gnssReceiverOperability, devices.rtaDetectorOperability, devices.microphoneConnection,
                devices.microphoneOperability, devices.loudspeakerConnection, devices.loudspeakerOperability,
                devices.backupBatteryLevel, devices.statusIndicatorOperability, devices.uimOperability);
        });
}

// In field order. The second and third leave simPresent, the third one, as it is.
constexpr TSelfTestAllDevicesState kSelfTestReports[] = {
    {2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2},
    {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {0, 1, 2, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0},
};

Outcome UpdateSelfTest(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    int32_t number = 0;
    if (!getIntParam(input, number) || number < 1 || number > static_cast<int32_t>(std::size(kSelfTestReports))) {
        return kBadArgument;
    }
    return XirEcallapp_updateSelfTestAllDevicesState(proxy, &kSelfTestReports[number - 1]);
}

Outcome GetGnssLocationHistory(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    int32_t index = 0;
    if (!getIntParam(input, index)) {
        return kBadArgument;
    }
    PrintLine("XirEcallapp_getGnssLocationHistory number %d\n", index);
    return Get<TEcallGnssLocationHistory>(
        [proxy, index](auto** history) {
            return XirEcallapp_getGnssLocationHistory(proxy, static_cast<int16_t>(index), history);
        },
        [](const TEcallGnssLocationHistory& history) {
            PrintLine("nbBefore=%d, nbAfter=%d,lat=%lf, long=%lf", history.totalGnssLocationStoredBeforeCrash,
                      history.totalGnssLocationStoredAfterCrash, history.data.latitude, history.data.longitude);
        });
}

Outcome GetMsdHistory(IEcallAppPubProxy* proxy, ConsoleInput& input) {
    int32_t index = 0;
    if (!getIntParam(input, index)) {
        return kBadArgument;
    }
    PrintLine("XirEcallapp_getMsdHistory number %d\n", index);
    return Get<TEcallMsdHistory>(
        [proxy, index](auto** history) {
            return XirEcallapp_getMsdHistory(proxy, static_cast<uint8_t>(index), history);
        },
        [](const TEcallMsdHistory& history) {
            PrintLine("totalMsdStored=%d, index=%d, info=%s", history.totalMsdStored, history.index, history.info);
        });
}

Outcome GetOperatingMode(IEcallAppPubProxy* proxy, ConsoleInput& /*input*/) {
    return Get<TEcallOperatingMode>([proxy](auto** mode) { return XirEcallapp_getOperatingMode(proxy, mode); },
                                    [](const TEcallOperatingMode& mode) { PrintLine("OperatingMode=%d", mode.mode); });
}

Outcome GetVersion(IEcallAppPubProxy* proxy, ConsoleInput& /*input*/) {
    PrintLine("com_vantu_ecallapp_iecallapp_get_version_impl ");
    return Get<TEcallVersion>([proxy](auto** version) { return XirEcallapp_getVersion(proxy, version); },
                              [](const TEcallVersion& version) { PrintLine("Version = %s", version.strVersion); });
}

/// An operation that takes and gives nothing.
template <int32_t (*Operation)(IEcallAppPubProxy*)>
Outcome Call(IEcallAppPubProxy* proxy, ConsoleInput& /*input*/) {
    return Operation(proxy);
}

template <int32_t (*Operation)(IEcallAppPubProxy*, XirEcallappStateCallback)>
Outcome CallWithHandler(IEcallAppPubProxy* proxy, ConsoleInput& /*input*/) {
    return Operation(proxy, EcallStateNotification);
}

// The proxy itself.

/// Puts another proxy, or none, in place and releases the one before, once nobody uses it any more.
void ReplaceProxy(IEcallAppPubProxy* next) {
    XirEcallapp_releaseProxy(pProxyEcallapp.exchange(next));
}

/// The proxy in use is given up only for one that works: a crash must be reported meanwhile.
Outcome CreateProxy(IEcallAppPubProxy* /*before*/, ConsoleInput& /*input*/) {
    PrintLine("XirEcallapp_createProxy ");
    IEcallAppPubProxy* proxy = nullptr;
    const int32_t status = XirEcallapp_createProxy(&proxy, &kEcallConnection);
    if (status != 0 || proxy == nullptr) {
        PrintLine("ERROR srvcResult = %d !!!!!! \n", status);
        return status;
    }
    ReplaceProxy(proxy);
    return 0;
}

Outcome ReleaseProxy(IEcallAppPubProxy* /*before*/, ConsoleInput& /*input*/) {
    PrintLine("XirEcallapp_releaseProxy ");
    if (pProxyEcallapp.hold() == nullptr) {
        PrintLine(kNoProxy);
    } else {
        ReplaceProxy(nullptr);
    }
    return 0;
}

// The menu.

constexpr const char* kTriggerLines[] = {"   0 ==> manual ecall", "   1 ==> automatic ecall"};
constexpr const char* kVehicleConfigLines[] = {
    "propulsionStorageType :",        "   1 ==> gasolineTankPresent",    "   2 ==> dieselTankPresent",
    "   3 ==> compressedNaturalGas",  "   4 ==> liquidPropaneGas",       "   5 ==> electricEnergyStorage",
    "   6 ==> hydrogenStorage",       "   7 ==> otherPropulsionStorage", "vehicleType :",
    "   0 ==> TVehicleType_ClassM1",  "   1 ==> TVehicleType_ClassM2",   "   2 ==> TVehicleType_ClassM3",
    "   3 ==> TVehicleType_ClassN1",  "   4 ==> TVehicleType_ClassN2",   "   5 ==> TVehicleType_ClassN3",
    "   6 ==> TVehicleType_ClassL1e", "   7 ==> TVehicleType_ClassL2e",  "   8 ==> TVehicleType_ClassL3e",
    "   9 ==> TVehicleType_ClassL4e", "  10 ==> TVehicleType_ClassL5e",  "  11 ==> TVehicleType_ClassL6e",
    "  12 ==> TVehicleType_ClassL7e",
};
constexpr const char* kSetCfgParameterLines[] = {"Depending of the parameter number, only one parameter is used."};
// Counted from 0, though the command takes 1 to 3.
constexpr const char* kSelfTestLines[] = {
    "0 ==> all devices TSelfTestDeviceState_NotHandled",
    "1 ==> all devices TSelfTestDeviceState_Success",
    "2 ==> 50% devices TSelfTestDeviceState_Success, 50% TSelfTestDeviceState_Failed",
};
constexpr const char* kLocationHistoryLines[] = {
    "0 ==> location of the crash",
    "negative ==> location before the crash",
    "positive ==> location after the crash",
};

constexpr EcallCommand kCommands[] = {
    {1, Proxy::Changed, "XirEcallapp_createProxy", CreateProxy},
    {2, Proxy::Changed, "XirEcallapp_releaseProxy", ReleaseProxy},
    {3,
     Proxy::Used,
     "XirEcallapp_triggerEcall (manual(0)/auto(1)",
     TriggerEcall,
     {"XirEcallapp_triggerEcall needs 1 parameters ", kTriggerLines, kMenuWidth}},
    {4, Proxy::Used, "XirEcallapp_userRequestCancelEcall", Call<XirEcallapp_userRequestCancelEcall>},
    {5,
     Proxy::Used,
     "XirEcallapp_updateVehicleConfig  (VIN (17 characters), propulsionStorageType (1..7), vehicleType (0..12)",
     UpdateVehicleConfig,
     {"XirEcallapp_updateVehicleConfig needs 3 parameters : string of 17 characters + 1 number between 1 and 7 + 1 "
      "number between 0 and 12 ",
      kVehicleConfigLines}},
    {6,
     Proxy::Used,
     "XirEcallapp_updateVehicleState (Number of passengers, backupBatteryUsed, ignitionOn",
     UpdateVehicleState,
     {"XirEcallapp_updateVehicleState needs 3 parameters : number of passengers + backupBatteryUsed (0..1) + "
      "ignitionOn (0..1) "}},
    {7,
     Proxy::Used,
     "XirEcallapp_updateGnssLocation (latitude, longitude, direction)",
     UpdateGnssLocation,
     {"XirEcallapp_updateGnssLocation needs 3 float parameters : latitude + longitude + course "}},
    {8, Proxy::Used, "XirEcallapp_requestState", RequestState},
    {9,
     Proxy::Used,
     "XirEcallapp_getCfgParameter (parameter number (0..45) )",
     GetCfgParameter,
     {"XirEcallapp_getCfgParameter needs 1 parameters : parameter number (0..45) "}},
    {10,
     Proxy::Used,
     "XirEcallapp_setCfgParameter (parameter number (0..45), boolean value, integer value, string value )",
     SetCfgParameter,
     {"XirEcallapp_setCfgParameter needs 4 parameters : parameter number (0..45), boolean value, integer value, "
      "string value ",
      kSetCfgParameterLines}},
    {11, Proxy::Used, "XirEcallapp_getSelfTestAllDevicesState", GetSelfTest},
    {12,
     Proxy::Used,
     "XirEcallapp_UpdateSelfTestAllDevicesState  (1: all NotHandled, 2 : all success, 3 : 50% success, 50% failed)",
     UpdateSelfTest,
     {"XirEcallapp_updateSelfTestAllDevicesState needs 1 parameter :", kSelfTestLines}},
    {13,
     Proxy::Used,
     "XirEcallapp_getGnssLocationHistory (index)",
     GetGnssLocationHistory,
     {"XirEcallapp_getGnssLocationHistory needs 1 parameter : index of the location ", kLocationHistoryLines}},
    {14,
     Proxy::Used,
     "XirEcallapp_getMsdHistory (index)",
     GetMsdHistory,
     {"XirEcallapp_getMsdHistory needs 1 parameter : index of the MSD  "}},
    {15, Proxy::Used, "XirEcallapp_switchToTestMode", Call<XirEcallapp_switchToTestMode>},
    {16, Proxy::Used, "XirEcallapp_switchFromTestMode", Call<XirEcallapp_switchFromTestMode>},
    {17, Proxy::Used, "XirEcallapp_getOperatingMode", GetOperatingMode},
    {18, Proxy::Used, "XirEcallapp_registerNotifyState", CallWithHandler<XirEcallapp_registerNotifyState>},
    {19, Proxy::Used, "XirEcallapp_deregisterNotifyState", CallWithHandler<XirEcallapp_deregisterNotifyState>},
    {50, Proxy::Used, "XirEcallapp_get_version_impl", GetVersion},
};
constexpr int32_t kFirstOfSecondBlock = 50;  // an empty line comes before it

void PrintHelp(const Help& help) {
    PrintLine("%s", help.text);
    for (const char* line : help.lines) {
        PrintLine("%-*s", help.width, line);
    }
}

int32_t Run(const EcallCommand& command, ConsoleInput& input) {
    EcallappHandle::Hold proxy;
    if (command.proxy == Proxy::Used) {
        proxy = pProxyEcallapp.hold();
        if (proxy == nullptr) {
            PrintLine(kNoProxy);
            return 0;
        }
    }
    const Outcome outcome = command.run(proxy.get(), input);
    if (!outcome) {
        PrintHelp(command.help);
    }
    return outcome.value_or(0);
}

}  // namespace

void DisplayEcallMenu() {
    PrintLine(" ECALL SRVC MENU  ");
    PrintLine(" --------------- ");
    PrintLine("%-*s", kMenuWidth, "  . : display main menu");
    PrintLine("%-*s", kMenuWidth, "  0 : display this menu");
    for (const EcallCommand& command : kCommands) {
        if (command.number == kFirstOfSecondBlock) {
            PrintLine("%-*s", kMenuWidth, "");
        }
        PrintLine("%3d : %-*s", command.number, kMenuWidth - kNumberWidth, command.text);
    }
}

int32_t RunEcallCommand(int32_t number, ConsoleInput& input) {
    for (const EcallCommand& command : kCommands) {
        if (command.number == number) {
            return Run(command, input);
        }
    }
    PrintLine("wrong command ");
    return 0;
}
