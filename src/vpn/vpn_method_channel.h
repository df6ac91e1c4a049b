// vpn_method_channel.h: the one handler of the method channel "com.sundrelak.korvane/vpn".
//
// Its table is the program's public vocabulary towards the interface; docs/channel-methods.md tells
// each method. A method that may take long is answered by a worker of its own, everything else
// before the handler returns. A method that isn't in the table gets the answer "not implemented".
#pragma once

#include <array>
#include <string_view>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/method_call.h"
#include "vpn/vpn_workers.h"

namespace korvane {

// Makes the method and event channels on the messenger, replacing earlier ones, and loads the
// engine. Window thread. Without an engine the application runs on, and every start says what is
// missing.
void RegisterVpnChannels(flutter::BinaryMessenger* messenger);

// Answers one call, or hands its result to a worker. Window thread.
void HandleVpnMethodCall(const flutter::MethodCall<>& call, OwnedResult result);

}  // namespace korvane
