#include "stand_ins/engine/session.h"

#include <gtest/gtest.h>

#include <optional>

namespace korvane::test {
namespace {

constexpr std::size_t kMostBody = std::size_t{256} * 1024 * 1024;

nlohmann::json Node(const std::string& tag) {
  return {{"type", "vless"}, {"tag", tag}, {"server", "127.0.0.1"}, {"server_port", 443}};
}

}  // namespace

net::Deadline Patience() { return net::Deadline::In(std::chrono::seconds(60)); }

std::uint16_t FreePort() {
  std::string error;
  const auto listener = net::Listener::Open("127.0.0.1", 0, nullptr, error);
  EXPECT_TRUE(listener) << error;
  return listener ? listener->port() : std::uint16_t{0};
}

Session::Session() : proxy_port(FreePort()), clash_port(FreePort()) {
  configuration = {
      {"inbounds",
       {{{"type", "mixed"},
         {"tag", "mixed-in"},
         {"listen", "127.0.0.1"},
         {"listen_port", proxy_port}}}},
      {"outbounds",
       {{{"type", "selector"},
         {"tag", "proxy"},
         {"outbounds", {"auto", "node_1", "node_2", "direct", "block"}}},
        {{"type", "urltest"}, {"tag", "auto"}, {"outbounds", {"node_1", "node_2"}}},
        Node("node_1"),
        Node("node_2"),
        {{"type", "direct"}, {"tag", "direct"}},
        {{"type", "block"}, {"tag", "block"}}}},
      {"route", {{"final", "proxy"}}},
      {"experimental",
       {{"clash_api", {{"external_controller", "127.0.0.1:" + std::to_string(clash_port)}}},
        {"stand_in", nlohmann::json::object()}}}};
}

void Session::BeginWith(const std::string& member) {
  configuration["outbounds"][0]["default"] = member;
}

net::Socket Connect(std::uint16_t port) {
  net::Dialled dialled = net::Dial("127.0.0.1", port, nullptr, Patience());
  EXPECT_EQ(dialled.status, net::DialStatus::kDone) << dialled.error;
  return std::move(dialled.socket);
}

void SendAll(net::Socket& socket, const std::string& bytes) {
  EXPECT_EQ(socket.Send(bytes, Patience()), net::IoStatus::kDone);
}

std::string ReadToEnd(net::Socket& socket) { return ReadUpTo(socket, kMostBody); }

std::string ReadUpTo(net::Socket& socket, std::size_t count) {
  std::string bytes;
  while (bytes.size() < count) {
    const net::IoStatus status = socket.Receive(bytes, count - bytes.size(), Patience());
    EXPECT_NE(status, net::IoStatus::kTimedOut);
    if (status != net::IoStatus::kDone) {
      break;
    }
  }
  return bytes;
}

Reply Exchange(std::uint16_t port, const std::string& request) {
  net::Socket socket = Connect(port);
  SendAll(socket, request);
  net::HttpReader reader(socket);
  Reply reply;
  if (reader.ReadHead(reply.head, Patience()) != net::IoStatus::kDone) {
    return reply;
  }
  reply.status = reply.head.Status();
  EXPECT_NE(reader.ReadAnswerBody(reply.head, reply.body, kMostBody, Patience()),
            net::IoStatus::kTimedOut);
  return reply;
}

Reply Ask(std::uint16_t port, const std::string& method, const std::string& target,
          const std::string& body, const std::string& fields) {
  std::string request = method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + fields;
  if (!body.empty()) {
    request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return Exchange(port, request + "\r\n" + body);
}

Reply Get(std::uint16_t port, const std::string& target) { return Ask(port, "GET", target); }

std::string DelayTarget(const std::string& kind, const std::string& tag, const std::string& url,
                        int timeout_ms) {
  return "/" + kind + "/" + tag + "/delay?url=" + url + "&timeout=" + std::to_string(timeout_ms);
}

int FetchThrough(std::uint16_t proxy_port, const std::string& url) {
  std::string error;
  const auto got = net::HttpGet(net::ParseUrl(url).value(), net::Authority{"127.0.0.1", proxy_port},
                                kMostBody, Patience(), error);
  return got ? got->head.Status() : 0;
}

}  // namespace korvane::test
