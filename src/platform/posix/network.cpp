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

// A table of the kernel's: a text file with a row in each line.
struct Table {
  const char* file;
  std::size_t columns;
  bool may_be_absent = false;  // a kernel without IPv6 has no table of it
};

// A table of routes, and the columns of it that are read.
struct RouteTable {
  Table table;
  std::int32_t family;
  std::size_t interface;
  std::size_t flags;
  std::size_t metric;
  int metric_base;
  std::size_t width;            // of the destination,
  std::string_view full_width;  // and what it is for the destination that is everything
};

constexpr std::array kRouteTables = {
    RouteTable{.table = {.file = "/proc/net/route", .columns = 8},
               .family = 4,
               .interface = 0,
               .flags = 3,
               .metric = 6,
               .metric_base = 10,
               .width = 7,
               .full_width = "00000000"},
    RouteTable{.table = {.file = "/proc/net/ipv6_route", .columns = 10, .may_be_absent = true},
               .family = 6,
               .interface = 9,
               .flags = 8,
               .metric = 5,
               .metric_base = 16,
               .width = 1,
               .full_width = "00"}};

// Both tables of sockets have the same columns.
constexpr std::array kSocketTables = {
    Table{.file = "/proc/net/tcp", .columns = 10},
    Table{.file = "/proc/net/tcp6", .columns = 10, .may_be_absent = true}};
constexpr std::size_t kLocalColumn = 1;
constexpr std::size_t kRemoteColumn = 2;
constexpr std::size_t kStateColumn = 3;
constexpr std::size_t kInodeColumn = 9;

constexpr std::uint32_t kRouteUp = 0x1;
constexpr std::uint32_t kRouteRejects = 0x200;

using Row = std::vector<std::string_view>;

// Digits, as the kernel writes them; 0 for anything else.
std::uint32_t Number(std::string_view text, int base) {
  std::uint32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number, base);
  return number;
}

std::uint32_t Hex(std::string_view text) { return Number(text, 16); }

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

// Calls `use` with each line that has at least the table's columns, headlines included.
template <typename Use>
Status ForEachRow(const Table& table, const Use& use) {
  errno = 0;
  std::ifstream file(table.file);
  if (!file) {
    return table.may_be_absent && errno == ENOENT ? Status::Ok()
                                                  : Status::Fail(static_cast<ErrorCode>(errno));
  }
  for (std::string line; std::getline(file, line);) {
    std::replace(line.begin(), line.end(), '\t', ' ');
    const Row row = Columns(line);
    if (row.size() >= table.columns) {
      use(row);
    }
  }
  return file.bad() ? Status::Fail(EIO) : Status::Ok();
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
  ReadEndpoint(row[kLocalColumn], socket.localAddress, socket.localPort);
  ReadEndpoint(row[kRemoteColumn], socket.remoteAddress, socket.remotePort);
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
    for (const RouteTable& routes : kRouteTables) {
      const Status read = ForEachRow(routes.table, [&rows, &routes](const Row& row) {
        if (row[routes.width] == routes.full_width && IsRoute(row[routes.flags])) {
          rows.push_back({.family = routes.family,
                          .ifIndex = InterfaceIndex(row[routes.interface]),
                          .metric = Number(row[routes.metric], routes.metric_base)});
        }
      });
      if (!read) {
        return Result<std::vector<RouteRow>>::Fail(read.error());
      }
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
      if (IsOpen(Hex(row[kStateColumn])) &&
          inodes.value().contains(std::string(row[kInodeColumn]))) {
        sockets.push_back(ReadSocket(row));
      }
    };
    for (const Table& table : kSocketTables) {
      if (const Status read = ForEachRow(table, keep_own); !read) {
        return Result<std::vector<SocketRow>>::Fail(read.error());
      }
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
