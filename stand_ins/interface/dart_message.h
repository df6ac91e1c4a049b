// dart_message.h: method calls and envelopes as the Dart program sends and reads them.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "interface/json.h"

namespace korvane::stand_in {

// The channels of this system. The console's lines use the short names.
inline constexpr std::string_view kVpnChannel = "com.sundrelak.korvane/vpn";
inline constexpr std::string_view kCoreChannel = "com.sundrelak.korvane/core";
inline constexpr std::string_view kVpnEventsChannel = "com.sundrelak.korvane/vpn_events";

// The whole name of a channel; a name with a slash stands for itself. Empty when unknown.
std::string ChannelName(std::string_view short_name);
// The name that a line uses: the short one where there is one.
std::string ShortChannelName(std::string_view name);

// A method call's bytes; `error` is set when the arguments have no form on the wire.
Bytes EncodeCall(std::string_view method, const Json& arguments, std::string& error);

// An envelope with the result null, or with nothing: what Dart answers to a call of the host's.
Bytes EncodeNullReply();

// The keys by which an envelope is told: {"success":..}, {"error":{..}}, {"not_implemented":true}.
// A Dart decoder's complaint comes out as {"malformed":"why","hex":".."}.
Json DescribeReply(std::span<const std::uint8_t> envelope);
// The same for an event stream: {"event":..}, {"event_error":{..}}, {"event_end":true}.
Json DescribeEvent(std::span<const std::uint8_t> envelope);
// {"method":"..","args":..} of a call towards Dart, or {"malformed":..}.
Json DescribeCall(std::span<const std::uint8_t> message);

}  // namespace korvane::stand_in
