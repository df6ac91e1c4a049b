#include "engine/configuration.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "engine/outbound_order.h"

namespace korvane::stand_in {
namespace {

constexpr std::int64_t kMostPort = 65535;

nlohmann::json Parse(const std::string& text) {
  try {
    return nlohmann::json::parse(text);
  } catch (const nlohmann::json::parse_error& error) {
    const std::string_view before = std::string_view(text).substr(0, error.byte);
    const auto row = 1 + std::ranges::count(before, '\n');
    const std::size_t line_start = before.rfind('\n') + 1;  // npos + 1 is 0
    throw ConfigurationError("decode config at row " + std::to_string(row) + ", column " +
                             std::to_string(before.size() - line_start) + ": invalid JSON");
  }
}

// The stand-in opens nothing to other machines: "every address" is read as loopback.
net::Authority ReadListen(const JsonNode& node, const std::string& address, std::int64_t port) {
  const bool any = address.empty() || address == "0.0.0.0" || address == "::";
  const std::string host = any || address == "localhost" ? "127.0.0.1" : address;
  if (!host.starts_with("127.") && host != "::1") {
    node.Refuse("listen address " + address + " is not on loopback");
  }
  return {host, static_cast<std::uint16_t>(port)};
}

Inbound ReadInbound(const JsonNode& node) {
  Inbound inbound;
  inbound.type = node.StringOr("type", "");
  inbound.tag = node.StringOr("tag", "");
  if (inbound.type == "tun") {
    static_cast<void>(node.StringOr("interface_name", ""));  // looked at, and no more
    return inbound;
  }
  if (inbound.type != "mixed" && inbound.type != "http" && inbound.type != "socks") {
    node.Refuse("unknown inbound type: " + inbound.type);
  }
  inbound.listen =
      ReadListen(node, node.StringOr("listen", ""), node.IntegerOr("listen_port", 0, 0, kMostPort));
  return inbound;
}

Outbound ReadOutbound(const JsonNode& node) {
  Outbound outbound;
  outbound.type = node.StringOr("type", "");
  outbound.tag = node.StringOr("tag", "");
  if (outbound.type.empty()) {
    node.Refuse("missing outbound type");
  }
  if (outbound.type != "selector" && outbound.type != "urltest") {
    return outbound;
  }
  if (const auto members = node.Find("outbounds")) {
    for (const JsonNode& member : members->Items()) {
      outbound.members.push_back(member.String());
    }
  }
  if (outbound.members.empty()) {
    node.Refuse("missing outbounds");
  }
  outbound.default_member = node.StringOr("default", outbound.members.front());
  return outbound;
}

std::optional<ClashController> ReadClash(const JsonNode& node) {
  const std::string controller = node.StringOr("external_controller", "");
  if (controller.empty()) {
    return std::nullopt;
  }
  const std::size_t colon = std::min(controller.rfind(':'), controller.size());
  const auto at = net::ParseAuthority(std::string("127.0.0.1").append(controller, colon), 0);
  if (!at || colon == controller.size()) {
    node.Refuse("external_controller: missing port in address " + controller);
  }
  return ClashController{ReadListen(node, controller.substr(0, colon), at->port),
                         node.StringOr("secret", "")};
}

const Outbound* FindOutbound(const Configuration& configuration, const std::string& tag) {
  const auto found = std::ranges::find(configuration.outbounds, tag, &Outbound::tag);
  return found == configuration.outbounds.end() ? nullptr : &*found;
}

// A wish for an outbound that isn't there is a slip of the test that made it.
void CheckWishes(const JsonNode& stand_in, const Configuration& configuration) {
  const auto outbounds = stand_in.Find("outbounds");
  if (!outbounds) {
    return;
  }
  for (const auto& [tag, wish] : outbounds->Members()) {
    if (FindOutbound(configuration, tag) == nullptr) {
      wish.Refuse("no such outbound");
    }
  }
}

void ReadExperimental(const JsonNode& node, Configuration& configuration) {
  if (const auto clash = node.Find("clash_api")) {
    configuration.clash = ReadClash(*clash);
  }
  if (const auto stand_in = node.Find("stand_in")) {
    configuration.options = ReadSessionOptions(*stand_in);
    CheckWishes(*stand_in, configuration);
  }
}

void CheckMembers(const Configuration& configuration, const Outbound& outbound) {
  for (const std::string& member : outbound.members) {
    if (FindOutbound(configuration, member) == nullptr) {
      throw ConfigurationError("initialize outbound: dependency[" + member +
                               "] not found for outbound[" + outbound.tag + "]");
    }
  }
  if (!outbound.members.empty() &&
      std::ranges::find(outbound.members, outbound.default_member) == outbound.members.end()) {
    throw ConfigurationError("initialize outbound: default outbound not found: " +
                             outbound.default_member);
  }
}

void CheckCircles(const Configuration& configuration) {
  const auto order = MembersFirst(configuration.outbounds);
  const std::set<const Outbound*> settled(order.begin(), order.end());
  for (const Outbound& outbound : configuration.outbounds) {
    if (!settled.contains(&outbound)) {
      throw ConfigurationError("initialize outbound: circular outbound dependency at " +
                               outbound.tag);
    }
  }
}

void CheckOutbounds(const Configuration& configuration) {
  std::set<std::string> tags;
  for (const Outbound& outbound : configuration.outbounds) {
    if (!outbound.tag.empty() && !tags.insert(outbound.tag).second) {
      throw ConfigurationError("initialize outbound: duplicate tag: " + outbound.tag);
    }
    CheckMembers(configuration, outbound);
  }
  CheckCircles(configuration);
}

void ReadFinal(const JsonNode& root, Configuration& configuration) {
  if (const auto route = root.Find("route")) {
    configuration.final_outbound = route->StringOr("final", "");
  }
  if (configuration.final_outbound.empty() && !configuration.outbounds.empty()) {
    configuration.final_outbound = configuration.outbounds.front().tag;
    return;
  }
  if (!configuration.final_outbound.empty() &&
      FindOutbound(configuration, configuration.final_outbound) == nullptr) {
    throw ConfigurationError("initialize router: default outbound not found: " +
                             configuration.final_outbound);
  }
}

}  // namespace

Configuration ReadConfiguration(const std::string& text) {
  const nlohmann::json document = Parse(text);
  const JsonNode root(document);
  root.AllowOnly({"$schema", "log", "dns", "ntp", "certificate", "endpoints", "inbounds",
                  "outbounds", "route", "services", "experimental"});
  Configuration configuration;
  if (const auto inbounds = root.Find("inbounds")) {
    for (const JsonNode& node : inbounds->Items()) {
      configuration.inbounds.push_back(ReadInbound(node));
    }
  }
  if (const auto outbounds = root.Find("outbounds")) {
    for (const JsonNode& node : outbounds->Items()) {
      configuration.outbounds.push_back(ReadOutbound(node));
    }
  }
  if (const auto experimental = root.Find("experimental")) {
    ReadExperimental(*experimental, configuration);
  }
  ReadFinal(root, configuration);
  CheckOutbounds(configuration);
  return configuration;
}

}  // namespace korvane::stand_in
