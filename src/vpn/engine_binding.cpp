#include "vpn/engine_binding.h"

#include "diagnostics_evidence/redaction.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"
#include "vpn/engine_signature.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

using platform::os;
using platform::WriteErrorLine;

// Once in the process's life; a later call reuses the result.
bool SetupStderrPrivacy() {
  static const bool silenced = os().error_stream->SilenceStandardError().ok();
  return silenced;
}

// The folder of the executable, without a trailing separator.
std::optional<std::wstring> ExecutableFolder() {
  const auto executable = os().process->Executable();
  if (!executable || executable.value().truncated) {
    WriteErrorLine("Failed to resolve korvane.exe path. Error: " +
                   std::to_string(executable ? executable.value().error : executable.error()));
    return std::nullopt;
  }
  const std::wstring& path = executable.value().path;
  const std::size_t separator = path.find_last_of(L"\\/");
  if (separator == std::wstring::npos) {
    WriteErrorLine(L"Failed to resolve korvane.exe directory from: " + path);
    return std::nullopt;
  }
  return path.substr(0, separator);
}

bool LoadModule(EngineTable& engine, const std::wstring& folder) {
  const auto separator = static_cast<wchar_t>(os().text->PathSeparator());
  const std::wstring first = folder + separator + L"sing-box.dll";
  const std::wstring second = folder + separator + L"dll" + separator + L"sing-box.dll";

  engine.module = nullptr;
  auto module = VerifyAndLoadEngineFile(first);
  if (!module) {
    const platform::ErrorCode first_error = module.error();
    module = VerifyAndLoadEngineFile(second);
    if (!module) {
      WriteErrorLine(L"Failed to load sing-box.dll from: " + first + L" (error " +
                     std::to_wstring(first_error) + L"), " + second + L" (error " +
                     std::to_wstring(module.error()) + L")");
      return false;
    }
  }
  engine.module = module.value();
  return true;
}

template <typename Function>
void Bind(const EngineTable& engine, const char* name, Function& function) {
  function = reinterpret_cast<Function>(os().dynamic_libraries->Symbol(engine.module, name));
}

void BindExports(EngineTable& engine) {
  Bind(engine, "singbox_new_service", engine.singbox_new_service);
  Bind(engine, "singbox_start_service", engine.singbox_start_service);
  Bind(engine, "singbox_close_service", engine.singbox_close_service);
  Bind(engine, "singbox_get_version", engine.singbox_get_version);
  Bind(engine, "singbox_get_last_error", engine.singbox_get_last_error);
  Bind(engine, "singbox_free_string", engine.singbox_free_string);
  Bind(engine, "singbox_set_crash_output", engine.singbox_set_crash_output);
}

bool HasRequiredExports(const EngineTable& engine) {
  return engine.singbox_new_service != nullptr && engine.singbox_start_service != nullptr &&
         engine.singbox_close_service != nullptr && engine.singbox_get_version != nullptr &&
         engine.singbox_get_last_error != nullptr && engine.singbox_free_string != nullptr;
}

struct VersionCall {
  char* (*function)() = nullptr;
  char* volatile version = nullptr;
};

// Null with `crashed` set when the engine crashed.
char* GuardedGetVersion(const EngineTable& engine, bool& crashed) {
  VersionCall call{engine.singbox_get_version, nullptr};
  crashed = !os().dynamic_libraries->CallGuarded(
      [](void* argument) {
        auto* version_call = static_cast<VersionCall*>(argument);
        version_call->version = version_call->function();
      },
      &call);
  return crashed ? nullptr : call.version;
}

struct FreeCall {
  void (*function)(char*) = nullptr;
  char* text = nullptr;
};

// False after a crash, and without a call when there is nothing to call or to free.
bool GuardedFreeString(const EngineTable& engine, char* text) {
  FreeCall call{engine.singbox_free_string, text};
  // coverage: its one caller has a text
  if (call.function == nullptr || text == nullptr) {
    return false;
  }
  return os().dynamic_libraries->CallGuarded(
      [](void* argument) {
        const auto* free_call = static_cast<FreeCall*>(argument);
        free_call->function(free_call->text);
      },
      &call);
}

}  // namespace

bool LoadEngine() {
  if (!SetupStderrPrivacy()) {
    WriteErrorLine("[SECURITY] Runtime stderr privacy setup failed; core unavailable");
    return false;
  }
  const auto folder = ExecutableFolder();
  VpnState& vpn = vpn_state();
  if (!folder || !LoadModule(vpn.engine, *folder)) {
    return false;
  }
  vpn.core_integrity_failed = false;
  BindExports(vpn.engine);
  if (vpn.engine.singbox_set_crash_output == nullptr) {
    WriteErrorLine(
        "[DIAG] singbox_set_crash_output not exported by this core"
        " \u2014 crash output unsupported (continuing)");
  }
  if (!HasRequiredExports(vpn.engine)) {
    WriteErrorLine("[ERROR] Failed to get all required function pointers from DLL");
    return false;
  }
  return true;
}

std::string ReadCoreVersion() {
  const EngineTable& engine = vpn_state().engine;
  if (engine.singbox_get_version == nullptr) {
    return "sing-box DLL not loaded";
  }
  bool crashed = false;
  char* const version = GuardedGetVersion(engine, crashed);
  if (crashed) {
    WriteErrorLine("[ERROR] singbox_get_version crashed during startup/version query");
    return "Unavailable";
  }
  if (version == nullptr) {
    return "Unknown";
  }
  const std::string text = EnsureUtf8(version);
  if (!GuardedFreeString(engine, version)) {
    WriteErrorLine("[WARNING] singbox_free_string crashed while freeing core version buffer");
  }
  return text.empty() ? "Unknown" : text;
}

std::optional<std::string> ReadEngineError(const EngineTable& engine) {
  if (engine.singbox_get_last_error == nullptr) {
    return std::nullopt;
  }
  char* const error = engine.singbox_get_last_error();
  if (error == nullptr) {
    return std::nullopt;
  }
  const std::string text(error);
  if (engine.singbox_free_string != nullptr) {
    engine.singbox_free_string(error);
  }
  return redactDiagnosticText(EnsureUtf8(text));
}

}  // namespace korvane
