/// The state record of the eCall application service as it goes over the wire: plain numbers, so a record can also hold
/// what no enumeration knows.
#ifndef ECALL_STATE_H
#define ECALL_STATE_H

#include <cstdint>

namespace ecall {

// TEcallappServiceState. An active call adds kAutomatic and kTest to kActiveManualCall.
constexpr uint32_t kBroken = 1;
constexpr uint32_t kInitializing = 2;
constexpr uint32_t kIdle = 3;
constexpr uint32_t kIdleTestMode = 4;
constexpr uint32_t kActiveManualCall = 100;
constexpr uint32_t kAutomatic = 1;
constexpr uint32_t kTest = 2;
constexpr uint32_t kExpectCallback = 104;

// TNetworkState
constexpr uint32_t kFullService = 5;

// TEcallappCallState
constexpr uint32_t kInactive = 0;
constexpr uint32_t kRinging = 1;
constexpr uint32_t kDialing = 2;
constexpr uint32_t kVoice = 3;
constexpr uint32_t kWaitingMsdRequest = 4;
constexpr uint32_t kTransferingMsd = 5;
constexpr uint32_t kLlackReceived = 6;
constexpr uint32_t kVoiceMsdFailed = 7;

// TAudioOutState
constexpr uint32_t kMuted = 0;
constexpr uint32_t kVoicePrompt = 1;
constexpr uint32_t kVoiceCall = 2;

// TSelfTestState
constexpr uint32_t kSelfTestSuccess = 0;
constexpr uint32_t kSelfTestFailed = 1;
constexpr uint32_t kSelfTestUnknown = 2;
constexpr uint32_t kSelfTestRequested = 3;

// TSelfTestDeviceState
constexpr uint32_t kDeviceFailed = 1;
constexpr uint32_t kDeviceNotHandled = 2;

}  // namespace ecall

/// In field order. The empty value: idle, with network, no self-test made.
struct EcallState {
    uint32_t serviceState = ecall::kIdle;
    uint32_t simProfileState = 0;
    uint32_t networkState = ecall::kFullService;
    uint32_t callState = ecall::kInactive;
    uint32_t audioOutState = ecall::kMuted;
    uint32_t selfTestState = ecall::kSelfTestUnknown;

    bool operator==(const EcallState&) const = default;
};

#endif
