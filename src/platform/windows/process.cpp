#include "platform/process.h"

#include <windows.h>

#include <io.h>
#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

#include <array>
#include <cstdio>
#include <ios>
#include <memory>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr DWORD kPathBufferLength = 260;
constexpr int kStdoutDescriptor = 1;
constexpr int kStderrDescriptor = 2;

struct FreeLocal {
  void operator()(void* memory) const { ::LocalFree(memory); }
};
struct FreeTaskMemory {
  void operator()(void* memory) const { ::CoTaskMemFree(memory); }
};

std::wstring WideFromAscii(const char* text) {
  const std::string_view narrow = text;
  return {narrow.begin(), narrow.end()};
}

// Nothing when the variable is unset. It may change between the two calls, so the second has the
// last word on its length.
std::optional<std::wstring> WideEnvironmentVariable(const std::wstring& name) {
  std::wstring value(::GetEnvironmentVariableW(name.c_str(), nullptr, 0), L'\0');
  ::SetLastError(ERROR_SUCCESS);
  const DWORD length =
      ::GetEnvironmentVariableW(name.c_str(), value.data(), static_cast<DWORD>(value.size()));
  if (length > value.size() || (length == 0 && ::GetLastError() != ERROR_SUCCESS)) {
    return std::nullopt;
  }
  value.resize(length);
  return value;
}

// Sends a stream to the console; where that fails, to where stdout leads.
void RebindToConsole(FILE* stream, int descriptor) {
  FILE* reopened = nullptr;
  if (::freopen_s(&reopened, "CONOUT$", "w", stream) != 0) {
    // Kept on purpose: the descriptor of stdout for both streams.
    ::_dup2(::_fileno(stdout), descriptor);
  }
}

class WindowsProcess final : public Process {
 public:
  std::uint32_t Id() override { return ::GetCurrentProcessId(); }

  Result<ExecutablePath> Executable() override {
    std::array<wchar_t, kPathBufferLength> buffer{};
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer.data(), kPathBufferLength);
    const ErrorCode error = ::GetLastError();
    if (length == 0) {
      return Result<ExecutablePath>::Fail(error);
    }
    const bool truncated = length == kPathBufferLength;
    // A cut path is closed with a zero in the last place, which is no part of it.
    const std::size_t used = truncated ? kPathBufferLength - 1 : length;
    return ExecutablePath{.path = {buffer.data(), used}, .truncated = truncated, .error = error};
  }

  std::optional<std::string> EnvironmentVariable(const char* name) override {
    const std::optional<std::wstring> value = WideEnvironmentVariable(WideFromAscii(name));
    return value ? std::optional<std::string>(RealTextEncoding().NarrowFromPath(*value))
                 : std::nullopt;
  }

  Result<std::wstring> LocalApplicationData() override {
    PWSTR text = nullptr;
    const HRESULT result = ::SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &text);
    const std::unique_ptr<wchar_t, FreeTaskMemory> folder(text);  // to be freed after a failure too
    if (FAILED(result)) {
      return Result<std::wstring>::Fail(static_cast<ErrorCode>(result));
    }
    return std::wstring(folder.get());
  }

  std::optional<std::vector<std::wstring>> ArgumentVector() override {
    int count = 0;
    const std::unique_ptr<LPWSTR[], FreeLocal> words(
        ::CommandLineToArgvW(::GetCommandLineW(), &count));
    if (words == nullptr) {
      return std::nullopt;
    }
    return std::vector<std::wstring>(words.get(), words.get() + count);
  }

  [[noreturn]] void Exit(std::uint32_t code) override { ::ExitProcess(code); }

  std::int32_t EnterApartment(std::uint32_t flags) override {
    return ::CoInitializeEx(nullptr, flags);
  }
  void LeaveApartment() override { ::CoUninitialize(); }

  void SetAppUserModelId(const wchar_t* id) override {
    static_cast<void>(::SetCurrentProcessExplicitAppUserModelID(id));
  }

  bool AttachParentConsole() override { return ::AttachConsole(ATTACH_PARENT_PROCESS) != 0; }
  bool DebuggerPresent() override { return ::IsDebuggerPresent() != 0; }

  bool OpenConsole() override {
    if (::AllocConsole() == 0) {
      return false;
    }
    RebindToConsole(stdout, kStdoutDescriptor);
    RebindToConsole(stderr, kStderrDescriptor);
    std::ios::sync_with_stdio();
    return true;
  }
};

}  // namespace

Process& RealProcess() {
  static NoDestructor<WindowsProcess> process;
  return *process;
}

}  // namespace korvane::platform
