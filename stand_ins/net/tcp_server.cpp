#include "net/tcp_server.h"

#include <memory>
#include <utility>

namespace korvane::net {

bool Serve(Workers& workers, Listener listener, std::function<void(Socket&)> handler) {
  const auto port = std::make_shared<Listener>(std::move(listener));
  return workers.Run([&workers, port, handler = std::move(handler)] {
    while (std::optional<Socket> accepted = port->Accept()) {
      const auto connection = std::make_shared<Socket>(std::move(*accepted));
      workers.Run([connection, handler] { handler(*connection); });
    }
  });
}

}  // namespace korvane::net
