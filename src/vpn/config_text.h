// config_text.h: the few facts that tunnel control takes from the configuration text.
//
// The configuration is JSON made by the interface, with a known shape, and is deliberately not
// parsed here: these are exact, case-sensitive searches over the whole text, and what they make of
// unusual spacing is part of their contract. A match inside a string value counts like any other.
// Pure but for the name counter; any thread; linear in time, constant in stack.
#pragma once

#include <string>

namespace korvane {

inline constexpr int kDefaultMixedPort = 10081;

// Whether the text has an inbound tagged "tun-in": no blank or exactly one behind the colon.
bool HasTunInbound(const std::string& text);

// Whether the text has any of the four markers of a mixed inbound, by its tag or its type.
bool HasMixedInbound(const std::string& text);

// "none" for an empty text, else "tun", "proxy" or "unknown".
std::string ClassifyConfigMode(const std::string& text);

// The port of the inbound "mixed-in": the digits behind the first "listen_port": that follows the
// first "mixed-in"; kDefaultMixedPort when there are none. Kept on purpose: a blank between the
// closing quote and the colon isn't taken, unlike in the reading of the control API.
// Throws std::out_of_range when the digits don't fit an int.
int FindMixedListenPort(const std::string& text);

// Whether the engine says that the name of its TUN adapter is taken, which happens when an earlier
// adapter of that name has not yet gone.
bool IsTunCollisionError(const std::string& error);

// A name that no earlier adapter of this process carries: "Korvane-TUN-<pid>-<n>", n from 1.
std::string NextTunInterfaceName();

// The text with its first "interface_name" set to the name; equal to the text when it has none. The
// name is put in as it is.
std::string RewriteInterfaceName(const std::string& text, const std::string& name);

}  // namespace korvane
