// Lines typed at the debug console: any bytes, in any menu. The first byte chooses the menu, each line follows on the
// one before. What the commands call is replaced here and holds them to what may reach the wire and the lines.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "EcallUIAppNotify.h"
#include "EcallUIConsole.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioLed.h"
#include "EcallUIGpioRelay.h"
#include "EcallUIShared.h"
#include "XirEcallapp.h"

namespace {

constexpr int32_t kRefused = 1;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

/// Never looked into: every operation that takes it is below.
IEcallAppPubProxy* SomeProxy() {
    static int place;
    return reinterpret_cast<IEcallAppPubProxy*>(&place);
}

int recordsGiven = 0;
int recordsReleased = 0;

int32_t Release(void* /*record*/) {
    ++recordsReleased;
    return 0;
}

template <typename T>
int32_t Give(IEcallAppPubProxy* proxy, XirRecord<T>** out, const T& value) {
    static XirRecord<T> record;
    record = {value, nullptr, Release};
    *out = &record;
    ++recordsGiven;
    return proxy == nullptr ? kRefused : 0;
}

bool IsShort(const char* text, std::size_t length) {
    return strlen(text) <= length && strpbrk(text, "\" \r\n") == nullptr;
}

}  // namespace

// The client.

int32_t XirEcallapp_createProxy(IEcallAppPubProxy** proxy, const XirConnection* /*connection*/) {
    *proxy = SomeProxy();
    return 0;
}

void XirEcallapp_releaseProxy(IEcallAppPubProxy* /*proxy*/) {}

int32_t XirEcallapp_triggerEcall(IEcallAppPubProxy* proxy, uint8_t /*automatic*/) {
    Require(proxy != nullptr);
    return 0;
}

int32_t XirEcallapp_userRequestCancelEcall(IEcallAppPubProxy* /*proxy*/) {
    return 0;
}

int32_t XirEcallapp_updateVehicleConfig(IEcallAppPubProxy* proxy, const TVehicleConfig* config) {
    const int flags = config->gasolineTankPresent + config->dieselTankPresent + config->compressedNaturalGas +
                      config->liquidPropaneGas + config->electricEnergyStorage + config->hydrogenStorage +
                      config->otherPropulsionStorage;
    Require(proxy != nullptr && flags == 1 && config->vehicleType <= 12 && IsShort(config->VIN, 17));
    return 0;
}

int32_t XirEcallapp_updateVehicleState(IEcallAppPubProxy* /*proxy*/, const TVehicleState* state) {
    Require(state->backupBatteryUsed <= 1 && state->ignitionOn <= 1);
    return kRefused;
}

int32_t XirEcallapp_getSelfTestAllDevicesState(IEcallAppPubProxy* proxy, XirRecord<TSelfTestAllDevicesState>** result) {
    return Give(proxy, result, {});
}

int32_t XirEcallapp_updateSelfTestAllDevicesState(IEcallAppPubProxy* /*proxy*/,
                                                  const TSelfTestAllDevicesState* result) {
    Require(result->simPresent == TSelfTestDeviceState_NotHandled);
    return 0;
}

int32_t XirEcallapp_updateGnssLocation(IEcallAppPubProxy* /*proxy*/, const TGnssLocation* location) {
    Require(location->isValid == 1 && location->utcTime == 0 && location->speed == 0);
    return 0;
}

int32_t XirEcallapp_requestState(IEcallAppPubProxy* proxy, XirRecord<TEcallappState>** state) {
    return Give(proxy, state, {});
}

int32_t XirEcallapp_getCfgParameter(IEcallAppPubProxy* proxy, uint32_t /*number*/, XirRecord<TCfgParamValue>** value) {
    return Give(proxy, value, {1, 2, "text"});
}

int32_t XirEcallapp_setCfgParameter(IEcallAppPubProxy* /*proxy*/, uint32_t /*number*/, const TCfgParamValue* value) {
    Require(IsShort(value->StrValue, kConsoleLineSize));
    return 0;
}

