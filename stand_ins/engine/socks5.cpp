#include "engine/socks5.h"

#include <array>
#include <cstdint>
#include <optional>

namespace korvane::stand_in {
namespace {

using net::Deadline;
using net::IoStatus;

constexpr std::uint8_t kNoAuthentication = 0;
constexpr std::uint8_t kNoneAcceptable = 0xff;
constexpr std::uint8_t kConnect = 1;
constexpr std::uint8_t kAddressV4 = 1;
constexpr std::uint8_t kAddressName = 3;
constexpr std::uint8_t kAddressV6 = 4;

enum class Reply : std::uint8_t {
  kSucceeded = 0,
  kGeneralFailure = 1,
  kNotAllowed = 2,
  kHostUnreachable = 4,
  kConnectionRefused = 5,
  kTimedOut = 6,
  kCommandNotSupported = 7,
  kAddressTypeNotSupported = 8,
};

// Takes bytes of known number off a connection; once one is missing, every further one is too.
class Bytes {
 public:
  explicit Bytes(net::Socket& socket) : socket_(socket) {}

  bool ok() const { return ok_; }

  std::string Take(std::size_t count) {
    std::string taken;
    while (ok_ && taken.size() < count) {
      ok_ = socket_.Receive(taken, count - taken.size(), Deadline::Never()) == IoStatus::kDone;
    }
    return ok_ ? taken : std::string(count, '\0');
  }

  std::uint8_t Byte() { return static_cast<std::uint8_t>(Take(1)[0]); }

 private:
  net::Socket& socket_;
  bool ok_ = true;
};

bool Send(net::Socket& client, std::string_view bytes) {
  return client.Send(bytes, Deadline::Never()) == IoStatus::kDone;
}

void SendReply(net::Socket& client, Reply reply) {
  // The address that was bound is of no use to a client of CONNECT.
  const std::array<char, 10> bytes{kSocks5Version, static_cast<char>(reply), 0, kAddressV4};
  Send(client, {bytes.data(), bytes.size()});
}

bool Greet(net::Socket& client, Bytes& bytes) {
  const std::uint8_t version = bytes.Byte();
  const std::string methods = bytes.Take(bytes.Byte());
  if (!bytes.ok() || version != kSocks5Version) {
    return false;
  }
  const bool offered = methods.find(static_cast<char>(kNoAuthentication)) != std::string::npos;
  const std::uint8_t chosen = offered ? kNoAuthentication : kNoneAcceptable;
  const std::array<char, 2> answer{kSocks5Version, static_cast<char>(chosen)};
  return Send(client, {answer.data(), answer.size()}) && offered;
}

std::string TextV4(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    if (!text.empty()) {
      text += '.';
    }
    text += std::to_string(static_cast<std::uint8_t>(byte));
  }
  return text;
}

std::string TextV6(const std::string& bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<std::uint8_t>(bytes[i]);
    if (i > 0 && i % 2 == 0) {
      text += ':';
    }
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

// The host of the request; nothing for a kind of address that there isn't.
std::optional<std::string> TakeHost(Bytes& bytes) {
  switch (bytes.Byte()) {
    case kAddressV4:
      return TextV4(bytes.Take(4));
    case kAddressV6:
      return TextV6(bytes.Take(16));
    case kAddressName:
      return bytes.Take(bytes.Byte());
    default:
      return std::nullopt;
  }
}

Reply ReplyFor(RouteStatus status) {
  switch (status) {
    case RouteStatus::kDone:
      return Reply::kSucceeded;
    case RouteStatus::kBlocked:
      return Reply::kNotAllowed;
    case RouteStatus::kUnknownHost:
      return Reply::kHostUnreachable;
    case RouteStatus::kRefused:
      return Reply::kConnectionRefused;
    case RouteStatus::kTimedOut:
      return Reply::kTimedOut;
    case RouteStatus::kStopped:
      return Reply::kGeneralFailure;
  }
  return Reply::kGeneralFailure;
}

Routed Refuse(net::Socket& client, Reply reply) {
  SendReply(client, reply);
  return {RouteStatus::kRefused, {}};
}

}  // namespace

Routed AcceptSocks5(net::Socket& client, const OutboundDialer& dialer,
                    const std::string& outbound) {
  Bytes bytes(client);
  if (!Greet(client, bytes)) {
    return {RouteStatus::kRefused, {}};
  }
  const std::uint8_t version = bytes.Byte();
  const std::uint8_t command = bytes.Byte();
  bytes.Byte();  // reserved
  const auto host = TakeHost(bytes);
  if (!bytes.ok() || version != kSocks5Version) {
    return {RouteStatus::kRefused, {}};
  }
  if (!host) {
    return Refuse(client, Reply::kAddressTypeNotSupported);
  }
  const unsigned high = bytes.Byte();
  const unsigned port = (high << 8) | bytes.Byte();
  if (!bytes.ok()) {
    return {RouteStatus::kRefused, {}};
  }
  if (command != kConnect) {
    return Refuse(client, Reply::kCommandNotSupported);
  }
  Routed routed =
      dialer.Dial(outbound, {*host, static_cast<std::uint16_t>(port)}, Deadline::Never());
  SendReply(client, ReplyFor(routed.status));
  return routed;
}

}  // namespace korvane::stand_in
