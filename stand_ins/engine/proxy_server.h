// proxy_server.h: one connection to a mixed inbound, from its first byte to its end.
//
// HTTP requests with an absolute target, CONNECT, and SOCKS5 without authentication. Traffic goes
// through the final outbound; routing rules have no effect.
#pragma once

#include <string>

#include "engine/outbound_dialer.h"

namespace korvane::stand_in {

// Serves the connection until either side ends it or the service is closed.
void ServeProxyConnection(net::Socket& client, const OutboundDialer& dialer,
                          const std::string& outbound);

}  // namespace korvane::stand_in
