// What goes through the proxy: HTTP, CONNECT and SOCKS5, over real connections to a local web
// server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "net/tcp_server.h"
#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/session.h"
#include "web/web_server.h"

namespace korvane::test {
namespace {

using stand_in::WebAnswer;
using stand_in::WebRequest;
using stand_in::WebServer;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// A web server that answers with the request as it saw it.
WebAnswer Echo(const WebRequest& request) {
  return {200, "text/plain", request.head.Text() + request.body};
}

class ProxyTest : public ::testing::Test {
 protected:
  void Start() { service_.emplace(engine_, session_.configuration); }

  std::string Host() const { return "127.0.0.1:" + std::to_string(web_.port()); }

  net::Socket Tunnel() { return Tunnel(Host()); }

  // A tunnel to a server, past the proxy's answer.
  net::Socket Tunnel(const std::string& host) {
    net::Socket socket = Connect(session_.proxy_port);
    SendAll(socket, "CONNECT " + host + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
    net::HttpReader reader(socket);
    net::HttpHead head;
    EXPECT_EQ(reader.ReadHead(head, Patience()), net::IoStatus::kDone);
    EXPECT_EQ(head.Status(), 200);
    return socket;
  }

  EngineLibrary engine_;
  WebServer web_{0, Echo};
  Session session_;
  std::optional<RunningService> service_;
};

TEST_F(ProxyTest, AnAbsoluteRequestReachesTheServerAsAPlainOne) {
  Start();
  const Reply reply =
      Exchange(session_.proxy_port, "POST http://" + Host() + "/a?b=c HTTP/1.1\r\nHost: " + Host() +
                                        "\r\nProxy-Connection: keep-alive\r\n"
                                        "Proxy-Authorization: Basic eA==\r\nX-Own: kept\r\n"
                                        "Content-Length: 5\r\n\r\nhello");
  EXPECT_EQ(reply.status, 200);
  EXPECT_THAT(reply.body, StartsWith("POST /a?b=c HTTP/1.1\r\n"));
  EXPECT_THAT(reply.body, HasSubstr("X-Own: kept\r\n"));
  EXPECT_THAT(reply.body, Not(HasSubstr("Proxy-")));
  EXPECT_THAT(reply.body, HasSubstr("\r\n\r\nhello"));
}

TEST_F(ProxyTest, AConnectTunnelCarriesSeveralRequests) {
  Start();
  net::Socket tunnel = Tunnel();
  net::HttpReader reader(tunnel);
  for (const std::string path : {"/first", "/second"}) {
    SendAll(tunnel, "GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n");
    net::HttpHead head;
    std::string body;
    ASSERT_EQ(reader.ReadHead(head, Patience()), net::IoStatus::kDone);
    ASSERT_EQ(reader.ReadAnswerBody(head, body, 1000, Patience()), net::IoStatus::kDone);
    EXPECT_THAT(body, StartsWith("GET " + path));
  }
}

// The server sends back each piece before it takes the next. A relay that finished with one way
// before it looked at the other would soon stand still for ever.
TEST_F(ProxyTest, MegabytesGoBothWaysAtOnce) {
  Start();
  net::StopSignal stop;
  net::Workers workers;
  std::string error;
  auto listener = net::Listener::Open("127.0.0.1", 0, &stop, error);
  ASSERT_TRUE(listener) << error;
  const std::string host = "127.0.0.1:" + std::to_string(listener->port());
  net::Serve(workers, std::move(*listener), [](net::Socket& socket) {
    for (std::string piece; socket.Receive(piece, 16384, Patience()) == net::IoStatus::kDone;) {
      socket.Send(piece, Patience());
      piece.clear();
    }
  });
  constexpr std::size_t kSize = std::size_t{16} * 1024 * 1024;
  net::Socket tunnel = Tunnel(host);
  const std::string sent(kSize, 'm');
  std::thread sender([&] { SendAll(tunnel, sent); });
  EXPECT_EQ(ReadUpTo(tunnel, kSize).size(), kSize);
  sender.join();
  stop.Raise();
}

TEST_F(ProxyTest, AClientThatHasFinishedSendingStillGetsItsAnswer) {
  Start();
  net::Socket tunnel = Tunnel();
  SendAll(tunnel, "GET /half HTTP/1.1\r\nHost: x\r\n\r\n");
  tunnel.FinishSending();
  EXPECT_THAT(ReadToEnd(tunnel), HasSubstr("GET /half"));
}

TEST_F(ProxyTest, RequestsThatCannotBeServedAreAnswered) {
  struct Row {
    const char* why;
    std::string request;
    int status;
  };
  const std::string dead = "127.0.0.1:" + std::to_string(FreePort());
  const std::array rows{
      Row{"a dead port", "GET http://" + dead + "/ HTTP/1.1\r\n\r\n", 502},
      Row{"a tunnel to a dead port", "CONNECT " + dead + " HTTP/1.1\r\n\r\n", 502},
      Row{"a tunnel without a port", "CONNECT 127.0.0.1 HTTP/1.1\r\n\r\n", 400},
      Row{"a request to the proxy itself", "GET / HTTP/1.1\r\n\r\n", 400},
      Row{"a scheme that is not relayed", "GET https://" + Host() + "/ HTTP/1.1\r\n\r\n", 400},
      Row{"a field without a colon", "GET http://x/ HTTP/1.1\r\nbad\r\n\r\n", 400},
      Row{"a head beyond all bounds", "GET /" + std::string(70000, 'a'), 400},
  };
  Start();
  for (const Row& row : rows) {
    EXPECT_EQ(Exchange(session_.proxy_port, row.request).status, row.status) << row.why;
  }
}

TEST_F(ProxyTest, ABlockedRouteRefusesTraffic) {
  session_.BeginWith("block");
  Start();
  EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/")), 403);
  EXPECT_EQ(web_.connections(), 0);
}

TEST_F(ProxyTest, AnOutboundToldToFailRefusesTrafficWhileOthersWork) {
  session_.BeginWith("node_1");
  session_.wishes()["outbounds"]["node_1"]["fail"] = "refused";
  Start();
  EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/")), 502);
  EXPECT_EQ(Ask(session_.clash_port, "PUT", "/proxies/proxy", R"({"name":"node_2"})").status, 204);
  EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/")), 200);
}

class SocksTest : public ProxyTest {
 protected:
  // The second byte of the answer to a request, 255 when there was none.
  int Request(net::Socket& socket, const std::string& request) {
    SendAll(socket, {"\x05\x01\x00", 3});
    EXPECT_EQ(ReadUpTo(socket, 2), std::string("\x05\x00", 2));
    SendAll(socket, request);
    const std::string answer = ReadUpTo(socket, 10);
    return answer.size() == 10 ? static_cast<unsigned char>(answer[1]) : 255;
  }

