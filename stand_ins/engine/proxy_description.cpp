#include "engine/proxy_description.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace korvane::stand_in {
namespace {

// The API's word for a configuration's type; an unknown type stands as it is.
std::string ShownType(const std::string& type) {
  using Pair = std::pair<std::string_view, std::string_view>;
  static constexpr std::array kTypes{
      Pair{"selector", "Selector"}, Pair{"urltest", "URLTest"},
      Pair{"direct", "Direct"},     Pair{"block", "Reject"},
      Pair{"vless", "VLESS"},       Pair{"vmess", "VMess"},
      Pair{"trojan", "Trojan"},     Pair{"shadowsocks", "Shadowsocks"},
      Pair{"hysteria", "Hysteria"}, Pair{"hysteria2", "Hysteria2"},
      Pair{"tuic", "TUIC"},         Pair{"anytls", "AnyTLS"},
  };
  const auto* found = std::ranges::find(kTypes, type, &Pair::first);
  return found == kTypes.end() ? type : std::string(found->second);
}

std::string TwoDigits(unsigned number) {
  return {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
}

std::string UtcText(std::chrono::system_clock::time_point time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::seconds>(time - day));
  const auto two = [](auto count) { return TwoDigits(static_cast<unsigned>(count)); };
  return std::to_string(static_cast<int>(date.year())) + "-" +
         TwoDigits(static_cast<unsigned>(date.month())) + "-" +
         TwoDigits(static_cast<unsigned>(date.day())) + "T" + two(clock.hours().count()) + ":" +
         two(clock.minutes().count()) + ":" + two(clock.seconds().count()) + "Z";
}

}  // namespace

nlohmann::ordered_json DescribeProxy(const OutboundGraph& graph, const Outbound& outbound) {
  nlohmann::ordered_json shown{
      {"type", ShownType(outbound.type)}, {"name", outbound.tag}, {"udp", true}};
  shown["history"] = nlohmann::ordered_json::array();
  if (const auto last = graph.LastDelay(outbound.tag)) {
    shown["history"].push_back({{"time", UtcText(last->time)}, {"delay", last->delay_ms}});
  }
  if (!outbound.members.empty()) {
    shown["now"] = graph.Now(outbound.tag);
    shown["all"] = outbound.members;
  }
  return shown;
}

}  // namespace korvane::stand_in
