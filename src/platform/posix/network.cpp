#include "platform/network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>
#include <unordered_set>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

constexpr std::int32_t kUp = 1;
constexpr std::int32_t kDown = 2;

// Columns of the kernel's tables.
namespace route_table {
constexpr std::size_t kInterface = 0;
constexpr std::size_t kFlags = 3;
constexpr std::size_t kMetric = 6;
constexpr std::size_t kMask = 7;
constexpr std::size_t kColumns = 8;
}  // namespace route_table
namespace ipv6_route_table {
constexpr std::size_t kPrefixLength = 1;
constexpr std::size_t kMetric = 5;
constexpr std::size_t kFlags = 8;
constexpr std::size_t kInterface = 9;
constexpr std::size_t kColumns = 10;
}  // namespace ipv6_route_table
namespace socket_table {
constexpr std::size_t kLocal = 1;
constexpr std::size_t kRemote = 2;
constexpr std::size_t kState = 3;
constexpr std::size_t kInode = 9;
constexpr std::size_t kColumns = 10;
}  // namespace socket_table

constexpr std::uint32_t kRouteUp = 0x1;
constexpr std::uint32_t kRouteRejects = 0x200;

using Row = std::vector<std::string_view>;

// Hexadecimal digits, as the kernel writes them; 0 for anything else.
std::uint32_t Hex(std::string_view text) {
  std::uint32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number, 16);
  return number;
}

Row Columns(std::string_view line) {
  Row columns;
  while (true) {
    const std::size_t begin = line.find_first_not_of(' ');
    if (begin == std::string_view::npos) {
      return columns;
    }
    line.remove_prefix(begin);
    const std::size_t end = std::min(line.find_first_of(' '), line.size());
    columns.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

// Calls `use` with each line that has at least so many columns, headlines included.
template <typename Use>
Status ForEachRow(const char* table, std::size_t columns, const Use& use) {
  errno = 0;
  std::ifstream file(table);
  if (!file) {
    return Status::Fail(static_cast<ErrorCode>(errno));
  }
  for (std::string line; std::getline(file, line);) {
    std::replace(line.begin(), line.end(), '\t', ' ');
    const Row row = Columns(line);
    if (row.size() >= columns) {
      use(row);
    }
  }
  return file.bad() ? Status::Fail(EIO) : Status::Ok();
}

// A kernel without IPv6 has no table of it.
Status EmptyWhenAbsent(const Status& status) {
  return !status && status.error() == ENOENT ? Status::Ok() : status;
}

std::string NumericText(int family, const void* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const char* written = inet_ntop(family, address, text.data(), text.size());
  return written != nullptr ? std::string(written) : std::string();
}

std::string NumericText(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &address, sizeof(ipv4));
    return NumericText(AF_INET, &ipv4.sin_addr);
  }
  if (address.sa_family == AF_INET6) {
    sockaddr_in6 ipv6{};
    std::memcpy(&ipv6, &address, sizeof(ipv6));
    return NumericText(AF_INET6, &ipv6.sin6_addr);
  }
  return {};
}

// The row of an interface, made when it isn't there yet.
AdapterRow& RowOf(std::uint32_t index, std::vector<AdapterRow>& rows) {
  const auto found = std::find_if(rows.begin(), rows.end(),
                                  [index](const AdapterRow& row) { return row.ifIndex == index; });
  if (found != rows.end()) {
    return *found;
  }
  rows.emplace_back().ifIndex = index;
  return rows.back();
}

std::uint32_t InterfaceIndex(std::string_view name) {
  return if_nametoindex(std::string(name).c_str());
}

// The states that Windows numbers from 3 to 10; and what stands for SYN_RECV before it has a
// socket.
bool IsOpen(std::uint32_t state) {
  constexpr std::array<std::uint32_t, 9> kOpenStates = {0x01,   // ESTABLISHED
                                                        0x02,   // SYN_SENT
                                                        0x03,   // SYN_RECV
                                                        0x04,   // FIN_WAIT1
                                                        0x05,   // FIN_WAIT2
                                                        0x08,   // CLOSE_WAIT
                                                        0x09,   // LAST_ACK
                                                        0x0B,   // CLOSING
                                                        0x0C};  // NEW_SYN_RECV
  return std::find(kOpenStates.begin(), kOpenStates.end(), state) != kOpenStates.end();
}

// "ADDRESS:PORT", the address as words of eight digits that hold its bytes in memory order.
void ReadEndpoint(std::string_view text, std::string& address, std::int32_t& port) {
  constexpr std::size_t kWordDigits = 8;
  const std::size_t colon = std::min(text.find(':'), text.size());
  std::array<std::uint32_t, 4> words{};
  const std::size_t count = std::min(colon / kWordDigits, words.size());
  for (std::size_t word = 0; word < count; ++word) {
    words[word] = Hex(text.substr(word * kWordDigits, kWordDigits));
  }
  address = NumericText(count == 1 ? AF_INET : AF_INET6, words.data());
  port = static_cast<std::int32_t>(Hex(text.substr(std::min(colon + 1, text.size()))));
}

