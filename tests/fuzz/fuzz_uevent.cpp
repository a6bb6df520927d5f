// Any bytes as a uevent datagram: the classifier must stay inside them and find the same as a plain search does.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "EcallUIGpioUevent.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    const std::string_view datagram(reinterpret_cast<const char*>(bytes), size);
    const UeventText* const known = ClassifyUevent(datagram);
    const bool mayBeKnown =
        datagram.find("ACTIVATED") != std::string_view::npos ||
        datagram.find("NOT DETECTED") != std::string_view::npos || datagram.find("NORMAL") != std::string_view::npos ||
        datagram.find("EMERGENCY") != std::string_view::npos || datagram.find("INVALID") != std::string_view::npos;
    if (known != nullptr && (!mayBeKnown || datagram.find(known->text) == std::string_view::npos)) {
        abort();
    }
    return 0;
}
