/// The parameters of IEcallUIApp as a client knows them, and its messages, written by hand.
#ifndef UI_PARAMETERS_H
#define UI_PARAMETERS_H

#include <cstdint>
#include <string>

#include "ProtoBytes.h"

enum class UiKind { Boolean, Number, Text };

struct UiParameter {
    int32_t number;
    UiKind kind;
    const char* name;       ///< on the wire, behind the enumeration's prefix
    const char* key;        ///< in the configuration file
    const char* byDefault;  ///< in the file
};

inline constexpr UiParameter kUiParameters[] = {
    {0, UiKind::Boolean, "CONNECT_ECALL_SERVICE", "ConnectEcallService", "true"},
    {1, UiKind::Boolean, "CONNECT_LOCATION_SERVICE", "ConnectLocationService", "false"},
    {2, UiKind::Boolean, "GPIO_INPUT_PWM_ENS_USED", "GpioInputPwm_ENS_Used", "true"},
    {3, UiKind::Boolean, "GPIO_INPUT_BUTTON_NRQST_USED", "GpioInputButton_nRQST_Used", "true"},
    {4, UiKind::Boolean, "GPIO_INPUT_BUTTON_NRQST_ACTIVE_LOW", "GpioInputButton_nRQST_ActiveLow", "false"},
    {5, UiKind::Boolean, "GPIO_OUTPUT_LED_CNTL_USED", "GpioOutputLed_CNTL_Used", "true"},
    {6, UiKind::Boolean, "GPIO_OUTPUT_NLOCK_USED", "GpioOutputNlock_Used", "true"},
    {7, UiKind::Number, "LED_PWM_PERIOD_MS", "LedPwmPeriodMs", "10"},
    {8, UiKind::Number, "LED_ECALL_IDLE_BRIGHTNESS1_PER_CENT", "LedEcallIdleBrightness1PerCent", "25"},
    {9, UiKind::Number, "LED_ECALL_IDLE_BRIGHTNESS2_PER_CENT", "LedEcallIdleBrightness2PerCent", "0"},
    {10, UiKind::Number, "LED_ECALL_IDLE_BLINCKING12_PERIOD_MS", "LedEcallIdleBlicking12PeriodInMs", "0"},
    {11, UiKind::Number, "LED_ECALL_ACTIVE_BRIGHTNESS1_PER_CENT", "LedEcallActiveBrightness1PerCent", "90"},
    {12, UiKind::Number, "LED_ECALL_ACTIVE_BRIGHTNESS2_PER_CENT", "LedEcallActiveBrightness2PerCent", "0"},
    {13, UiKind::Number, "LED_ECALL_ACTIVE_BLINCKING12_PERIOD_MS", "LedEcallActiveBlicking12PeriodInMs", "1000"},
    {14, UiKind::Number, "LED_ECALL_ERROR_BRIGHTNESS1_PER_CENT", "LedEcallErrorBrightness1PerCent", "25"},
    {15, UiKind::Number, "LED_ECALL_ERROR_BRIGHTNESS2_PER_CENT", "LedEcallErrorBrightness2PerCent", "0"},
    {16, UiKind::Number, "LED_ECALL_ERROR_BLINCKING12_PERIOD_MS", "LedEcallErrorBlicking12PeriodInMs", "5000"},
    {17, UiKind::Number, "ECALL_ANTENNA_DETECTION_THRESHOLD_MV", "EcallAntennaDetectionThresholdMv", "900"},
    {18, UiKind::Boolean, "RESTORE_CONTEXT_ON_BOOT", "RestoreContextOnBoot", "true"},
    {19, UiKind::Boolean, "ECALL_BUTTON_USED", "EcallButtonUsed", "true"},
    {20, UiKind::Number, "ECALL_BUTTON_PRESS_MINIMAL_TIME_FOR_TRIG_MS", "EcallButtonPressMinimalTimeForTrigMs", "100"},
    {21, UiKind::Boolean, "ECALL_BUTTON_POLLING_DETECTION_MODE", "EcallButtonPullingDetectionMode", "false"},
    {22, UiKind::Text, "GPIO_FOR_ENABLING_ECALL_LED_CONTROL_USED", "GpioForEnablingEcallLedControlUsed", "\"DTR\""},
    {23, UiKind::Boolean, "GPIO_FOR_ENABLING_ECALL_LED_CONTROL_ACTIVE_LOW", "GpioForEnablingEcallLedControlActiveLow",
     "false"},
    {24, UiKind::Number, "ECALL_MICROPHONE_SOURCE", "EcallMicrophoneSource", "1"},
    {25, UiKind::Boolean, "GPIO_IRQ_RECOVERY_ENABLE", "GpioIrqRecovery", "true"},
};

constexpr uint16_t kUiPort = 50101;

/// Method indices on the wire.
enum UiMethod : uint16_t {
    kGetUiCfgParameter,
    kSetUiCfgParameter,
    kGetUiVersion,
    kRunAnalogMicTest,
    kGetIEcallUIAppVersion
};

/// A value with all its members.
struct UiValue {
    int64_t boolean = 0;
    int64_t number = 0;
    std::string text{};

    ProtoBytes Bytes() const { return ProtoBytes().Number(1, boolean).Number(2, number).Text(3, text); }
};

inline std::string UiGetRequest(int64_t number) {
    return ProtoBytes().Number(1, number).bytes;
}
inline std::string UiGetReply(const UiValue& value) {
    return ProtoBytes().Number(1, 0).Message(2, value.Bytes()).bytes;
}
inline std::string UiSetRequest(int64_t number, const UiValue& value) {
    return ProtoBytes().Number(1, number).Message(2, value.Bytes()).bytes;
}

#endif
