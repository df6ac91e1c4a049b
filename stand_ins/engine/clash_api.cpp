#include "engine/clash_api.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

#include "engine/proxy_description.h"
#include "net/url.h"
#include "net/workers.h"

namespace korvane::stand_in {
namespace {

using net::Deadline;
using net::IoStatus;
using std::chrono::milliseconds;

constexpr std::size_t kMostBody = std::size_t{1024} * 1024;

// As the engine reads it: 16 bits with a sign, in decimal.
std::optional<milliseconds> ReadTimeout(const std::string& query) {
  const std::string text = net::QueryValue(query, "timeout").value_or("");
  std::int16_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || stop != text.data() + text.size()) {
    return std::nullopt;
  }
  return milliseconds(number);
}

// Cuts "/delay" off a rest such as "tag/delay"; a tag may hold slashes of its own.
bool CutDelay(std::string_view& rest) {
  constexpr std::string_view kDelay = "/delay";
  if (!rest.ends_with(kDelay)) {
    return false;
  }
  rest.remove_suffix(kDelay.size());
  return true;
}

}  // namespace

ClashApi::Answer ClashApi::Message(int status, std::string_view text) {
  return {status, nlohmann::json{{"message", text}}.dump()};
}

void ClashApi::ServeConnection(net::Socket& client) {
  net::HttpReader reader(client);
  net::HttpHead head;
  while (reader.ReadHead(head, Deadline::Never()) == IoStatus::kDone) {
    std::string body;
    if (reader.ReadRequestBody(head, body, kMostBody, Deadline::Never()) != IoStatus::kDone ||
        !ServeRequest(client, head, std::move(body)) || head.Says("Connection", "close")) {
      return;
    }
  }
}

// False when the connection is to be closed.
bool ClashApi::ServeRequest(net::Socket& client, const net::HttpHead& head, std::string body) {
  const std::string_view target = head.Word(1);
  const std::size_t path_end = std::min(target.find('?'), target.size());
  const Request request{std::string(head.Word(0)), net::PercentDecode(target.substr(0, path_end)),
                        std::string(target.substr(std::min(path_end + 1, target.size()))),
                        std::move(body)};
  if (const ClashScript* script = FindScript(options_.clash_answers, request.path)) {
    PlayAnswer(*script, client);
    return false;
  }
  const Answer answer = Authorised(head) ? Route(request) : Message(401, "Unauthorized");
  return client.Send(
             net::HttpAnswer(answer.status, {{"Content-Type", "application/json"}}, answer.body),
             Deadline::Never()) == IoStatus::kDone;
}

bool ClashApi::Authorised(const net::HttpHead& head) const {
  if (secret_.empty()) {
    return true;
  }
  const std::string* given = head.Find("Authorization");
  return given != nullptr && *given == "Bearer " + secret_;
}

ClashApi::Answer ClashApi::Route(const Request& request) {
  constexpr std::string_view kProxies = "/proxies/";
  constexpr std::string_view kGroup = "/group/";
  const std::string_view path = request.path;
  if (path.starts_with(kProxies)) {
    return RouteProxy(request, path.substr(kProxies.size()));
  }
  if (request.method != "GET") {
    return {405, {}};
  }
  if (path.starts_with(kGroup)) {
    return RouteGroup(request, path.substr(kGroup.size()));
  }
  if (path == "/proxies") {
    return AllProxies();
  }
  if (path == "/") {
    return {200, R"({"hello":"clash"})"};
  }
  if (path == "/version") {
    return {200, nlohmann::ordered_json{{"meta", true},
                                        {"premium", true},
                                        {"version", "sing-box " + std::string(kEngineVersion)}}
                     .dump()};
  }
  return NotFound();
}

ClashApi::Answer ClashApi::RouteProxy(const Request& request, std::string_view rest) {
  const Outbound* whole = graph_.Find(std::string(rest));
  if (whole == nullptr && CutDelay(rest)) {
    const Outbound* tested = graph_.Find(std::string(rest));
    if (tested == nullptr) {
      return NotFound();
    }
    return request.method == "GET" ? ProxyDelay(*tested, request.query) : Answer{405, {}};
  }
  if (whole == nullptr) {
    return NotFound();
  }
  if (request.method == "GET") {
    return {200, DescribeProxy(graph_, *whole).dump()};
  }
  return request.method == "PUT" ? Select(*whole, request.body) : Answer{405, {}};
}

ClashApi::Answer ClashApi::RouteGroup(const Request& request, std::string_view rest) {
  const bool delay = CutDelay(rest);
  const Outbound* group = graph_.Find(std::string(rest));
  if (group == nullptr || group->members.empty()) {
    return NotFound();
  }
  if (delay) {
    return GroupDelay(*group, request.query);
  }
  return {200, DescribeProxy(graph_, *group).dump()};
}

ClashApi::Answer ClashApi::AllProxies() const {
  nlohmann::ordered_json proxies = nlohmann::ordered_json::object();
  for (const Outbound& outbound : graph_.outbounds()) {
    proxies[outbound.tag] = DescribeProxy(graph_, outbound);
  }
  return {200, nlohmann::ordered_json{{"proxies", std::move(proxies)}}.dump()};
}

ClashApi::Answer ClashApi::Select(const Outbound& outbound, const std::string& body) {
  const auto document = nlohmann::json::parse(body, nullptr, false);
  if (!document.is_object() || !document.contains("name") || !document["name"].is_string()) {
    return Message(400, "Body invalid");
  }
  switch (graph_.Select(outbound.tag, document["name"].get<std::string>())) {
    case SelectStatus::kDone:
      return {204, {}};
    case SelectStatus::kNoSelector:
      return Message(400, "Must be a Selector");
    case SelectStatus::kNoMember:
      return Message(400, "Selector update error: not found");
  }
  return NotFound();
}

ClashApi::Answer ClashApi::ProxyDelay(const Outbound& outbound, const std::string& query) const {
  const auto timeout = ReadTimeout(query);
  if (!timeout) {
    return Message(400, "Body invalid");
  }
  const std::string url = net::QueryValue(query, "url").value_or("");
  const DelayResult result = dialer_.MeasureDelay(outbound.tag, url, *timeout);
  if (result.status == DelayStatus::kTimedOut) {
    return Message(504, "Timeout");
  }
  if (result.status == DelayStatus::kFailed) {
    return Message(503, "An error occurred in the delay test");
  }
  return {200, nlohmann::json{{"delay", result.delay_ms}}.dump()};
}

ClashApi::Answer ClashApi::GroupDelay(const Outbound& group, const std::string& query) const {
  const auto timeout = ReadTimeout(query);
  if (!timeout) {
    return Message(400, "Body invalid");
  }
  const std::string url = net::QueryValue(query, "url").value_or("");
  std::vector<DelayResult> results(group.members.size());
  net::Workers probes;
  for (std::size_t i = 0; i < results.size(); ++i) {
    probes.Run([&, i] { results[i] = dialer_.MeasureDelay(group.members[i], url, *timeout); });
  }
  probes.JoinAll();
  nlohmann::ordered_json delays = nlohmann::ordered_json::object();
  for (std::size_t i = 0; i < results.size(); ++i) {
    if (results[i].status == DelayStatus::kDone) {
      delays[group.members[i]] = results[i].delay_ms;
    }
  }
  return {200, delays.dump()};
}

}  // namespace korvane::stand_in
