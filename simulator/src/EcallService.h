/// What the eCall application service knows, and how it answers each of its methods: no socket, no thread, no clock.
/// EcallPeer puts it on the wire.
#ifndef ECALL_SERVICE_H
#define ECALL_SERVICE_H

#include <array>
#include <deque>
#include <string>

#include "EcallLife.h"
#include "EcallParams.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"

/// The methods of IEcallApp; the number is the index on the wire.
enum class EcallMethod : unsigned {
    TriggerEcall = 0,
    UserRequestCancelEcall = 1,
    DisconnectEcall = 2,
    UpdateVehicleConfig = 3,
    UpdateVehicleState = 4,
    GetSelfTestAllDevicesState = 5,
    UpdateSelfTestAllDevicesState = 6,
    UpdateGnssLocation = 7,
    RequestState = 8,
    GetCfgParameter = 9,
    SetCfgParameter = 10,
    GetGnssLocationHistory = 11,
    GetMsdHistory = 12,
    SwitchToTestMode = 13,
    SwitchFromTestMode = 14,
    GetOperatingMode = 15,
    GetSimInfo = 16,
    GetVersion = 17,
    NotifyNotifyState = 18,  ///< from the service only
    Subscribe = 19,
    Unsubscribe = 20,
    GetIEcallAppVersion = 21
};
constexpr unsigned kEcallMethodCount = 22;

/// Response codes of the service.
enum EcallCode : uint32_t {
    kEcallOk = 0,
    kEcallRefused = 1,   ///< not in this state
    kEcallNoSuchOne = 2  ///< no such parameter, history entry or notification
};

/// What the service says of itself when it is asked for its version.
struct EcallIdentity {
    std::string name = "com.vantu.ecallapp.iecallapp";
    uint32_t major = 2;
    uint32_t minor = 0;
};

struct EcallSim {
    bool present = true;
    bool ecallCapable = true;
    std::string testNumber = "+33100000000";
    std::string reconfigureNumber = "+33100000001";
    bool dualProfile = false;
    uint32_t profile = 0;  ///< TSimProfileState
};

/// Devices of a self-test result.
constexpr size_t kSelfTestDevices = 15;

/// Positions kept for each side of a crash.
constexpr size_t kPositionsKept = 100;

struct EcallService {
    EcallIdentity identity;
    EcallTimings timings = kTestPace;
    EcallLife life;
    uint64_t steps = 0;     ///< phases entered: tells a phase that begins anew from one that goes on
    EcallState state;       ///< as the next notification tells it
    bool byHand = false;    ///< the state was set by hand: the life stands still
    bool msdFails = false;  ///< of the coming calls
    EcallParams params = EcallParamDefaults();
    EcallSim sim;
    std::array<uint32_t, kSelfTestDevices> selfTest;         ///< TSelfTestDeviceState as last reported, in field order
    std::deque<Com__Vantu__Ecallapp__TGnssLocation> before;  ///< newest first
    std::deque<Com__Vantu__Ecallapp__TGnssLocation> after;   ///< newest first; of the last call
    std::deque<std::string> msds;                            ///< newest first

    EcallService();
};

/// Answers one request, for any method but NotifyNotifyState, which nobody can ask for: fills the reply, a blank of the
/// method's response, and sets its responsecode. Texts in the reply are the service's and stay valid until it changes.
void EcallServe(EcallService& service, EcallMethod method, const ProtobufCMessage& request, ProtobufCMessage& reply);

/// Lets the event happen, and with it every phase that takes no time. Changes nothing while the state is set by hand.
EcallAnswer EcallHappen(EcallService& service, EcallEvent event);

/// The state as a wire record; values outside the enumerations included.
void EcallFillState(const EcallState& state, ProtobufCMessage& message);

/// Name of the method as the schema has it.
const char* EcallMethodName(EcallMethod method);

#endif
