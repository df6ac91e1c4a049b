// startup_log.h: questions about the lines of startup.log.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace korvane::test {

// The lines of one stage, in their order.
inline std::vector<nlohmann::json> OfStage(std::vector<nlohmann::json> log,
                                           const std::string& stage) {
  std::erase_if(log, [&](const nlohmann::json& line) { return line["stage"] != stage; });
  return log;
}

// The stages of one process, in their order.
inline std::vector<std::string> StagesOf(const std::vector<nlohmann::json>& log,
                                         const nlohmann::json& run_id) {
  std::vector<std::string> stages;
  for (const auto& line : log) {
    if (line["run_id"] == run_id) {
      stages.push_back(line["stage"]);
    }
  }
  return stages;
}

}  // namespace korvane::test
