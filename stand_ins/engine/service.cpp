#include "engine/service.h"

#include <utility>

#include "engine/proxy_server.h"
#include "net/tcp_server.h"

namespace korvane::stand_in {
namespace {

constexpr std::chrono::seconds kHoldPatience{5};

// As the engine words it.
std::string ListenError(const net::Authority& at, const std::string& error) {
  return "listen tcp " + at.Text() + ": bind: " + error;
}

}  // namespace

Service::Service(Configuration configuration)
    : configuration_(std::move(configuration)),
      graph_(configuration_.outbounds),
      dialer_(graph_, configuration_.options, stop_) {
  if (configuration_.clash) {
    clash_.emplace(graph_, dialer_, configuration_.options, configuration_.clash->secret);
  }
}

std::optional<std::string> Service::Start() {
  const MutexLock lock(mutex_);
  if (std::exchange(started_, true)) {
    return "service already started";
  }
  Opened opened;
  if (auto failure = Open(opened)) {
    return failure;
  }
  Run(std::move(opened));
  return std::nullopt;
}

void Service::Close() {
  const MutexLock lock(mutex_);
  started_ = true;
  stop_.Raise();
  workers_.JoinAll();
  held_.clear();
}

std::optional<std::string> Service::Open(Opened& opened) const {
  if (auto failure = OpenInbounds(opened)) {
    return failure;
  }
  if (configuration_.clash) {
    const net::Authority& at = configuration_.clash->listen;
    std::string error;
    opened.clash = net::Listener::Open(at.host, at.port, &stop_, error);
    if (!opened.clash) {
      return "start clash api: external controller " + ListenError(at, error);
    }
  }
  return HoldConnections(opened);
}

std::optional<std::string> Service::OpenInbounds(Opened& opened) const {
  for (const Inbound& inbound : configuration_.inbounds) {
    if (inbound.type == "tun") {
      continue;
    }
    std::string error;
    auto listener = net::Listener::Open(inbound.listen.host, inbound.listen.port, &stop_, error);
    if (!listener) {
      return "start inbound/" + inbound.type + "[" + inbound.tag +
             "]: " + ListenError(inbound.listen, error);
    }
    opened.inbounds.push_back(std::move(*listener));
  }
  return std::nullopt;
}

std::optional<std::string> Service::HoldConnections(Opened& opened) const {
  for (const net::Authority& peer : options().hold) {
    const auto deadline = net::Deadline::In(kHoldPatience);
    net::Dialled dialled = net::Dial(peer.host, peer.port, &stop_, deadline);
    // The byte makes the connection visible in the system's table of owned sockets.
    if (dialled.status != net::DialStatus::kDone ||
        dialled.socket.Send("G", deadline) != net::IoStatus::kDone) {
      return "hold " + peer.Text() + ": " + dialled.error;
    }
    opened.held.push_back(std::move(dialled.socket));
  }
  return std::nullopt;
}

void Service::Run(Opened opened) {
  held_ = std::move(opened.held);
  for (net::Listener& listener : opened.inbounds) {
    net::Serve(workers_, std::move(listener), [this](net::Socket& client) {
      ServeProxyConnection(client, dialer_, configuration_.final_outbound);
    });
  }
  if (opened.clash) {
    net::Serve(workers_, std::move(*opened.clash),
               [this](net::Socket& client) { clash_->ServeConnection(client); });
  }
}

}  // namespace korvane::stand_in