  static std::string PortBytes(std::uint16_t port) {
    return {static_cast<char>(port >> 8), static_cast<char>(port & 255)};
  }

  static std::string ConnectTo(const std::string& address, std::uint16_t port) {
    return std::string("\x05\x01\x00", 3) + address + PortBytes(port);
  }
};

const std::string kLoopbackV4("\x01\x7f\x00\x00\x01", 5);
const std::string kLocalhost = "\x03\x09localhost";

TEST_F(SocksTest, AddressesAndNamesAreReached) {
  Start();
  for (const std::string& address : {kLoopbackV4, kLocalhost}) {
    net::Socket socket = Connect(session_.proxy_port);
    EXPECT_EQ(Request(socket, ConnectTo(address, web_.port())), 0);
    SendAll(socket, "GET /socks HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(ReadToEnd(socket), HasSubstr("GET /socks"));
  }
}

// Machines without IPv6 must get an answer as well.
TEST_F(SocksTest, AnIPv6AddressIsReachedWhereThereIsIPv6) {
  Start();
  std::string error;
  auto listener = net::Listener::Open("::1", 0, nullptr, error);
  const std::string loopback = "\x04" + std::string(15, '\0') + "\x01";
  const std::uint16_t port = listener ? listener->port() : FreePort();
  net::Socket socket = Connect(session_.proxy_port);
  const int reply = Request(socket, ConnectTo(loopback, port));
  EXPECT_EQ(reply == 0, listener.has_value()) << reply << ' ' << error;
}

TEST_F(SocksTest, WhatCannotBeServedGetsItsReplyCode) {
  struct Row {
    const char* why;
    std::string request;
    int reply;
  };
  const std::array rows{
      Row{"nobody listens", ConnectTo(kLoopbackV4, FreePort()), 5},
      Row{"listening for a connection", std::string("\x05\x02\x00", 3) + kLoopbackV4 + "aa", 7},
      Row{"an unknown kind of address", std::string("\x05\x01\x00\x02", 4) + "aaaaaa", 8},
  };
  Start();
  for (const Row& row : rows) {
    net::Socket socket = Connect(session_.proxy_port);
    EXPECT_EQ(Request(socket, row.request), row.reply) << row.why;
    EXPECT_EQ(ReadToEnd(socket), "") << row.why;
  }
}

TEST_F(SocksTest, ABlockedRouteIsNotAllowed) {
  session_.BeginWith("block");
  Start();
  net::Socket socket = Connect(session_.proxy_port);
  EXPECT_EQ(Request(socket, ConnectTo(kLoopbackV4, web_.port())), 2);
}

TEST_F(SocksTest, AClientThatInsistsOnAuthenticationIsTurnedAway) {
  Start();
  net::Socket socket = Connect(session_.proxy_port);
  SendAll(socket, "\x05\x01\x02");
  EXPECT_EQ(ReadToEnd(socket), "\x05\xff");
}

}  // namespace
}  // namespace korvane::test
