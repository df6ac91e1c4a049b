// tcp_server.h: a worker for each connection of a listening port.
#pragma once

#include <functional>

#include "net/socket.h"
#include "net/workers.h"

namespace korvane::net {

// Takes connections until the listener's signal is raised and hands each to `handler` on a worker
// of its own. The port is free when the workers have been joined. False when there is no thread
// left.
bool Serve(Workers& workers, Listener listener, std::function<void(Socket&)> handler);

}  // namespace korvane::net
