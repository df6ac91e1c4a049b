// The stand-in for shell32.dll: launches that are recorded, refused, or succeed without a process.
// The rest of what the program imports goes to the system's own library.
//
// Settings: shell32.fail_execute (the error; 1223 is a declined consent prompt), shell32.no_process
// (1: success without a process handle).
#include <windows.h>

#include <shellapi.h>

#include <string>

#include "system_calls.h"

namespace korvane::stand_in {

namespace {

// A function of the library that this one stands before; null when there is none.
template <typename Function>
Function Real(const char* name) {
  static const HMODULE library = [] {
    wchar_t folder[MAX_PATH];
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    return LoadLibraryW((std::wstring(folder, length) + L"\\shell32.dll").c_str());
  }();
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

extern "C" BOOL WINAPI RecordedExecute(SHELLEXECUTEINFOW* info) {
  RecordCall("shell32", "ShellExecuteExW",
             {{"size", info->cbSize},
              {"mask", info->fMask},
              {"window", info->hwnd != nullptr},
              {"verb", TextOrNull(info->lpVerb)},
              {"file", TextOrNull(info->lpFile)},
              {"parameters", TextOrNull(info->lpParameters)},
              {"directory", TextOrNull(info->lpDirectory)},
              {"show", info->nShow}});
  if (const auto error = NumberSetting("shell32.fail_execute")) {
    return Fail(*error);
  }
  if (NumberSetting("shell32.no_process").value_or(0) != 0) {
    info->hProcess = nullptr;
    SetLastError(ERROR_SUCCESS);
    return TRUE;
  }
  const auto execute = Real<BOOL(WINAPI*)(SHELLEXECUTEINFOW*)>("ShellExecuteExW");
  return execute != nullptr ? execute(info) : Fail(ERROR_PROC_NOT_FOUND);
}

extern "C" wchar_t** WINAPI ForwardedSplit(const wchar_t* line, int* count) {
  const auto split = Real<wchar_t**(WINAPI*)(const wchar_t*, int*)>("CommandLineToArgvW");
  return split != nullptr ? split(line, count) : nullptr;
}

extern "C" HRESULT WINAPI ForwardedKnownFolder(const GUID* folder, DWORD flags, HANDLE token,
                                               wchar_t** path) {
  const auto ask =
      Real<HRESULT(WINAPI*)(const GUID*, DWORD, HANDLE, wchar_t**)>("SHGetKnownFolderPath");
  return ask != nullptr ? ask(folder, flags, token, path) : E_NOTIMPL;
}

extern "C" HRESULT WINAPI ForwardedSetAppUserModelId(const wchar_t* id) {
  const auto set =
      Real<HRESULT(WINAPI*)(const wchar_t*)>("SetCurrentProcessExplicitAppUserModelID");
  return set != nullptr ? set(id) : E_NOTIMPL;
}

}  // namespace korvane::stand_in
