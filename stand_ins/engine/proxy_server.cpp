#include "engine/proxy_server.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "engine/socks5.h"
#include "net/http_message.h"
#include "net/pump.h"
#include "net/url.h"

namespace korvane::stand_in {
namespace {

using net::Deadline;
using net::HttpHead;
using net::IoStatus;

bool IsBetweenNeighbours(const std::string& name) {
  static constexpr std::array<std::string_view, 5> kFields{
      "Connection", "Proxy-Connection", "Proxy-Authorization", "Keep-Alive", "Upgrade"};
  return std::ranges::any_of(
      kFields, [&](std::string_view field) { return net::EqualIgnoringCase(name, field); });
}

void Answer(net::Socket& client, int status, std::string_view why) {
  client.Send(
      net::HttpAnswer(status, {{"Content-Type", "text/plain"}, {"Connection", "close"}}, why),
      Deadline::Never());
}

void AnswerFailure(net::Socket& client, RouteStatus status) {
  switch (status) {
    case RouteStatus::kBlocked:
      return Answer(client, 403, "blocked\n");
    case RouteStatus::kTimedOut:
      return Answer(client, 504, "the server did not answer in time\n");
    default:
      return Answer(client, 502, "the server can't be reached\n");
  }
}

// One request for each connection: the server is asked to close, and its end ends the client's.
HttpHead ForServer(HttpHead head, const net::Url& url) {
  head.first_line = std::string(head.Word(0)) + " " + url.target + " " + std::string(head.Word(2));
  std::erase_if(head.fields, [](const auto& field) { return IsBetweenNeighbours(field.first); });
  head.fields.emplace_back("Connection", "close");
  return head;
}

void ServeConnect(net::Socket& client, net::HttpReader& reader, const HttpHead& head,
                  const OutboundDialer& dialer, const std::string& outbound) {
  const auto to = net::ParseAuthority(head.Word(1), 0);
  if (!to) {
    return Answer(client, 400, "CONNECT needs host and port\n");
  }
  Routed routed = dialer.Dial(outbound, *to, Deadline::Never());
  if (routed.status != RouteStatus::kDone) {
    return AnswerFailure(client, routed.status);
  }
  if (client.Send("HTTP/1.1 200 Connection established\r\n\r\n", Deadline::Never()) !=
          IoStatus::kDone ||
      routed.socket.Send(reader.TakeRest(), Deadline::Never()) != IoStatus::kDone) {
    return;
  }
  net::Pump(client, routed.socket);
}

void ServeRequest(net::Socket& client, net::HttpReader& reader, const HttpHead& head,
                  const OutboundDialer& dialer, const std::string& outbound) {
  const auto url = net::ParseUrl(head.Word(1));
  if (!url || url->scheme != "http") {
    return Answer(client, 400, "this is a proxy\n");
  }
  Routed routed = dialer.Dial(outbound, url->authority, Deadline::Never());
  if (routed.status != RouteStatus::kDone) {
    return AnswerFailure(client, routed.status);
  }
  const std::string request = ForServer(head, *url).Text() + reader.TakeRest();
  if (routed.socket.Send(request, Deadline::Never()) != IoStatus::kDone) {
    return;
  }
  net::Pump(client, routed.socket);
}

void ServeHttp(net::Socket& client, const OutboundDialer& dialer, const std::string& outbound) {
  net::HttpReader reader(client);
  HttpHead head;
  const IoStatus status = reader.ReadHead(head, Deadline::Never());
  if (status == IoStatus::kFailed) {
    return Answer(client, 400, "no HTTP request\n");
  }
  if (status != IoStatus::kDone) {
    return;
  }
  if (head.Word(0) == "CONNECT") {
    return ServeConnect(client, reader, head, dialer, outbound);
  }
  ServeRequest(client, reader, head, dialer, outbound);
}

}  // namespace

void ServeProxyConnection(net::Socket& client, const OutboundDialer& dialer,
                          const std::string& outbound) {
  const std::optional<char> first = client.Peek(Deadline::Never());
  if (!first) {
    return;
  }
  if (*first != kSocks5Version) {
    return ServeHttp(client, dialer, outbound);
  }
  Routed routed = AcceptSocks5(client, dialer, outbound);
  if (routed.status == RouteStatus::kDone) {
    net::Pump(client, routed.socket);
  }
}

}  // namespace korvane::stand_in
