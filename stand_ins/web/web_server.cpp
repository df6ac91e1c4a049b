#include "web/web_server.h"

#include <charconv>
#include <stdexcept>
#include <utility>

#include "net/tcp_server.h"

namespace korvane::stand_in {
namespace {

constexpr std::string_view kPage =
    "<!doctype html>\n<title>Local page</title>\n<p>This page came from the local web "
    "server.</p>\n";
constexpr std::size_t kMostBytes = std::size_t{200} * 1024 * 1024;

WebAnswer NotFound() { return {404, "text/plain", "not found\n"}; }

WebAnswer Bytes(std::string_view count_text) {
  std::size_t count = 0;
  const char* end = count_text.data() + count_text.size();
  const auto [stop, error] = std::from_chars(count_text.data(), end, count);
  if (error != std::errc() || stop != end || count > kMostBytes) {
    return NotFound();
  }
  return {200, "application/octet-stream", std::string(count, 'x')};
}

}  // namespace

WebServer::WebServer(std::uint16_t port, Handler handler) : handler_(std::move(handler)) {
  std::string error;
  auto listener = net::Listener::Open("127.0.0.1", port, &stop_, error);
  if (!listener) {
    throw std::runtime_error("port " + std::to_string(port) + ": " + error);
  }
  port_ = listener->port();
  net::Serve(workers_, std::move(*listener), [this](net::Socket& socket) {
    ++connections_;
    ServeConnection(socket);
  });
}

WebServer::~WebServer() {
  stop_.Raise();
  workers_.JoinAll();
}

std::string WebServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void WebServer::ServeConnection(net::Socket& socket) {
  const auto never = net::Deadline::Never();
  net::HttpReader reader(socket);
  for (WebRequest request; reader.ReadHead(request.head, never) == net::IoStatus::kDone;) {
    request.body.clear();
    if (reader.ReadRequestBody(request.head, request.body, kMostBytes, never) !=
        net::IoStatus::kDone) {
      return;
    }
    request.method = request.head.Word(0);
    request.target = request.head.Word(1);
    ++requests_;
    const WebAnswer answer = handler_(request);
    const std::string bytes =
        net::HttpAnswer(answer.status, {{"Content-Type", answer.content_type}}, answer.body);
    if (socket.Send(bytes, never) != net::IoStatus::kDone) {
      return;
    }
    if (request.head.Says("Connection", "close")) {
      return;
    }
  }
}

WebAnswer WebServer::DefaultPages(const WebRequest& request) {
  constexpr std::string_view kBytes = "/bytes/";
  if (request.method == "POST") {
    return {200, "application/octet-stream", request.body};
  }
  if (request.target == "/") {
    return {200, "text/html", std::string(kPage)};
  }
  if (request.target == "/generate_204") {
    return {204, "text/plain", {}};
  }
  if (request.target.starts_with(kBytes)) {
    return Bytes(std::string_view(request.target).substr(kBytes.size()));
  }
  return NotFound();
}

}  // namespace korvane::stand_in
