// The floor of the road of a position: a program that receives the same bytes from the location service, writes the
// lines that the road demands, and sends the same bytes on to the eCall service.

#include <sys/socket.h>

#include <array>
#include <string>
#include <string_view>

#include "EchoPeer.h"
#include "Floor.h"
#include "FloorLine.h"

namespace {

// subscribe, to nothing in particular: whoever asks for it is sent the positions.
constexpr std::string_view kSubscription("\0\0\0\0\5\0\1\0\1\0\0\0", 12);

}  // namespace

int main() {
    const std::string request = PositionRequest();
    const int ecall = ConnectTo(kEcallServicePort);
    const int location = ConnectTo(kLocationServicePort);
    Exchange(location, kSubscription);
    std::array<char, 4096> position{};
    while (recv(location, position.data(), position.size(), 0) > 0) {
        FloorLine("local_timestamp = 0, receive_timestamp = 1700000000000, timestamp = 0");
        FloorLine("location_cb: ==> XirEcallapp_updateGnssLocation : isValid = 1");
        Exchange(ecall, request);
    }
}
