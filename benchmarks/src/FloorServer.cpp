// The floor of a parameter read: a program that answers on the service's port, and makes just the system calls that the
// read demands (poll, recv, a console and a trace line for each of its four messages, send). With --silent it writes no
// lines: the bare echo.

#include <cstdio>
#include <string_view>

#include "EchoPeer.h"
#include "FloorLine.h"

int main(int argc, char** argv) {
    std::uint16_t port = 50101;
    const int listener = EchoPeerListen(port);
    if (listener < 0) {
        perror("FloorServer: port 50101");
        return 1;
    }
    const bool isSilent = argc > 1 && std::string_view(argv[1]) == "--silent";
    EchoPeerServe(listener, EcallPayload, [isSilent](std::uint16_t, int) {
        for (int i = 0; i < (isSilent ? 0 : 4); ++i) {
            FloorLine("cfgParamName=7, BoolValue=0, IntValue=10, StrValue=");
        }
    });
}
