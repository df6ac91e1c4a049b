// network.h: what the system tells of this machine's network, and of this process's part in it.
//
// Three readings, one after the other and not atomic with each other. What they tell (addresses,
// ports, indices) stays inside the host: only src/egress reads it, and no log line may carry it.
// Any thread; a reading may take milliseconds.
//
// Windows: IP Helper. Linux: the kernel's own tables below /proc/net, the interfaces of
// getifaddrs(3), and the sockets below /proc/self/fd. A table of IPv6 that isn't there, since the
// kernel has none, is an empty one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/result.h"

namespace korvane::platform {

struct AdapterRow {
  std::uint32_t ifIndex = 0;
  // IF_OPER_STATUS: 1 up, 2 down, and more on Windows. Linux: up when the link runs.
  std::int32_t operStatus = 0;
  std::uint32_t ipv4Metric = 0;        // Linux has none: 0
  std::vector<std::string> addresses;  // unicast, IPv4 and IPv6, as numeric text
};

struct RouteRow {
  std::int32_t family = 0;  // 4 or 6
  std::uint32_t ifIndex = 0;
  std::uint32_t metric = 0;
};

struct SocketRow {
  std::string localAddress;    // numeric text, like the remote one
  std::int32_t localPort = 0;  // in host order, like the remote one
  std::string remoteAddress;
  std::int32_t remotePort = 0;
};

class Network {
 public:
  virtual ~Network() = default;

  // GetAdaptersAddresses(AF_UNSPEC, 14, ...), 14 leaving out anycast, multicast and DNS server
  // addresses. A first buffer of 15000 bytes, then the size asked for and 4096 more, in three calls
  // at most. ERROR_NO_DATA is a failure like any other. An adapter without IPv4 carries its index
  // for IPv6.
  virtual Result<std::vector<AdapterRow>> Adapters() = 0;

  // GetIpForwardTable2(AF_UNSPEC), the routes to a prefix of no length, in the table's order. None
  // is no failure. Linux: without the kernel's reject routes.
  virtual Result<std::vector<RouteRow>> DefaultRoutes() = 0;

  // GetExtendedTcpTable with TCP_TABLE_OWNER_PID_ALL, for IPv4, then for IPv6: this process's
  // sockets in a state from SYN_SENT to LAST_ACK, so none that listens, is closed or waits its time
  // out. A first buffer of 8192 bytes, then as above. A failure of one family is one of both.
  virtual Result<std::vector<SocketRow>> OwnSockets() = 0;
};

}  // namespace korvane::platform
