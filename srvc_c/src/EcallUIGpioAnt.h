/// The lines of the eCall antenna, and the module's analog inputs.
#ifndef ECALL_UI_GPIO_ANT_H
#define ECALL_UI_GPIO_ANT_H

#include <cstdint>

#include "EcallUIData.h"

constexpr uint32_t ECALLUI_ERROR = 1;

/// Lines of the module's own GPIO controller, apart from the device table.
constexpr uint32_t kAntDetectLine = 5;  ///< supplies the antenna detection
constexpr uint32_t kAntSelectLine = 7;  ///< selects the eCall antenna

constexpr uint32_t kAntennaAdc = 1;  ///< the input that measures the antenna

/// Drives an antenna line high (1) or low (any other level) and notes the level in state, which is the caller's copy,
/// taken with the "State" mutex kept, and stored by the caller afterwards.
/// Answers 0, or ECALLUI_ERROR when any step failed or the line is neither; later steps are tried all the same.
uint32_t GpioAntWrite(uint32_t line, uint8_t level, EcallUIState& state);
/// Selects the eCall antenna with GpioAntWrite, unless state says that it is selected.
void SelectAntenna(EcallUIState& state);
/// GpioAntWrite with a copy of its own: holds the "State" mutex from reading the state to storing it.
uint32_t DriveAntennaLine(uint32_t line, uint8_t level);

/// Answers an analog input (1 to 3) in millivolts; -1 when it cannot be read; 0 when its file holds no number.
int32_t AdcRead(uint32_t adc);
/// The millivolts of a reading in microvolts, given as decimal text; a number too large shows as the largest.
int32_t AdcMillivolts(const char* text);

#endif
