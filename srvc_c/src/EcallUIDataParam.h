/// The configuration's fields as remote clients reach them, by number (ConfigurationField::number).
///
/// A value is a boolean, a number and a text, of which the field's type picks one. No lock is taken: one thread sets,
/// the others read whole fields. Any thread; a set blocks for the file, and for the eCall service when the microphone
/// is chosen.
#ifndef ECALL_UI_DATA_PARAM_H
#define ECALL_UI_DATA_PARAM_H

#include <cstdint>

/// Reads the field that has the number; the members that do not stand for it, and all of an unknown number, become
/// empty. strValue: at least 64 bytes, zeroed: a text is copied without its terminator.
void EcallUIGetParameter(int32_t cfgParamName, uint8_t& boolValue, int32_t& intValue, char* strValue);

/// Changes the field that has the number, and rewrites the file in any case. Never refuses: an unknown number and a
/// microphone that does not exist are logged and change nothing. A text keeps its first 63 bytes; null is an empty one.
/// A microphone is passed on to the eCall service; when that fails it is logged, and the field keeps the new value.
void EcallUISetParameter(int32_t cfgParamName, uint8_t boolValue, int32_t intValue, const char* strValue);

#endif
