#include "engine/stand_in_options.h"

#include <fstream>
#include <iterator>
#include <string_view>
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

void ReadTaken(const JsonNode& node, SessionOptions& options) {
  if (node.is_boolean()) {
    options.every_tun_name_taken = node.Boolean();
    return;
  }
  options.tun_names_taken.clear();
  for (const JsonNode& name : node.Items()) {
    options.tun_names_taken.push_back(name.String());
  }
}

net::Authority ReadHeld(const JsonNode& node) {
  auto authority = net::ParseAuthority(node.String(), 0);
  if (!authority) {
    node.Refuse("expected \"address:port\"");
  }
  return std::move(*authority);
}

// "true" is a line that holds something to be kept from the log; a string is the line itself.
std::string ReadNoise(const JsonNode& node) {
  if (node.is_string()) {
    return node.String();
  }
  return node.Boolean() ? "stand-in noise: server 203.0.113.7 password=not-for-the-log" : "";
}

void ReadCall(const JsonNode& node, const char* key, CallScript& script) {
  if (const auto call = node.Find(key)) {
    script = CallScript::Read(*call);
  }
}

// Lists replace those of the defaults; the outbounds' options are added to them.
void ReadLists(const JsonNode& node, SessionOptions& options) {
  if (const auto taken = node.Find("tun_taken")) {
    ReadTaken(*taken, options);
  }
  if (const auto hold = node.Find("hold")) {
    options.hold.clear();
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
    options.clash_answers.clear();
    for (const JsonNode& answer : answers->Items()) {
      options.clash_answers.push_back(ClashScript::Read(answer));
    }
  }
}

std::string BytesFromHex(const JsonNode& node) {
  const std::string digits = node.String();
  std::string percent;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    percent.append("%").append(digits, i, 2);
  }
  std::string bytes = net::PercentDecode(percent);
  if (bytes.size() * 2 != digits.size()) {
    node.Refuse("expected pairs of hexadecimal digits");
  }
  return bytes;
}

void ReadVersion(const JsonNode& node, LibraryOptions& options) {
  if (node.HoldsNull("version")) {
    options.version.reset();
  }
  if (const auto version = node.Find("version")) {
    options.version = version->String();
  }
  if (const auto bytes = node.Find("version_hex")) {
    options.version = BytesFromHex(*bytes);
  }
}

}  // namespace

SessionOptions ReadSessionOptions(const JsonNode& node, SessionOptions defaults) {
  node.AllowOnly({"new_service", "start_service", "close_service", "release_on_failed_close",
                  "noise", "tun_taken", "hold", "probe_url", "outbounds", "clash_answers",
                  "zero_for_failed_members"});
  SessionOptions options = std::move(defaults);
  ReadCall(node, "new_service", options.new_service);
  ReadCall(node, "start_service", options.start_service);
  ReadCall(node, "close_service", options.close_service);
  options.release_on_failed_close =
      node.BooleanOr("release_on_failed_close", options.release_on_failed_close);
  if (const auto noise = node.Find("noise")) {
    options.noise = ReadNoise(*noise);
  }
  options.probe_url = node.StringOr("probe_url", options.probe_url);
  options.zero_for_failed_members =
      node.BooleanOr("zero_for_failed_members", options.zero_for_failed_members);
  ReadLists(node, options);
  return options;
}

LibraryOptions ReadLibraryOptions(const std::filesystem::path& file) {
  LibraryOptions options;
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    return options;
  }
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  const auto document = nlohmann::json::parse(text, nullptr, false);
  if (document.is_discarded()) {
    throw ConfigurationError("sing-box.stand_in.json: no JSON");
  }
  const JsonNode node(document);
  node.AllowOnly({"version", "version_hex", "get_version", "get_last_error", "free_string",
                  "set_crash_output", "sessions"});
  ReadVersion(node, options);
  ReadCall(node, "get_version", options.get_version);
  ReadCall(node, "get_last_error", options.get_last_error);
  ReadCall(node, "free_string", options.free_string);
  ReadCall(node, "set_crash_output", options.set_crash_output);
  if (const auto sessions = node.Find("sessions")) {
    options.session = ReadSessionOptions(*sessions, {});
  }
  return options;
}

}  // namespace korvane::stand_in