SocketRow ReadSocket(const Row& row) {
  SocketRow socket;
  ReadEndpoint(row[socket_table::kLocal], socket.localAddress, socket.localPort);
  ReadEndpoint(row[socket_table::kRemote], socket.remoteAddress, socket.remotePort);
  return socket;
}

// The inode numbers of the sockets that this process holds, as text.
Result<std::unordered_set<std::string>> OwnSocketInodes() {
  constexpr std::string_view kBegin = "socket:[";
  std::unordered_set<std::string> inodes;
  std::error_code failure;
  std::filesystem::directory_iterator entry("/proc/self/fd", failure);
  for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
    std::error_code closed_meanwhile;
    const std::string target = std::filesystem::read_symlink(entry->path(), closed_meanwhile);
    if (target.starts_with(kBegin) && target.ends_with(']')) {
      inodes.insert(target.substr(kBegin.size(), target.size() - kBegin.size() - 1));
    }
  }
  if (failure) {
    return Result<std::unordered_set<std::string>>::Fail(static_cast<ErrorCode>(failure.value()));
  }
  return inodes;
}

class PosixNetwork final : public Network {
 public:
  Result<std::vector<AdapterRow>> Adapters() override {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
      return Result<std::vector<AdapterRow>>::Fail(static_cast<ErrorCode>(errno));
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, &freeifaddrs);
    std::vector<AdapterRow> rows;
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
      const std::uint32_t index = InterfaceIndex(each->ifa_name);
      if (index == 0) {
        continue;  // gone meanwhile
      }
      AdapterRow& row = RowOf(index, rows);
      const bool runs = (each->ifa_flags & IFF_UP) != 0 && (each->ifa_flags & IFF_RUNNING) != 0;
      row.operStatus = runs ? kUp : kDown;
      if (std::string text = each->ifa_addr != nullptr ? NumericText(*each->ifa_addr) : "";
          !text.empty()) {
        row.addresses.push_back(std::move(text));
      }
    }
    return rows;
  }

  Result<std::vector<RouteRow>> DefaultRoutes() override {
    std::vector<RouteRow> rows;
    const Status ipv4 =
        ForEachRow("/proc/net/route", route_table::kColumns, [&rows](const Row& row) {
          using namespace route_table;  // NOLINT: its columns
          if (row[kMask] == "00000000" && IsRoute(row[kFlags])) {
            std::uint32_t metric = 0;  // the one decimal column
            std::from_chars(row[kMetric].data(), row[kMetric].data() + row[kMetric].size(), metric);
            rows.push_back(
                {.family = 4, .ifIndex = InterfaceIndex(row[kInterface]), .metric = metric});
          }
        });
    const Status ipv6 = EmptyWhenAbsent(
        ForEachRow("/proc/net/ipv6_route", ipv6_route_table::kColumns, [&rows](const Row& row) {
          using namespace ipv6_route_table;  // NOLINT: its columns
          if (row[kPrefixLength] == "00" && IsRoute(row[kFlags])) {
            rows.push_back({.family = 6,
                            .ifIndex = InterfaceIndex(row[kInterface]),
                            .metric = Hex(row[kMetric])});
          }
        }));
    if (!ipv4 || !ipv6) {
      return Result<std::vector<RouteRow>>::Fail(!ipv4 ? ipv4.error() : ipv6.error());
    }
    return rows;
  }

  Result<std::vector<SocketRow>> OwnSockets() override {
    const auto inodes = OwnSocketInodes();
    if (!inodes) {
      return Result<std::vector<SocketRow>>::Fail(inodes.error());
    }
    std::vector<SocketRow> sockets;
    const auto keep_own = [&inodes, &sockets](const Row& row) {
      if (IsOpen(Hex(row[socket_table::kState])) &&
          inodes.value().contains(std::string(row[socket_table::kInode]))) {
        sockets.push_back(ReadSocket(row));
      }
    };
    const Status ipv4 = ForEachRow("/proc/net/tcp", socket_table::kColumns, keep_own);
    const Status ipv6 =
        EmptyWhenAbsent(ForEachRow("/proc/net/tcp6", socket_table::kColumns, keep_own));
    if (!ipv4 || !ipv6) {
      return Result<std::vector<SocketRow>>::Fail(!ipv4 ? ipv4.error() : ipv6.error());
    }
    return sockets;
  }

 private:
  static bool IsRoute(std::string_view flags) {
    const std::uint32_t bits = Hex(flags);
    return (bits & kRouteUp) != 0 && (bits & kRouteRejects) == 0;
  }
};

}  // namespace

Network& RealNetwork() {
  static NoDestructor<PosixNetwork> network;
  return *network;
}

}  // namespace korvane::platform