int32_t XirEcallapp_getGnssLocationHistory(IEcallAppPubProxy* proxy, int32_t index,
                                           XirRecord<TEcallGnssLocationHistory>** history) {
    Require(index >= INT16_MIN && index <= INT16_MAX);
    return Give(proxy, history, {});
}

int32_t XirEcallapp_getMsdHistory(IEcallAppPubProxy* proxy, uint32_t index, XirRecord<TEcallMsdHistory>** history) {
    Require(index <= UINT8_MAX);
    return Give(proxy, history, {1, 2, "text"});
}

int32_t XirEcallapp_switchToTestMode(IEcallAppPubProxy* /*proxy*/) {
    return 0;
}

int32_t XirEcallapp_switchFromTestMode(IEcallAppPubProxy* /*proxy*/) {
    return 0;
}

int32_t XirEcallapp_getOperatingMode(IEcallAppPubProxy* proxy, XirRecord<TEcallOperatingMode>** mode) {
    return Give(proxy, mode, {1});
}

int32_t XirEcallapp_getVersion(IEcallAppPubProxy* proxy, XirRecord<TEcallVersion>** version) {
    return Give(proxy, version, {"text"});
}

int32_t XirEcallapp_registerNotifyState(IEcallAppPubProxy* /*proxy*/, XirEcallappStateCallback /*callback*/) {
    return kXirRpcAlreadyRegistered;
}

int32_t XirEcallapp_deregisterNotifyState(IEcallAppPubProxy* /*proxy*/, XirEcallappStateCallback /*callback*/) {
    return 0;
}

// The module.

int EcallStateNotification(const TEcallappState* /*state*/) {
    return 0;
}

int32_t GpioRead(uint32_t id) {
    Require(id <= kGpioAmpHwmute);
    return 0;
}

uint32_t GpioWrite(uint32_t id, uint8_t /*value*/) {
    Require(id == kGpioAudioRelay || (id >= kGpioEcallNlock && id <= kGpioAmpHwmute));
    return 0;
}

void ShowLedPattern(LedPattern pattern) {
    Require(pattern != LedPattern::Unchanged);
}

void TimerAudioRelay(bool /*activateTimer*/) {}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return freopen("/dev/null", "w", stdout) != nullptr ? 0 : -1;
}

namespace {

/// One line of a pass, which ends at its line feed or when it is full. Answers how many bytes it took.
std::size_t RunLine(std::string_view text) {
    std::array<char, kConsoleLineSize> line{};
    const std::size_t end = std::min({text.find('\n'), line.size() - 2, text.size() - 1}) + 1;
    text.copy(line.data(), end);
    ConsoleInput input{line.data()};
    RunConsoleLine(input);
    Require(input.cursor <= input.line.size() + 1 && ConsoleMenu <= kConsoleGpioMenu);
    Require(recordsReleased == recordsGiven);
    return end;
}

/// The parsers alone, on a line of any length and at any place in it.
void Parse(std::string_view text, std::size_t cursor) {
    int32_t number = 0;
    double decimal = 0;
    const char* kept = nullptr;
    ConsoleInput input{text, cursor};
    getIntParam(input, number);
    Require(input.cursor <= text.size() + 1);
    input.cursor = cursor;
    getDoubleParam(input, decimal);
    Require(input.cursor <= text.size() + 1);
    input.cursor = cursor;
    if (getStringParam(input, static_cast<uint32_t>(number) % 300, kept)) {
        Require(strlen(kept) < kConsoleTextSize);
    }
    Require(input.cursor <= text.size() + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(bytes), size);
    if (text.empty()) {
        return 0;
    }
    Parse(text, static_cast<uint8_t>(text.front()) % (size + 1));
    pProxyEcallapp.exchange(SomeProxy());
    ConsoleMenu = static_cast<uint8_t>(text.front()) % 4;
    for (text.remove_prefix(1); !text.empty();) {
        text.remove_prefix(RunLine(text));
    }
    return 0;
}
