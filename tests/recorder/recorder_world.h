// recorder_world.h: a recorder's surroundings for one test: a folder and a mutex of its own, a
// clock that moves when told, an error stream that keeps its lines, and failures where a test wants
// them.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/os.h"
#include "recorder/failing_os.h"
#include "support/fake_clock.h"
#include "support/recording_error_stream.h"
#include "support/temporary_folder.h"

namespace korvane::test {

// The real process, but for the folder of its data.
class HousedProcess : public platform::Process {
 public:
  std::wstring local_data;
  std::optional<platform::ErrorCode> local_data_error;

  platform::Result<std::wstring> LocalApplicationData() override;

  std::uint32_t Id() override { return real_.Id(); }
  platform::Result<platform::ExecutablePath> Executable() override { return real_.Executable(); }
  std::optional<std::string> EnvironmentVariable(const char* name) override {
    return real_.EnvironmentVariable(name);
  }
  std::optional<std::vector<std::wstring>> ArgumentVector() override {
    return real_.ArgumentVector();
  }
  [[noreturn]] void Exit(std::uint32_t) override { std::abort(); }
  std::int32_t EnterApartment(std::uint32_t flags) override { return real_.EnterApartment(flags); }
  void LeaveApartment() override { real_.LeaveApartment(); }
  void SetAppUserModelId(const wchar_t* id) override { real_.SetAppUserModelId(id); }
  bool AttachParentConsole() override { return real_.AttachParentConsole(); }
  bool DebuggerPresent() override { return real_.DebuggerPresent(); }
  bool OpenConsole() override { return real_.OpenConsole(); }

 private:
  platform::Process& real_ = *platform::RealOs().process;
};

class FixedIdentifiers : public platform::Identifiers {
 public:
  std::optional<platform::ErrorCode> guid_error;
  bool format_fails = false;

  platform::Result<platform::Guid> CreateGuid() override;
  std::string FormatGuid(const platform::Guid& guid) override;
  std::uint64_t PerformanceCounter() override { return 0; }
};
inline constexpr char kFixedGuid[] = "{9F2C5B1E-0A4D-4C3B-8E77-1D2F3A4B5C6D}";

class FixedAppearance : public platform::Appearance {
 public:
  bool module_there = true;
  bool function_there = true;
  std::uint32_t density = 144;
  std::vector<std::string> asked;  // the functions that were looked up

  platform::UserModule FindUserModule() override { return module_there ? this : nullptr; }
  platform::DensityFunction FindDensityFunction(platform::UserModule module,
                                                const char* name) override;
  std::uint32_t WindowDensity(platform::DensityFunction function,
                              platform::WindowHandle window) override;
  std::uint32_t SystemDensity(platform::DensityFunction function) override;

  bool LoadThemeLibrary() override { return false; }
  platform::ThemeFunction FindThemeFunction(std::uint16_t) override { return nullptr; }
  void CallTheme(platform::ThemeFunction) override {}
  void CallTheme(platform::ThemeFunction, std::int32_t) override {}
  std::optional<std::uint32_t> SystemBuild() override { return std::nullopt; }
  std::int32_t SetDarkTitleBar(platform::WindowHandle, bool) override { return 0; }
  void EnableNonClientDpiScaling(platform::WindowHandle) override {}
};

class RecorderWorld {
 public:
  // The data of all processes with one folder lie together; without one, in a folder of its own.
  explicit RecorderWorld(std::optional<std::filesystem::path> shared_folder = std::nullopt);

  FakeClock clock;
  RecordingErrorStream errors;
  FailingFiles files;
  HousedProcess process;
  FixedIdentifiers identifiers;
  FixedAppearance appearance;

 private:
  TemporaryFolder own_folder_;
  std::filesystem::path folder_;

 public:
  FailingKernelObjects kernel_objects;

  std::filesystem::path LogPath() const;
  std::filesystem::path RotatedPath() const;
  // The log's bytes; empty when there is no file.
  std::string LogText() const;
  // Its lines, each parsed. A line that isn't JSON, or a cut last one, fails the test.
  std::vector<nlohmann::json> Lines() const;
  nlohmann::json LastLine() const;
  std::vector<std::string> Stages() const;
  // The log holds this and nothing else.
  void FillLog(std::size_t bytes) const;

 private:
  platform::ScopedOs scope_;
};

// The lines of a text, each parsed, as RecorderWorld::Lines.
std::vector<nlohmann::json> ParseLines(const std::string& text);

}  // namespace korvane::test
