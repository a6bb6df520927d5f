// The state file holds any bytes. Only bytes that the service could have written may change the state.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "EcallUIDataState.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return freopen("/dev/null", "w", stdout) != nullptr ? 0 : -1;  // each CRC is logged
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
    EcallUIState state{9, 8, 7};
    switch (ReadStateFileBytes({bytes, length}, state)) {
        case StateFileAnswer::Sound: {
            const auto written = MakeStateFileBytes(state);
            if (!std::equal(written.begin(), written.end(), bytes)) {
                abort();
            }
            break;
        }
        case StateFileAnswer::TooShort:
        case StateFileAnswer::Corrupted:
            if (state.EcallAntennaSelected != 9 || state.EcallAntennaDetectionActivated != 8 ||
                state.CanTriggerAutoEcall != 7) {
                abort();
            }
            break;
    }
    return 0;
}
