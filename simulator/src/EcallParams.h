/// The eCall application service's configuration parameters, numbers 0 to 53.
#ifndef ECALL_PARAMS_H
#define ECALL_PARAMS_H

#include <array>
#include <cstdint>
#include <string>

/// One value; which member counts depends on the parameter, the others keep their empty value.
struct EcallParam {
    bool boolValue = false;
    int32_t intValue = 0;
    std::string strValue;
};

constexpr uint32_t kEcallParamCount = 54;
using EcallParams = std::array<EcallParam, kEcallParamCount>;

/// As the service leaves the factory: European numbers are test numbers, no vehicle is written in, and the audio
/// configuration (53) is the analog microphone.
EcallParams EcallParamDefaults();

#endif
