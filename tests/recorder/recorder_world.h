// recorder_world.h: a recorder's surroundings for one test: a log folder and a log mutex of its
// own, a clock that moves when told, an error stream that keeps its lines, and a failure where
// wanted.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/counting_os.h"
#include "support/fake_machine.h"
#include "support/temporary_folder.h"

namespace korvane::test {

// The run's id in all lines here.
inline constexpr char kRunId[] = "{0123ABCD-00EF-4001-800A-0102030405FF}";

// The real objects, with the mutex named after its folder, so that tests don't meet in it, and
// without a bound on the wait, so that none depends on how fast the machine is.
class OwnLogMutex : public FakeKernelObjects {
 public:
  using FakeKernelObjects::FakeKernelObjects;
  std::wstring suffix;
  bool bounded = false;
  std::vector<std::wstring> names;

  platform::CreatedMutex CreateNamedMutex(const std::wstring& name, bool initially_owned) override {
    names.push_back(name);
    return real_.CreateNamedMutex(name + suffix, initially_owned);
  }
  platform::WaitOutcome Wait(const platform::KernelHandle& object, std::uint32_t ms) override {
    EXPECT_EQ(ms, 100u);
    return real_.Wait(object, bounded ? ms : platform::kWaitForever);
  }
  platform::Status ReleaseMutex(const platform::KernelHandle& mutex) override {
    return real_.ReleaseMutex(mutex);
  }
  platform::Status Close(platform::KernelHandle& handle) override { return real_.Close(handle); }

 private:
  platform::KernelObjects& real_ = *platform::RealOs().kernel_objects;
};

class HousedProcess : public FakeProcess {
 public:
  using FakeProcess::FakeProcess;
  std::wstring local_data;
  std::uint32_t Id() override { return platform::RealOs().process->Id(); }
  platform::Result<std::wstring> LocalApplicationData() override { return local_data; }
};

class TunableAppearance : public FakeAppearance {
 public:
  using FakeAppearance::FakeAppearance;
  bool module_there = true;
  bool function_there = true;
  std::uint32_t density = 144;
  std::string asked;  // the function that was looked up last

  platform::UserModule FindUserModule() override { return module_there ? this : nullptr; }
  platform::DensityFunction FindDensityFunction(platform::UserModule, const char* name) override {
    asked = name;
    return function_there ? this : nullptr;
  }
  std::uint32_t WindowDensity(platform::DensityFunction, platform::WindowHandle) override {
    return asked == "GetDpiForWindow" ? density : 1;
  }
  std::uint32_t SystemDensity(platform::DensityFunction) override {
    return asked == "GetDpiForSystem" ? density : 1;
  }
};

class RecorderWorld {
 private:
  CallJournal journal_;
  TemporaryFolder own_folder_{u8"\u0436\u4E2D"};  // a profile in another script
  std::filesystem::path folder_;

 public:
  // In a folder that other processes share, or in one of its own. Operations that fail do so with
  // this error.
  explicit RecorderWorld(const std::optional<std::filesystem::path>& shared_folder = std::nullopt,
                         platform::ErrorCode error = 5);

  FakeClock clock;
  RecordingErrorStream errors;
  FakeIdentifiers identifiers;
  OwnLogMutex kernel_objects{journal_};
  HousedProcess process{journal_};
  TunableAppearance appearance{journal_};
  // The operation that fails from now on, as "Files.Write"; empty for none.
  std::string failing;

  // The calls of file operations so far, without the subject's name.
  std::vector<std::string> FileCalls() const;

  std::filesystem::path LogPath() const;
  std::filesystem::path RotatedPath() const;
  std::string LogText() const { return ReadBytes(LogPath()).value_or(""); }
  // The log is this long, and holds no line.
  void FillLog(std::size_t bytes) const;
  std::vector<nlohmann::json> Lines() const { return ParseLines(LogText()); }
  nlohmann::json LastLine() const;
  std::vector<std::string> Stages() const;

  // A line that isn't JSON, or a cut last one, fails the test.
  static std::vector<nlohmann::json> ParseLines(const std::string& text);

 private:
  CountingOs counting_;
  platform::ScopedOs scope_;
};

}  // namespace korvane::test
