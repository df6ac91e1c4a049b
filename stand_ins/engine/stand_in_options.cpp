#include "engine/stand_in_options.h"

#include <utility>

namespace korvane::stand_in {
namespace {

constexpr std::int64_t kMostMs = 24 * 3600 * 1000;

DialFault ReadFault(const JsonNode& node) {
  const std::string fault = node.String();
  if (fault == "refused") {
    return DialFault::kRefused;
  }
  if (fault == "timeout") {
    return DialFault::kTimeout;
  }
  node.Refuse("expected \"refused\" or \"timeout\"");
}

OutboundOptions ReadOutbound(const JsonNode& node) {
  node.AllowOnly({"delay_ms", "fail", "report_delay_ms"});
  OutboundOptions options;
  options.delay = std::chrono::milliseconds(node.IntegerOr("delay_ms", 0, 0, kMostMs));
  if (const auto fault = node.Find("fail")) {
    options.fault = ReadFault(*fault);
  }
  if (const auto report = node.Find("report_delay_ms")) {
    options.report_delay_ms = static_cast<int>(report->Integer(INT32_MIN, INT32_MAX));
  }
  return options;
}

net::Authority ReadHeld(const JsonNode& node) {
  auto authority = net::ParseAuthority(node.String(), 0);
  if (!authority) {
    node.Refuse("expected \"address:port\"");
  }
  return std::move(*authority);
}

void ReadCall(const JsonNode& node, const char* key, CallScript& script) {
  if (const auto call = node.Find(key)) {
    script = CallScript::Read(*call);
  }
}

void ReadLists(const JsonNode& node, SessionOptions& options) {
  if (const auto hold = node.Find("hold")) {
    for (const JsonNode& held : hold->Items()) {
      options.hold.push_back(ReadHeld(held));
    }
  }
  if (const auto outbounds = node.Find("outbounds")) {
    for (const auto& [tag, outbound] : outbounds->Members()) {
      options.outbounds[tag] = ReadOutbound(outbound);
    }
  }
  if (const auto answers = node.Find("clash_answers")) {
    for (const JsonNode& answer : answers->Items()) {
      options.clash_answers.push_back(ClashScript::Read(answer));
    }
  }
}

}  // namespace

SessionOptions ReadSessionOptions(const JsonNode& node) {
  node.AllowOnly({"new_service", "start_service", "close_service", "hold", "probe_url", "outbounds",
                  "clash_answers"});
  SessionOptions options;
  ReadCall(node, "new_service", options.new_service);
  ReadCall(node, "start_service", options.start_service);
  ReadCall(node, "close_service", options.close_service);
  options.probe_url = node.StringOr("probe_url", "");
  ReadLists(node, options);
  return options;
}

}  // namespace korvane::stand_in
