#include "vpn/fake_engine.h"

#include <cstdlib>
#include <cstring>

namespace korvane::test {

namespace {

FakeEngine& Engine() { return FakeEngine::Get(); }

void Journal(const std::string& call) {
  if (Engine().journal != nullptr) {
    Engine().journal->Add(call);
  }
}

char* HandOut(const char* text) {
  if (text == nullptr) {
    return nullptr;
  }
  ++Engine().open_strings;
  return strdup(text);
}

std::uint64_t NewService(const char* config) {
  Journal("new");
  return Engine().on_new ? Engine().on_new(config) : Engine().next_id++;
}

std::int32_t StartService(std::uint64_t id) {
  Journal("start " + std::to_string(id));
  return Engine().on_start ? Engine().on_start(id) : 0;
}

std::int32_t CloseService(std::uint64_t id) {
  Journal("close " + std::to_string(id));
  return Engine().on_close ? Engine().on_close(id) : 0;
}

char* GetVersion() { return HandOut(Engine().version); }
char* GetLastError() { return HandOut(Engine().last_error); }

void FreeString(char* text) {
  --Engine().open_strings;
  std::free(text);  // NOLINT(cppcoreguidelines-owning-memory): the C interface's own rule
}

std::int32_t SetCrashOutput(const char* path) {
  Journal(std::string("crash output '") + path + "'");
  return Engine().on_set_crash_output ? Engine().on_set_crash_output(path) : 0;
}

}  // namespace

FakeEngine& FakeEngine::Get() {
  static FakeEngine engine;
  return engine;
}

std::string FakeLibraries::PlaceOf(const std::filesystem::path& path) {
  const std::string name = path.filename().string();
  return path.parent_path().filename() == "dll" ? "dll/" + name : name;
}

platform::Result<platform::ModuleHandle> FakeLibraries::Load(const std::filesystem::path& path) {
  loads.push_back(PlaceOf(path));
  if (!present.contains(PlaceOf(path))) {
    return platform::Result<platform::ModuleHandle>::Fail(126);
  }
  return static_cast<platform::ModuleHandle>(this);
}

platform::Result<std::unique_ptr<platform::HeldFile>> FakeCodeTrust::Hold(
    const std::filesystem::path& path) {
  using Held = std::unique_ptr<platform::HeldFile>;
  if (!libraries_.present.contains(FakeLibraries::PlaceOf(path))) {
    return platform::Result<Held>::Fail(2);
  }
  return Held(std::make_unique<platform::HeldFile>());
}

platform::SignerLookup FakeCodeTrust::FindSigner(const std::filesystem::path& /*path*/) {
  class Certificate : public platform::SignerCertificate {
   public:
    explicit Certificate(const FakeCodeTrust& trust) : trust_(trust) {}
    std::optional<std::array<std::uint8_t, 20>> Sha1Thumbprint() override {
      return trust_.thumbprint;
    }
    std::optional<std::wstring> SimpleDisplayName() override { return trust_.display_name; }

   private:
    const FakeCodeTrust& trust_;
  };
  platform::SignerLookup lookup;
  lookup.query_failed = query_fails;
  lookup.error = query_fails ? 0x80092009 : 0;
  if (!query_fails && has_certificate) {
    lookup.certificate = std::make_unique<Certificate>(*this);
  }
  return lookup;
}

void* FakeLibraries::Symbol(platform::ModuleHandle /*module*/, const char* name) {
  if (missing_exports.contains(name)) {
    return nullptr;
  }
  const std::map<std::string, void*> exports = {
      {"singbox_new_service", reinterpret_cast<void*>(NewService)},
      {"singbox_start_service", reinterpret_cast<void*>(StartService)},
      {"singbox_close_service", reinterpret_cast<void*>(CloseService)},
      {"singbox_get_version", reinterpret_cast<void*>(GetVersion)},
      {"singbox_get_last_error", reinterpret_cast<void*>(GetLastError)},
      {"singbox_free_string", reinterpret_cast<void*>(FreeString)},
      {"singbox_set_crash_output", reinterpret_cast<void*>(SetCrashOutput)},
  };
  const auto found = exports.find(name);
  return found == exports.end() ? nullptr : found->second;
}

void FakeLibraries::RestartGuards(bool version_crashes, bool free_crashes) {
  guarded_calls_ = 0;
  version_crashes_ = version_crashes;
  free_crashes_ = free_crashes;
}

bool FakeLibraries::CallGuarded(void (*function)(void*), void* argument) {
  const bool first = ++guarded_calls_ == 1;
  if (first && version_crashes_) {
    return false;
  }
  function(argument);
  return first || !free_crashes_;
}

}  // namespace korvane::test
