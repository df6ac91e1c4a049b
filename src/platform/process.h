// process.h: the process itself: its identity, its place, its arguments, its end, its console.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/result.h"

namespace korvane::platform {

// The path of the running executable, as GetModuleFileNameW gives it into a buffer of 260.
struct ExecutablePath {
  std::wstring path;       // cut at the buffer's length when it was too small
  bool truncated = false;  // the result was exactly the buffer's length
  ErrorCode error = 0;     // the last error after the call; 122 after a cut on current systems
};

class Process {
 public:
  virtual ~Process() = default;

  virtual std::uint32_t Id() = 0;

  // Fails when the call gives 0. A cut path is a success with `truncated` set: some callers go on
  // with it. Linux: /proc/self/exe, never cut.
  virtual Result<ExecutablePath> Executable() = 0;

  // The value of an environment variable, as narrow text, read anew from the operating system at
  // each call (the C runtime's getenv is a snapshot on Windows). Nothing when unset or unreadable.
  // The host reads one name, "APPDATA".
  virtual std::optional<std::string> EnvironmentVariable(const char* name) = 0;

  // The user's local application data folder (SHGetKnownFolderPath(FOLDERID_LocalAppData); the
  // error is the HRESULT). Linux: $XDG_DATA_HOME, else ~/.local/share.
  virtual Result<std::wstring> LocalApplicationData() = 0;

  // The whole argument vector, program name first (CommandLineToArgvW(GetCommandLineW()));
  // nothing when the system can't split it. Linux: /proc/self/cmdline, each byte that is not part
  // of valid UTF-8 as a lone surrogate (0xDC00 + byte), which a strict conversion refuses.
  virtual std::optional<std::vector<std::wstring>> ArgumentVector() = 0;

  // Ends the process at once, without destructors of the program: ExitProcess, _exit.
  [[noreturn]] virtual void Exit(std::uint32_t code) = 0;

  // CoInitializeEx(nullptr, flags), CoUninitialize. The result is the HRESULT. Linux: S_OK.
  virtual std::int32_t EnterApartment(std::uint32_t flags) = 0;
  virtual void LeaveApartment() = 0;

  // SetCurrentProcessExplicitAppUserModelID; nothing hangs on its result.
  virtual void SetAppUserModelId(const wchar_t* id) = 0;

  // AttachConsole(-1). Linux: true, a process there always has its parent's streams.
  virtual bool AttachParentConsole() = 0;
  virtual bool DebuggerPresent() = 0;

  // AllocConsole, then stdout and stderr reopened on "CONOUT$" in mode "w"; where a reopen fails,
  // _dup2(_fileno(stdout), 1) for stdout and _dup2(_fileno(stdout), 2) for stderr; then the
  // library's streams are synchronised with stdio. False when there was no console to be had, and
  // then nothing else was done. Linux: false.
  virtual bool OpenConsole() = 0;
};

}  // namespace korvane::platform
