/// The service's configuration and the UI state that survives a restart.
#ifndef ECALL_UI_DATA_H
#define ECALL_UI_DATA_H

#include <cstdint>

#include "Relaxed.h"
#include "RelaxedText.h"

/// The configuration. Written at start-up and by parameter sets, read everywhere without a lock.
/// Field names are the keys of the configuration file.
struct EcallUIConfiguration {
    RelaxedText<32> JsonTimeStamp;  ///< when the file was last written
    RelaxedText<64> HW_Name{"KORVA_FDA803_ZX118A4"};
    Relaxed<uint8_t> DebugMenuMode{0};  ///< started with -m, and its input has not ended; not in the file
    Relaxed<uint16_t> MaxSizeOfTraceFileInKb{1024};
    Relaxed<uint16_t> NbTraceFileStored{2};
    Relaxed<uint8_t> ConnectEcallService{1};
    Relaxed<uint8_t> ConnectLocationService{0};
    Relaxed<uint8_t> ConfigureExternalAudioAmp{0};
    Relaxed<uint8_t> GpioInputPwm_ENS_Used{1};
    Relaxed<uint8_t> GpioInputButton_nRQST_Used{1};
    Relaxed<uint8_t> GpioInputButton_nRQST_ActiveLow{0};
    Relaxed<uint8_t> GpioOutputLed_CNTL_Used{1};
    Relaxed<uint8_t> GpioOutputNlock_Used{1};
    Relaxed<uint8_t> GpioOutputNlockInvertedForRevARevB{0};
    Relaxed<int32_t> LedPwmPeriodMs{10};
    Relaxed<int32_t> LedEcallIdleBrightness1PerCent{25};
    Relaxed<int32_t> LedEcallIdleBrightness2PerCent{0};
    Relaxed<int32_t> LedEcallIdleBlicking12PeriodInMs{0};
    Relaxed<int32_t> LedEcallActiveBrightness1PerCent{90};
    Relaxed<int32_t> LedEcallActiveBrightness2PerCent{0};
    Relaxed<int32_t> LedEcallActiveBlicking12PeriodInMs{1000};
    Relaxed<int32_t> LedEcallErrorBrightness1PerCent{25};
    Relaxed<int32_t> LedEcallErrorBrightness2PerCent{0};
    Relaxed<int32_t> LedEcallErrorBlicking12PeriodInMs{5000};
    Relaxed<int32_t> EcallAntennaDetectionThresholdMv{900};
    Relaxed<uint8_t> RestoreContextOnBoot{1};
    Relaxed<uint8_t> AudioRelayUsed{1};
    Relaxed<uint8_t> EcallButtonUsed{1};
    Relaxed<int32_t> EcallButtonPressMinimalTimeForTrigMs{100};
    Relaxed<uint8_t> EcallButtonPullingDetectionMode{0};
    RelaxedText<64> GpioForEnablingEcallLedControlUsed{"DTR"};
    Relaxed<uint8_t> GpioForEnablingEcallLedControlActiveLow{0};
    Relaxed<int32_t> EcallMicrophoneSource{1};  ///< kDefaultAnalogMic or kExternalDigitalMic
    Relaxed<uint8_t> GpioIrqRecovery{1};        ///< an interrupt recovery may be started
};

constexpr int32_t kDefaultAnalogMic = 0;
constexpr int32_t kExternalDigitalMic = 1;

extern EcallUIConfiguration EcallUI_Configuration;

/// Loads the configuration file, or creates it with the defaults when it is missing; hands the trace sizing to the
/// trace; prints the record. Called once, before any thread exists. Every failure is logged; the defaults then hold.
void InitConfiguration();
/// Stamps JsonTimeStamp and writes the whole record to the file. Failures are logged.
void SaveConfiguration();

/// What survives a restart. One byte each, compared and stored as a whole.
struct EcallUIState {
    uint8_t EcallAntennaSelected = 0;
    uint8_t EcallAntennaDetectionActivated = 0;
    uint8_t CanTriggerAutoEcall = 1;
};
static_assert(sizeof(EcallUIState) == 3);

/// Copies the state to out. With keepLocked the "State" mutex stays held, and SetUIStateAndUnlock must follow.
void GetUIStateAndLock(EcallUIState& out, bool keepLocked);
/// Stores the state, rewrites the state file if anything changed, and releases the "State" mutex.
void SetUIStateAndUnlock(const EcallUIState& newState);
/// Restores the state from its file; true when the file was whole and sound.
bool GetUIStateFromSavedFile();

#endif
