#include "EcallUIDataFields.h"

#include <algorithm>

namespace {

using enum FieldEffect;

constexpr int32_t kNone = kNoFieldNumber;
constexpr int32_t kMax = 0x7fffffff;
constexpr int32_t kMax16 = 0xffff;
constexpr int32_t kLongestPwmPeriodMs = 4294;  // beyond, the nanoseconds of a period wrap

constexpr FieldRange kNoRange{"", 0, 0};
constexpr FieldRange kPerCent{"%", 0, 100};
constexpr FieldRange kMs{"ms", 0, kMax};
constexpr FieldRange kPwmMs{"ms", 1, kLongestPwmPeriodMs};
constexpr FieldRange kMv{"mV", 0, kMax16};
constexpr FieldRange kKib{"KiB", 0, kMax16};
constexpr FieldRange kFiles{"files", 0, kMax16};
constexpr FieldRange kMicrophone{"", kDefaultAnalogMic, kExternalDigitalMic};

#define FIELD(name) #name, &EcallUIConfiguration::name, #name
#define FIELD_LABELLED(name, label) #name, &EcallUIConfiguration::name, label

constexpr ConfigurationField kFields[] = {
    {FIELD(JsonTimeStamp), kNone, Never, kNoRange, "when the file was last written"},
    {FIELD(HW_Name), kNone, Never, kNoRange, "name of the hardware"},
    {FIELD(MaxSizeOfTraceFileInKb), kNone, AtNextStart, kKib, "size beyond which the trace file is put aside"},
    {FIELD(NbTraceFileStored), kNone, AtNextStart, kFiles,
     "trace files kept, the live one included; 0: each one, under a name with its time"},
    {FIELD(ConnectEcallService), 0, AtNextStart, kNoRange, "connect to the eCall service; without it no call is made"},
    {FIELD(ConnectLocationService), 1, AtNextStart, kNoRange,
     "connect to the location service and forward its positions"},
    {FIELD(ConfigureExternalAudioAmp), kNone, AtOnce, kNoRange, "switch the external amplifier on for calls, over I2C"},
    {FIELD(GpioInputPwm_ENS_Used), 2, PartlyAtOnce, kNoRange, "the airbag sensor is connected: a crash makes a call"},
    {FIELD(GpioInputButton_nRQST_Used), 3, AtNextStart, kNoRange,
     "the eCall button is connected: its interrupt is set up"},
    {FIELD(GpioInputButton_nRQST_ActiveLow), 4, PartlyAtOnce, kNoRange,
     "the button is pressed when its line reads 0; false: when it reads 1"},
    {FIELD(GpioOutputLed_CNTL_Used), 5, AtOnce, kNoRange, "the eCall LED is connected"},
    {FIELD(GpioOutputNlock_Used), 6, AtOnce, kNoRange, "the lock line ECALL_nLOCK is connected"},
    {FIELD(GpioOutputNlockInvertedForRevARevB), kNone, AtOnce, kNoRange,
     "the lock line is inverted, as on hardware revisions A and B"},
    {FIELD(LedPwmPeriodMs), 7, AtOnce, kPwmMs, "PWM period of the LED, for all its patterns"},
    {FIELD(LedEcallIdleBrightness1PerCent), 8, AtOnce, kPerCent, "first brightness of the LED while no call is made"},
    {FIELD(LedEcallIdleBrightness2PerCent), 9, AtOnce, kPerCent, "second brightness of the LED while no call is made"},
    {FIELD(LedEcallIdleBlicking12PeriodInMs), 10, AtOnce, kMs,
     "how long each of the two shows while no call is made; 0: the first for good"},
    {FIELD(LedEcallActiveBrightness1PerCent), 11, AtOnce, kPerCent, "first brightness of the LED during a call"},
    {FIELD(LedEcallActiveBrightness2PerCent), 12, AtOnce, kPerCent, "second brightness of the LED during a call"},
    {FIELD(LedEcallActiveBlicking12PeriodInMs), 13, AtOnce, kMs,
     "how long each of the two shows during a call; 0: the first for good"},
    {FIELD(LedEcallErrorBrightness1PerCent), 14, AtOnce, kPerCent, "first brightness of the LED on a failure"},
    {FIELD(LedEcallErrorBrightness2PerCent), 15, AtOnce, kPerCent, "second brightness of the LED on a failure"},
    {FIELD(LedEcallErrorBlicking12PeriodInMs), 16, AtOnce, kMs,
     "how long each of the two shows on a failure; 0: the first for good"},
    {FIELD(EcallAntennaDetectionThresholdMv), 17, AtOnce, kMv,
     "voltage above which the self-test takes the eCall antenna for disconnected", FieldStore::Low16Bits},
    {FIELD(RestoreContextOnBoot), 18, AtNextStart, kNoRange, "take over the UI state of the last run at start-up"},
    {FIELD(AudioRelayUsed), kNone, AtOnce, kNoRange, "the audio relay is connected"},
    {FIELD_LABELLED(EcallButtonUsed, "AudioRelayUsed"), 19, AtOnce, kNoRange,
     "a press of the eCall button makes a call"},
    {FIELD(EcallButtonPressMinimalTimeForTrigMs), 20, AtOnce, kMs,
     "how long the button must stay pressed to make a call"},
    {FIELD(EcallButtonPullingDetectionMode), 21, PartlyAtOnce, kNoRange,
     "watch the button by reading its line; false: by its interrupt; once switched on, presses wait for a restart"},
    {FIELD_LABELLED(GpioForEnablingEcallLedControlUsed, "HW_Name"), 22, AtNextStart, kNoRange,
     "the line that enables the LED"},
    {FIELD(GpioForEnablingEcallLedControlActiveLow), 23, AtNextStart, kNoRange,
     "meant to invert that line; has no effect"},
    {FIELD(EcallMicrophoneSource), 24, AtOnce, kMicrophone,
     "the microphone of calls: 0 analog, 1 external digital; passed on to the eCall service"},
    {FIELD(GpioIrqRecovery), 25, AtOnce, kNoRange, "recover a sensor that has lost its interrupt"},
};

#undef FIELD_LABELLED
#undef FIELD

}  // namespace

std::span<const ConfigurationField> ConfigurationFields() {
    return kFields;
}

const ConfigurationField* FindConfigurationField(int32_t number) {
    const auto* const found = std::find_if(std::begin(kFields), std::end(kFields), [number](const auto& field) {
        return field.number == number && number != kNoFieldNumber;
    });
    return found == std::end(kFields) ? nullptr : found;
}
