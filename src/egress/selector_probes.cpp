#include "egress/selector_probes.h"

#include <utility>

#include "egress/json_document.h"
#include "engine_api/clash_api.h"
#include "engine_api/local_http.h"

namespace korvane {

std::vector<SelectorProbe> ProbeSelectors(const EgressConfig& config,
                                          std::optional<int> controller_port) {
  std::vector<SelectorProbe> probes;
  for (const EgressOutbound& outbound : config.outbounds) {
    if (!IsSelectorType(outbound)) {
      continue;
    }
    SelectorProbe& probe = probes.emplace_back();
    probe.tag = outbound.tag;
    if (!controller_port) {
      continue;
    }
    const std::string url = ClashApiBase(*controller_port) + "/proxies/" + UrlEncodeTag(probe.tag);
    if (const auto body = LocalHttpGet(url, kSelectorProbeMs)) {
      SelectorAnswer answer = ParseSelectorAnswer(*body);
      probe.status = answer.status;
      probe.now = std::move(answer.now);
    }
  }
  return probes;
}

SelectorAnswer ParseSelectorAnswer(std::string_view body) {
  const std::optional<JsonDocument> answer = ParseJsonDocument(body);
  if (!answer || answer->Root().Kind() != JsonKind::kObject) {
    return {.status = SelectorProbeStatus::kMalformedAnswer, .now = {}};
  }
  const JsonValue* now = FindMember(answer->Root(), "now");
  if (now == nullptr || now->StringValue().empty()) {
    return {.status = SelectorProbeStatus::kNowMissing, .now = {}};
  }
  return {.status = SelectorProbeStatus::kRead, .now = std::string(now->StringValue())};
}

}  // namespace korvane
