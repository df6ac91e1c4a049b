#include "recorder/recorder_world.h"

#include <gtest/gtest.h>

namespace korvane::test {

namespace {

std::filesystem::path DataFolder(const std::filesystem::path& folder) {
  return folder / "com.sundrelak" / "dramvex";
}

}  // namespace

platform::Result<std::wstring> HousedProcess::LocalApplicationData() {
  if (local_data_error) {
    return platform::Result<std::wstring>::Fail(*local_data_error);
  }
  return local_data;
}

platform::Result<platform::Guid> FixedIdentifiers::CreateGuid() {
  if (guid_error) {
    return platform::Result<platform::Guid>::Fail(*guid_error);
  }
  return platform::Guid{.data1 = 0x9F2C5B1E,
                        .data2 = 0x0A4D,
                        .data3 = 0x4C3B,
                        .data4 = {0x8E, 0x77, 0x1D, 0x2F, 0x3A, 0x4B, 0x5C, 0x6D}};
}

std::string FixedIdentifiers::FormatGuid(const platform::Guid& guid) {
  return format_fails ? std::string() : platform::Identifiers::FormatGuid(guid);
}

platform::DensityFunction FixedAppearance::FindDensityFunction(platform::UserModule module,
                                                               const char* name) {
  EXPECT_EQ(module, this);
  asked.emplace_back(name);
  return function_there ? &density : nullptr;
}

std::uint32_t FixedAppearance::WindowDensity(platform::DensityFunction function,
                                             platform::WindowHandle window) {
  EXPECT_EQ(function, &density);
  EXPECT_NE(window, nullptr);
  return density;
}

std::uint32_t FixedAppearance::SystemDensity(platform::DensityFunction function) {
  EXPECT_EQ(function, &density);
  return density;
}

RecorderWorld::RecorderWorld(std::optional<std::filesystem::path> shared_folder)
    : folder_(shared_folder.value_or(own_folder_.path())),
      kernel_objects(L"_" + folder_.filename().wstring()),
      scope_([this] {
        platform::Os os = platform::RealOs();
        os.appearance = &appearance;
        os.clocks = &clock;
        os.error_stream = &errors;
        os.files = &files;
        os.identifiers = &identifiers;
        os.kernel_objects = &kernel_objects;
        os.process = &process;
        return os;
      }()) {
  process.local_data = folder_.wstring();
}

std::filesystem::path RecorderWorld::LogPath() const { return DataFolder(folder_) / "startup.log"; }

std::filesystem::path RecorderWorld::RotatedPath() const {
  return DataFolder(folder_) / "startup.log.1";
}

std::string RecorderWorld::LogText() const { return ReadBytes(LogPath()).value_or(""); }

std::vector<nlohmann::json> RecorderWorld::Lines() const { return ParseLines(LogText()); }

nlohmann::json RecorderWorld::LastLine() const {
  const auto lines = Lines();
  EXPECT_FALSE(lines.empty());
  return lines.empty() ? nlohmann::json() : lines.back();
}

std::vector<std::string> RecorderWorld::Stages() const {
  std::vector<std::string> stages;
  for (const auto& line : Lines()) {
    stages.push_back(line.at("stage"));
  }
  return stages;
}

void RecorderWorld::FillLog(std::size_t bytes) const {
  std::filesystem::create_directories(LogPath().parent_path());
  WriteBytes(LogPath(), std::string(bytes - 1, 'x') + "\n");
}

std::vector<nlohmann::json> ParseLines(const std::string& text) {
  std::vector<nlohmann::json> lines;
  EXPECT_TRUE(text.empty() || text.back() == '\n') << "the last line is cut";
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    auto parsed = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
    EXPECT_TRUE(parsed.is_object()) << line;
    lines.push_back(std::move(parsed));
    begin = end + 1;
  }
  return lines;
}

}  // namespace korvane::test
