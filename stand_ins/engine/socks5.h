// socks5.h: the server's side of a SOCKS5 handshake, without authentication and for CONNECT alone.
#pragma once

#include <string>

#include "engine/outbound_dialer.h"

namespace korvane::stand_in {

inline constexpr char kSocks5Version = 5;

// Reads the client's greeting and request and answers them. The connection to the server with
// kDone; with anything else the client has been told, where it could be, and its connection is to
// be closed.
Routed AcceptSocks5(net::Socket& client, const OutboundDialer& dialer, const std::string& outbound);

}  // namespace korvane::stand_in
