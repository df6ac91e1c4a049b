#include "recorder/recorder_world.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace korvane::test {

namespace {

platform::Os OsOf(RecorderWorld& world) {
  platform::Os os = platform::RealOs();
  os.appearance = &world.appearance;
  os.clocks = &world.clock;
  os.error_stream = &world.errors;
  os.identifiers = &world.identifiers;
  os.kernel_objects = &world.kernel_objects;
  os.process = &world.process;
  return os;
}

CountingPlan FailingOf(const RecorderWorld& world, platform::ErrorCode error) {
  CountingPlan plan =
      FailFrom(1, [&world](const Operation& operation) { return operation.name == world.failing; });
  plan.error = error;
  return plan;
}

}  // namespace

RecorderWorld::RecorderWorld(const std::optional<std::filesystem::path>& shared_folder,
                             platform::ErrorCode error)
    : folder_(shared_folder.value_or(own_folder_.path())),
      counting_(OsOf(*this), FailingOf(*this, error)),
      scope_(counting_.os()) {
  const std::u8string name = folder_.u8string();
  process.local_data =
      platform::RealOs().text->Utf8ToWide(std::string(name.begin(), name.end())).value();
  kernel_objects.suffix = L"_" + std::to_wstring(hash_value(folder_));
}

std::vector<std::string> RecorderWorld::FileCalls() const {
  std::vector<std::string> calls;
  for (const std::string& call : counting_.trace()) {
    if (call.rfind("Files.", 0) == 0) {
      calls.push_back(call.substr(6));
    }
  }
  return calls;
}

std::filesystem::path RecorderWorld::LogPath() const {
  return folder_ / "com.sundrelak" / "dramvex" / "startup.log";
}

std::filesystem::path RecorderWorld::RotatedPath() const {
  return folder_ / "com.sundrelak" / "dramvex" / "startup.log.1";
}

void RecorderWorld::FillLog(std::size_t bytes) const {
  WriteBytes(LogPath(), std::string(bytes, '\n'));
}

nlohmann::json RecorderWorld::LastLine() const {
  const auto lines = Lines();
  return lines.empty() ? nlohmann::json::object() : lines.back();
}

std::vector<std::string> RecorderWorld::Stages() const {
  std::vector<std::string> stages;
  for (const auto& line : Lines()) {
    stages.push_back(line.at("stage"));
  }
  return stages;
}

std::vector<nlohmann::json> RecorderWorld::ParseLines(const std::string& text) {
  EXPECT_TRUE(text.empty() || text.back() == '\n') << "the last line is cut";
  std::vector<nlohmann::json> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (end != begin) {
      const std::string line = text.substr(begin, end - begin);
      lines.push_back(nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false));
      EXPECT_TRUE(lines.back().is_object()) << line;
    }
    begin = end + 1;
  }
  return lines;
}

}  // namespace korvane::test
