// The stand-in for dwmapi.dll: the window attributes that are set.
//
// Settings: dwmapi.result (the HRESULT).
#include <windows.h>

#include "system_calls.h"

namespace korvane::stand_in {

extern "C" HRESULT WINAPI RecordedSetAttribute(HWND window, DWORD attribute, const void* value,
                                               DWORD size) {
  Json arguments = {{"window", window != nullptr}, {"attribute", attribute}, {"size", size}};
  if (value != nullptr && size == sizeof(BOOL)) {
    arguments["value"] = *static_cast<const BOOL*>(value);
  }
  RecordCall("dwmapi", "DwmSetWindowAttribute", arguments);
  return static_cast<HRESULT>(NumberSetting("dwmapi.result").value_or(S_OK));
}

}  // namespace korvane::stand_in
