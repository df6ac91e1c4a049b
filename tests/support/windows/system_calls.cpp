#include "support/windows/system_calls.h"

#include <sstream>

namespace korvane::test {

SystemCalls::SystemCalls()
    : record_("KORVANE_SYSTEM_CALLS", (folder_ / "calls").string()),
      settings_("KORVANE_SYSTEM_STAND_INS", (folder_ / "settings").string()) {}

void SystemCalls::Tell(const std::string& settings) { WriteBytes(folder_ / "settings", settings); }

std::vector<nlohmann::json> SystemCalls::All(const std::string& library) const {
  std::vector<nlohmann::json> calls;
  std::istringstream lines(ReadBytes(folder_ / "calls").value_or(""));
  for (std::string line; std::getline(lines, line);) {
    nlohmann::json call = nlohmann::json::parse(line);
    if (library.empty() || call["library"] == library) {
      calls.push_back(std::move(call));
    }
  }
  return calls;
}

}  // namespace korvane::test
