#include "vpn/config_text.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/os.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// What \s means in a byte-wise ECMAScript expression.
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::size_t SkipSpaces(std::string_view text, std::size_t position) {
  while (position < text.size() && IsSpace(text[position])) {
    ++position;
  }
  return position;
}

constexpr std::string_view kInterfaceNameKey = "\"interface_name\"";

// The first match of  "interface_name"\s*:\s*"[^"]*"  as begin and end. The expression is the
// definition; it is matched by hand because the library's engine recurses for each character of the
// value and would overflow the stack on a long one.
std::optional<std::pair<std::size_t, std::size_t>> FindInterfaceName(std::string_view text) {
  // Skips most bytes unseen; a search by the first byte, a quote, would stop at every one of them.
  const std::boyer_moore_horspool_searcher key(kInterfaceNameKey.begin(), kInterfaceNameKey.end());
  const auto find_key = [&](std::size_t from) {
    return static_cast<std::size_t>(std::search(text.begin() + from, text.end(), key) -
                                    text.begin());
  };
  for (std::size_t begin = find_key(0); begin < text.size(); begin = find_key(begin + 1)) {
    std::size_t position = SkipSpaces(text, begin + kInterfaceNameKey.size());
    if (position == text.size() || text[position] != ':') {
      continue;
    }
    position = SkipSpaces(text, position + 1);
    if (position == text.size() || text[position] != '"') {
      continue;
    }
    const std::size_t end = text.find('"', position + 1);
    if (end != std::string_view::npos) {
      return std::pair(begin, end + 1);
    }
  }
  return std::nullopt;
}

}  // namespace

bool HasTunInbound(const std::string& text) {
  return Contains(text, R"("tag":"tun-in")") || Contains(text, R"("tag": "tun-in")");
}

bool HasMixedInbound(const std::string& text) {
  return Contains(text, R"("tag":"mixed-in")") || Contains(text, R"("tag": "mixed-in")") ||
         Contains(text, R"("type":"mixed")") || Contains(text, R"("type": "mixed")");
}

std::string ClassifyConfigMode(const std::string& text) {
  if (text.empty()) {
    return "none";
  }
  if (HasTunInbound(text)) {
    return "tun";
  }
  return HasMixedInbound(text) ? "proxy" : "unknown";
}

int FindMixedListenPort(const std::string& text) {
  constexpr std::string_view kTag = "\"mixed-in\"";
  constexpr std::string_view kPortKey = "\"listen_port\":";
  const std::size_t tag = text.find(kTag);
  if (tag == std::string::npos) {
    return kDefaultMixedPort;
  }
  // A tag in the last 13 characters leaves no room for the key, so the search finds nothing then.
  const std::size_t key = text.find(kPortKey, tag);
  if (key == std::string::npos) {
    return kDefaultMixedPort;
  }
  std::size_t begin = key + kPortKey.size();
  while (begin < text.size() && (text[begin] == ' ' || text[begin] == '\t')) {
    ++begin;
  }
  std::size_t end = begin;
  while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0) {
    ++end;
  }
  return end == begin ? kDefaultMixedPort : std::stoi(text.substr(begin, end - begin));
}

bool IsTunCollisionError(const std::string& error) {
  std::string lower = error;
  for (char& c : lower) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  // The last word makes the two before it redundant; they are kept as the engine's own texts.
  return Contains(lower, "configure tun interface") &&
         (Contains(lower, "cannot create a file when that file already exists") ||
          Contains(lower, "file already exists") || Contains(lower, "already exists"));
}

std::string NextTunInterfaceName() {
  const std::uint32_t number = ++vpn_state().tun_name_counter;
  return "Korvane-TUN-" + std::to_string(platform::os().process->Id()) + "-" +
         std::to_string(number);
}

std::string RewriteInterfaceName(const std::string& text, const std::string& name) {
  const auto match = FindInterfaceName(text);
  if (!match) {
    return text;
  }
  return text.substr(0, match->first) + "\"interface_name\": \"" + name + "\"" +
         text.substr(match->second);
}

}  // namespace korvane
