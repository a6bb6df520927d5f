#include "XirRpcUrl.h"

#include <array>
#include <string_view>

namespace {

struct Scheme {
    std::string_view prefix;
    xir_common_rpc_transport transport;
};

constexpr std::array kSchemes{Scheme{"xirtcp://", XIR_COMMON_RPC_TRANSPORT_TCP},
                              Scheme{"xirfile://", XIR_COMMON_RPC_TRANSPORT_FILE}};

}  // namespace

std::optional<XirRpcAddress> XirRpcParseUrl(const char* url) {
    const std::string_view text = url;
    for (const Scheme& scheme : kSchemes) {
        if (text.size() > scheme.prefix.size() && text.starts_with(scheme.prefix)) {
            return XirRpcAddress{scheme.transport, url + scheme.prefix.size()};
        }
    }
    return std::nullopt;
}
