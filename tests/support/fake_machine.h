// fake_machine.h: a whole machine of fakes with one journal, for tests that care for the order of
// steps across the operating system's subjects.
//
// It is in force from its making to the end of the process, and so are the process-wide objects
// that meet it. The startup log's lines are in the journal as "log: " and the stage, in their place
// among the calls; the error stream's lines as "err: " and the line.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/os.h"
#include "support/call_journal.h"
#include "support/fake_clock.h"
#include "support/fake_kernel_objects.h"
#include "support/fake_process.h"
#include "support/fake_window_system.h"
#include "support/memory_files.h"
#include "support/recording_error_stream.h"

namespace korvane::test {

class FakeElevation : public platform::Elevation {
 public:
  FakeElevation(CallJournal& journal, FakeKernelObjects& objects)
      : journal_(journal), objects_(objects) {}

  std::wstring sid = L"S-1-5-21-1-2-3-1001";
  platform::Status launched = platform::Status::Ok();
  platform::Result<std::uint32_t> exit_code = std::uint32_t{0};

  bool IsAdministrator() override { return false; }
  std::wstring UserSid() override { return sid; }
  platform::Result<platform::KernelHandle> LaunchElevated(const std::wstring& executable,
                                                          const std::wstring& parameters) override {
    journal_.Add("LaunchElevated(" + Narrow(executable) + ", " + Narrow(parameters) + ")");
    if (!launched) {
      return platform::Result<platform::KernelHandle>::Fail(launched.error());
    }
    return objects_.NewHandle("child");
  }
  platform::Result<std::uint32_t> ExitCode(const platform::KernelHandle& /*process*/) override {
    return exit_code;
  }

 private:
  CallJournal& journal_;
  FakeKernelObjects& objects_;
};

class FakeIdentifiers : public platform::Identifiers {
 public:
  platform::Result<platform::Guid> guid =
      platform::Guid{0x0123ABCD, 0x00EF, 0x4001, {0x80, 0x0A, 0x01, 0x02, 0x03, 0x04, 0x05, 0xFF}};

  platform::Result<platform::Guid> CreateGuid() override { return guid; }
  std::uint64_t PerformanceCounter() override { return 42; }
};

class FakeRegistry : public platform::Registry {
 public:
  explicit FakeRegistry(CallJournal& journal) : journal_(journal) {}

  std::map<std::wstring, std::uint32_t> values;  // of the user's hive, by key, '\' and name

  platform::Result<std::uint32_t> ReadDword(platform::RegistryHive hive, const std::wstring& key,
                                            const std::wstring& value) override {
    const auto found = values.find(key + L"\\" + value);
    if (hive != platform::RegistryHive::kCurrentUser || found == values.end()) {
      return platform::Result<std::uint32_t>::Fail(platform::kRegistryNotFound);
    }
    return found->second;
  }
  platform::Status WriteDword(platform::RegistryHive /*hive*/, const std::wstring& key,
                              const std::wstring& value, std::uint32_t data) override {
    values[key + L"\\" + value] = data;
    return platform::Status::Ok();
  }
  platform::Status DeleteValue(platform::RegistryHive hive, const std::wstring& key,
                               const std::wstring& value) override {
    journal_.Add(std::string("DeleteValue(") +
                 (hive == platform::RegistryHive::kCurrentUser ? "user, " : "machine, ") +
                 Narrow(key) + ", " + Narrow(value) + ")");
    return values.erase(key + L"\\" + value) == 1
               ? platform::Status::Ok()
               : platform::Status::Fail(platform::kRegistryNotFound);
  }

 private:
  CallJournal& journal_;
};

class FakeAppearance : public platform::Appearance {
 public:
  explicit FakeAppearance(CallJournal& journal) : journal_(journal) {}

  bool has_theme_library = true;
  std::set<std::uint16_t> theme_functions = {104, 135, 136};
  std::optional<std::uint32_t> build = 19045;

