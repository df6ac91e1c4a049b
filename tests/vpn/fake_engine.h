// fake_engine.h: the engine's C interface inside the test program, told what to do next.
//
// Its functions are plain C, so the engine is one per process, as each test case is. Any thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/code_trust.h"
#include "platform/dynamic_libraries.h"
#include "support/call_journal.h"

namespace korvane::test {

struct FakeEngine {
  // Every call with its arguments, shared with the other fakes so that one order is seen.
  CallJournal* journal = nullptr;

  // What the next calls do; may throw. By default services are created, start and close well.
  std::function<std::uint64_t(const std::string& config)> on_new;
  std::function<std::int32_t(std::uint64_t id)> on_start;
  std::function<std::int32_t(std::uint64_t id)> on_close;
  std::function<std::int32_t(const std::string& path)> on_set_crash_output;
  // The last error's text and the version; a null pointer where there is none.
  const char* last_error = nullptr;
  const char* version = "1.11.0";

  std::atomic<std::uint64_t> next_id{1};
  // Strings handed out and not freed.
  std::atomic<int> open_strings{0};

  static FakeEngine& Get();
};

// Libraries that hold the fake engine at the paths that a test puts it, with exports left out at
// will.
class FakeLibraries : public platform::DynamicLibraries {
 public:
  // File names, relative to the executable's folder, at which the engine lies; others are absent.
  std::set<std::string> present;
  std::set<std::string> missing_exports;
  // From now on the first guarded call, the version's, and those behind it "crash" after their
  // work.
  void RestartGuards(bool version_crashes, bool free_crashes);
  std::vector<std::string> loads;

  // "sing-box.dll" or "dll/sing-box.dll".
  static std::string PlaceOf(const std::filesystem::path& path);

  platform::Status RestrictSearchPath() override { return platform::Status::Ok(); }
  platform::Result<platform::ModuleHandle> Load(const std::filesystem::path& path) override;
  void* Symbol(platform::ModuleHandle module, const char* name) override;
  bool CallGuarded(void (*function)(void*), void* argument) override;

 private:
  int guarded_calls_ = 0;
  bool version_crashes_ = false;
  bool free_crashes_ = false;
};

// Signatures as a test says they are. By default the system has no signature test.
class FakeCodeTrust : public platform::CodeTrust {
 public:
  explicit FakeCodeTrust(const FakeLibraries& libraries) : libraries_(libraries) {}
  bool available = false;
  std::uint32_t status = 0;
  bool query_fails = false;
  bool has_certificate = true;
  std::optional<std::array<std::uint8_t, 20>> thumbprint;
  std::optional<std::wstring> display_name;

  bool Available() override { return available; }
  platform::Result<std::unique_ptr<platform::HeldFile>> Hold(
      const std::filesystem::path& path) override;
  std::uint32_t VerifySignature(const std::filesystem::path&, const platform::HeldFile&) override {
    return status;
  }
  platform::SignerLookup FindSigner(const std::filesystem::path& path) override;

 private:
  const FakeLibraries& libraries_;
};

}  // namespace korvane::test
