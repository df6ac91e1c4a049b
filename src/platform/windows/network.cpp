#include "platform/network.h"

// Sockets come before the rest of Windows.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <iphlpapi.h>
#include <netioapi.h>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

constexpr ULONG kAdapterFlags =
    GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
static_assert(kAdapterFlags == 14);
constexpr ULONG kFirstAdapterBytes = 15000;
constexpr ULONG kFirstSocketBytes = 8192;
// A table may grow between the call that tells its size and the next.
constexpr ULONG kSpareBytes = 4096;
constexpr int kMostCalls = 3;
// What the system may say instead of success where there is a table that can't be had.
constexpr ErrorCode kNoTable = ERROR_INVALID_DATA;

using Bytes = std::vector<std::byte>;

// Fills the buffer by `call`, which takes it and its size and, when it says `too_small`, tells how
// much it needs.
template <typename Call>
Status FillTable(Bytes& buffer, ULONG first_bytes, ULONG too_small, const Call& call) {
  ULONG size = first_bytes;
  ULONG error = too_small;
  for (int calls = 0; calls < kMostCalls && error == too_small; ++calls) {
    if (calls > 0) {
      size += kSpareBytes;
    }
    buffer.resize(size);
    error = call(buffer.data(), &size);
  }
  return error == NO_ERROR ? Status::Ok() : Status::Fail(error);
}

// Empty for an address that has no text.
std::string NumericText(int family, const void* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const char* written = ::inet_ntop(family, address, text.data(), text.size());
  return written != nullptr ? std::string(written) : std::string();
}

// Nothing for a family that is neither IPv4 nor IPv6.
std::optional<std::string> NumericText(const sockaddr* address) {
  if (address == nullptr) {
    return std::nullopt;
  }
  switch (address->sa_family) {
    case AF_INET:
      return NumericText(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr);
    case AF_INET6:
      return NumericText(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
    default:
      return std::nullopt;
  }
}

AdapterRow ReadAdapter(const IP_ADAPTER_ADDRESSES& adapter) {
  AdapterRow row;
  row.ifIndex = adapter.IfIndex != 0 ? adapter.IfIndex : adapter.Ipv6IfIndex;
  row.operStatus = static_cast<std::int32_t>(adapter.OperStatus);
  row.ipv4Metric = adapter.Ipv4Metric;
  for (const auto* unicast = adapter.FirstUnicastAddress; unicast != nullptr;
       unicast = unicast->Next) {
    if (auto text = NumericText(unicast->Address.lpSockaddr)) {
      row.addresses.push_back(std::move(*text));
    }
  }
  return row;
}

// The number in network order stands in the low half; the high half may hold anything.
std::int32_t HostPort(DWORD field) { return ::ntohs(static_cast<u_short>(field & 0xFFFF)); }

SocketRow ReadSocket(const MIB_TCPROW_OWNER_PID& row) {
  return {.localAddress = NumericText(AF_INET, &row.dwLocalAddr),
          .localPort = HostPort(row.dwLocalPort),
          .remoteAddress = NumericText(AF_INET, &row.dwRemoteAddr),
          .remotePort = HostPort(row.dwRemotePort)};
}

SocketRow ReadSocket(const MIB_TCP6ROW_OWNER_PID& row) {
  return {.localAddress = NumericText(AF_INET6, row.ucLocalAddr),
          .localPort = HostPort(row.dwLocalPort),
          .remoteAddress = NumericText(AF_INET6, row.ucRemoteAddr),
          .remotePort = HostPort(row.dwRemotePort)};
}

// Appends this process's open sockets of one family.
template <typename Table>
Status AppendOwnSockets(ULONG family, std::vector<SocketRow>& sockets) {
  Bytes buffer;
  const Status filled = FillTable(
      buffer, kFirstSocketBytes, ERROR_INSUFFICIENT_BUFFER, [family](void* table, ULONG* size) {
        return ::GetExtendedTcpTable(table, size, FALSE, family, TCP_TABLE_OWNER_PID_ALL, 0);
      });
  if (!filled) {
    return filled;
  }
  const auto* table = reinterpret_cast<const Table*>(buffer.data());
  for (DWORD i = 0; i < table->dwNumEntries; ++i) {
    const auto& row = table->table[i];
    if (row.dwOwningPid == ::GetCurrentProcessId() && row.dwState >= MIB_TCP_STATE_SYN_SENT &&
        row.dwState <= MIB_TCP_STATE_LAST_ACK) {
      sockets.push_back(ReadSocket(row));
    }
  }
  return Status::Ok();
}

class WindowsNetwork final : public Network {
 public:
  Result<std::vector<AdapterRow>> Adapters() override {
    Bytes buffer;
    const Status filled =
        FillTable(buffer, kFirstAdapterBytes, ERROR_BUFFER_OVERFLOW, [](void* list, ULONG* size) {
          return ::GetAdaptersAddresses(AF_UNSPEC, kAdapterFlags, nullptr,
                                        static_cast<IP_ADAPTER_ADDRESSES*>(list), size);
        });
    if (!filled) {
      return Result<std::vector<AdapterRow>>::Fail(filled.error());
    }
    std::vector<AdapterRow> rows;
    for (const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(buffer.data());
         adapter != nullptr; adapter = adapter->Next) {
      rows.push_back(ReadAdapter(*adapter));
    }
    return rows;
  }

  Result<std::vector<RouteRow>> DefaultRoutes() override {
    MIB_IPFORWARD_TABLE2* table = nullptr;
    const DWORD error = ::GetIpForwardTable2(AF_UNSPEC, &table);
    if (error != NO_ERROR || table == nullptr) {
      return Result<std::vector<RouteRow>>::Fail(error != NO_ERROR ? error : kNoTable);
    }
    const std::unique_ptr<void, decltype(&::FreeMibTable)> owned(table, &::FreeMibTable);
    std::vector<RouteRow> rows;
    for (ULONG i = 0; i < table->NumEntries; ++i) {
      const MIB_IPFORWARD_ROW2& route = table->Table[i];
      const IP_ADDRESS_PREFIX& destination = route.DestinationPrefix;
      if (destination.PrefixLength == 0) {
        rows.push_back({.family = destination.Prefix.si_family == AF_INET6 ? 6 : 4,
                        .ifIndex = route.InterfaceIndex,
                        .metric = route.Metric});
      }
    }
    return rows;
  }

  Result<std::vector<SocketRow>> OwnSockets() override {
    std::vector<SocketRow> sockets;
    Status read = AppendOwnSockets<MIB_TCPTABLE_OWNER_PID>(AF_INET, sockets);
    if (read) {
      read = AppendOwnSockets<MIB_TCP6TABLE_OWNER_PID>(AF_INET6, sockets);
    }
    return read ? Result<std::vector<SocketRow>>(std::move(sockets))
                : Result<std::vector<SocketRow>>::Fail(read.error());
  }
};

}  // namespace

Network& RealNetwork() {
  static NoDestructor<WindowsNetwork> network;
  return *network;
}

}  // namespace korvane::platform