  bool LoadThemeLibrary() override {
    journal_.Add("LoadThemeLibrary()");
    return has_theme_library;
  }
  platform::ThemeFunction FindThemeFunction(std::uint16_t ordinal) override {
    const auto found = theme_functions.find(ordinal);
    return found == theme_functions.end() ? nullptr : const_cast<std::uint16_t*>(&*found);
  }
  void CallTheme(platform::ThemeFunction function) override {
    journal_.Add("Theme" + std::to_string(*static_cast<std::uint16_t*>(function)) + "()");
  }
  void CallTheme(platform::ThemeFunction function, std::int32_t argument) override {
    journal_.Add("Theme" + std::to_string(*static_cast<std::uint16_t*>(function)) + "(" +
                 std::to_string(argument) + ")");
  }
  std::optional<std::uint32_t> SystemBuild() override { return build; }
  std::int32_t SetDarkTitleBar(platform::WindowHandle /*window*/, bool dark) override {
    journal_.Add(dark ? "SetDarkTitleBar(1)" : "SetDarkTitleBar(0)");
    return 0;
  }
  void EnableNonClientDpiScaling(platform::WindowHandle /*window*/) override {
    journal_.Add("EnableNonClientDpiScaling()");
  }
  platform::UserModule FindUserModule() override { return this; }
  platform::DensityFunction FindDensityFunction(platform::UserModule /*module*/,
                                                const char* /*name*/) override {
    return this;
  }
  std::uint32_t WindowDensity(platform::DensityFunction /*function*/,
                              platform::WindowHandle /*window*/) override {
    return 96;
  }
  std::uint32_t SystemDensity(platform::DensityFunction /*function*/) override { return 96; }

 private:
  CallJournal& journal_;
};

// There is no library to be found.
class FakeDynamicLibraries : public platform::DynamicLibraries {
 public:
  explicit FakeDynamicLibraries(CallJournal& journal) : journal_(journal) {}

  platform::Status restricted = platform::Status::Ok();

  platform::Status RestrictSearchPath() override {
    journal_.Add("RestrictSearchPath()");
    return restricted;
  }
  platform::Result<platform::ModuleHandle> Load(const std::filesystem::path& /*path*/) override {
    return platform::Result<platform::ModuleHandle>::Fail(126);
  }
  void* Symbol(platform::ModuleHandle /*module*/, const char* /*name*/) override { return nullptr; }
  bool CallGuarded(void (*function)(void* argument), void* argument) override {
    function(argument);
    return true;
  }

 private:
  CallJournal& journal_;
};

class JournaledErrorStream : public RecordingErrorStream {
 public:
  explicit JournaledErrorStream(CallJournal& journal) : journal_(journal) {}
  void WriteLine(std::string_view utf8) override {
    journal_.Add("err: " + std::string(utf8));
    RecordingErrorStream::WriteLine(utf8);
  }

 private:
  CallJournal& journal_;
};

class FakeMachine {
 public:
  // The one of this process; made, and in force, from the first call on.
  static FakeMachine& Get();

  // The fields of the startup log's lines of this stage, without `ms`, `pid`, `run_id` and `stage`.
  std::vector<nlohmann::json> Logged(const std::string& stage) const;
  // The calls so far, but for those that begin with one of these texts.
  std::vector<std::string> TakeCallsWithout(const std::vector<std::string>& beginnings);

  CallJournal journal;
  FakeClock clock;
  JournaledErrorStream errors{journal};
  FakeWindowSystem windows{journal};
  FakeKernelObjects objects{journal};
  FakeProcess process{journal};
  FakeElevation elevation{journal, objects};
  FakeIdentifiers identifiers;
  FakeRegistry registry{journal};
  FakeAppearance appearance{journal};
  FakeDynamicLibraries libraries{journal};
  MemoryFiles files;

  FakeMachine();

 private:
  platform::ScopedOs scope_;
};

}  // namespace korvane::test
