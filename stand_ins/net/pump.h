// pump.h: carries bytes both ways between two connections.
#pragma once

#include "net/socket.h"

namespace korvane::net {

// Runs until both sides have said that they are done, one of them breaks, or the signal of the
// first is raised. An end of one side is passed on as an end, and the other way goes on. What is
// kept of either way is bounded: a side that doesn't read holds up only what is meant for it.
void Pump(Socket& first, Socket& second);

}  // namespace korvane::net
