/// Service URLs: "xirtcp://" with an address, or "xirfile://" with the path of a local socket.
#ifndef XIR_RPC_URL_H
#define XIR_RPC_URL_H

#include <optional>

#include "xir_common_rpc.h"

struct XirRpcAddress {
    xir_common_rpc_transport transport;
    const char* text;  ///< points into the URL: what follows the scheme, at least one character, unchecked
};

/// Nothing when the text has another scheme (capitals are another scheme), or ends with it. url: never null.
std::optional<XirRpcAddress> XirRpcParseUrl(const char* url);

#endif
