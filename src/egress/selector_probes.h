// selector_probes.h: what the engine says that its groups have chosen.
//
// One GET for each group of the configuration, through the engine's control API on loopback; blocks
// for up to kSelectorProbeMs each. Worker threads; nothing logged, nothing thrown.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "egress/egress_config.h"

namespace korvane {

inline constexpr int kSelectorProbeMs = 1200;

// An entry for each group, in the configuration's order. Without a port none has an answer.
std::vector<SelectorProbe> ProbeSelectors(const EgressConfig& config,
                                          std::optional<int> controller_port);

struct SelectorAnswer {
  SelectorProbeStatus status = SelectorProbeStatus::kMalformedAnswer;
  std::string now;  // set when read
};

// The choice in one answer. Read as JSON, not by match as the rest of the control API is.
SelectorAnswer ParseSelectorAnswer(std::string_view body);

}  // namespace korvane
