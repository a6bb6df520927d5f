/// The parameters of IEcallUIApp as a client knows them, and its messages, written by hand.
#ifndef UI_PARAMETERS_H
#define UI_PARAMETERS_H

#include <cstdint>
#include <string>

#include "ProtoBytes.h"

enum class UiKind { Boolean, Number, Text };

struct UiParameter {
    int32_t number;
    const char* name;  ///< on the wire, behind the enumeration's prefix
    const char* key;   ///< in the configuration file
    UiKind kind;
    const char* byDefault;  ///< in the file
};

inline constexpr UiParameter kUiParameters[] = {
    {0, "CONNECT_ECALL_SERVICE", "ConnectEcallService", UiKind::Boolean, "true"},
    {1, "CONNECT_LOCATION_SERVICE", "ConnectLocationService", UiKind::Boolean, "false"},
    {2, "GPIO_INPUT_PWM_ENS_USED", "GpioInputPwm_ENS_Used", UiKind::Boolean, "true"},
    {3, "GPIO_INPUT_BUTTON_NRQST_USED", "GpioInputButton_nRQST_Used", UiKind::Boolean, "true"},
    {4, "GPIO_INPUT_BUTTON_NRQST_ACTIVE_LOW", "GpioInputButton_nRQST_ActiveLow", UiKind::Boolean, "false"},
    {5, "GPIO_OUTPUT_LED_CNTL_USED", "GpioOutputLed_CNTL_Used", UiKind::Boolean, "true"},
    {6, "GPIO_OUTPUT_NLOCK_USED", "GpioOutputNlock_Used", UiKind::Boolean, "true"},
    {7, "LED_PWM_PERIOD_MS", "LedPwmPeriodMs", UiKind::Number, "10"},
    {8, "LED_ECALL_IDLE_BRIGHTNESS1_PER_CENT", "LedEcallIdleBrightness1PerCent", UiKind::Number, "25"},
    {9, "LED_ECALL_IDLE_BRIGHTNESS2_PER_CENT", "LedEcallIdleBrightness2PerCent", UiKind::Number, "0"},
    {10, "LED_ECALL_IDLE_BLINCKING12_PERIOD_MS", "LedEcallIdleBlicking12PeriodInMs", UiKind::Number, "0"},
    {11, "LED_ECALL_ACTIVE_BRIGHTNESS1_PER_CENT", "LedEcallActiveBrightness1PerCent", UiKind::Number, "90"},
    {12, "LED_ECALL_ACTIVE_BRIGHTNESS2_PER_CENT", "LedEcallActiveBrightness2PerCent", UiKind::Number, "0"},
    {13, "LED_ECALL_ACTIVE_BLINCKING12_PERIOD_MS", "LedEcallActiveBlicking12PeriodInMs", UiKind::Number, "1000"},
    {14, "LED_ECALL_ERROR_BRIGHTNESS1_PER_CENT", "LedEcallErrorBrightness1PerCent", UiKind::Number, "25"},
    {15, "LED_ECALL_ERROR_BRIGHTNESS2_PER_CENT", "LedEcallErrorBrightness2PerCent", UiKind::Number, "0"},
    {16, "LED_ECALL_ERROR_BLINCKING12_PERIOD_MS", "LedEcallErrorBlicking12PeriodInMs", UiKind::Number, "5000"},
    {17, "ECALL_ANTENNA_DETECTION_THRESHOLD_MV", "EcallAntennaDetectionThresholdMv", UiKind::Number, "900"},
    {18, "RESTORE_CONTEXT_ON_BOOT", "RestoreContextOnBoot", UiKind::Boolean, "true"},
    {19, "ECALL_BUTTON_USED", "EcallButtonUsed", UiKind::Boolean, "true"},
    {20, "ECALL_BUTTON_PRESS_MINIMAL_TIME_FOR_TRIG_MS", "EcallButtonPressMinimalTimeForTrigMs", UiKind::Number, "100"},
    {21, "ECALL_BUTTON_POLLING_DETECTION_MODE", "EcallButtonPullingDetectionMode", UiKind::Boolean, "false"},
    {22, "GPIO_FOR_ENABLING_ECALL_LED_CONTROL_USED", "GpioForEnablingEcallLedControlUsed", UiKind::Text, "\"DTR\""},
    {23, "GPIO_FOR_ENABLING_ECALL_LED_CONTROL_ACTIVE_LOW", "GpioForEnablingEcallLedControlActiveLow", UiKind::Boolean,
     "false"},
    {24, "ECALL_MICROPHONE_SOURCE", "EcallMicrophoneSource", UiKind::Number, "1"},
    {25, "GPIO_IRQ_RECOVERY_ENABLE", "GpioIrqRecovery", UiKind::Boolean, "true"},
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
