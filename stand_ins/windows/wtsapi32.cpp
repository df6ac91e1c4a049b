// The stand-in for wtsapi32.dll: session notifications that are registered, or refused.
//
// Settings: wtsapi32.fail_register, wtsapi32.fail_unregister (the error).
#include <windows.h>

#include "system_calls.h"

namespace korvane::stand_in {

namespace {

BOOL Answer(const char* setting) {
  const auto error = NumberSetting(setting);
  SetLastError(error.value_or(0));
  return error ? FALSE : TRUE;
}

}  // namespace

extern "C" BOOL WINAPI RecordedRegister(HWND window, DWORD flags) {
  RecordCall("wtsapi32", "WTSRegisterSessionNotification",
             {{"window", window != nullptr}, {"flags", flags}});
  return Answer("wtsapi32.fail_register");
}

extern "C" BOOL WINAPI RecordedUnregister(HWND window) {
  RecordCall("wtsapi32", "WTSUnRegisterSessionNotification", {{"window", window != nullptr}});
  return Answer("wtsapi32.fail_unregister");
}

}  // namespace korvane::stand_in
