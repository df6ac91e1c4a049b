#include "engine_api/scripted_server.h"

#include <stdexcept>
#include <utility>

#include "net/http_message.h"
#include "net/tcp_server.h"

namespace korvane::test {

ScriptedServer::ScriptedServer(Script script) : script_(std::move(script)) {
  std::string error;
  auto listener = net::Listener::Open("127.0.0.1", 0, &stop_, error);
  if (!listener) {
    throw std::runtime_error("no loopback port: " + error);
  }
  port_ = listener->port();
  net::Serve(workers_, std::move(*listener),
             [this](net::Socket& client) { ServeConnection(client); });
}

ScriptedServer::~ScriptedServer() {
  stop_.Raise();
  workers_.JoinAll();
}

std::string ScriptedServer::Url(const std::string& target) const {
  return "http://127.0.0.1:" + std::to_string(port_) + target;
}

std::vector<std::string> ScriptedServer::Requests() {
  MutexLock lock(mutex_);
  return requests_;
}

void ScriptedServer::ServeConnection(net::Socket& client) {
  net::HttpHead head;
  if (net::HttpReader(client).ReadHead(head, net::Deadline::Never()) != net::IoStatus::kDone) {
    return;
  }
  {
    MutexLock lock(mutex_);
    requests_.push_back(head.Text());
  }
  script_(client);
}

void Say(net::Socket& client, const std::string& bytes) {
  static_cast<void>(client.Send(bytes, net::Deadline::Never()));
}

void AwaitLeave(net::Socket& client) {
  std::string ignored;
  while (client.Receive(ignored, 4096, net::Deadline::Never()) == net::IoStatus::kDone) {
    ignored.clear();
  }
}

}  // namespace korvane::test
