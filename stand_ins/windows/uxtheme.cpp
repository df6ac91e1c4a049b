// The stand-in for uxtheme.dll: the three unnamed functions under the ordinals that Windows gives
// them; Wine has another one under the first and none under the others.
//
// Settings: none.
#include <windows.h>

#include "system_calls.h"

namespace korvane::stand_in {

extern "C" void WINAPI RecordedRefreshColorPolicy() {
  RecordCall("uxtheme", "104", Json::object());
}

extern "C" int WINAPI RecordedAllowDarkMode(int argument) {
  RecordCall("uxtheme", "135", {{"argument", argument}});
  return 0;
}

extern "C" void WINAPI RecordedFlushMenus() { RecordCall("uxtheme", "136", Json::object()); }

}  // namespace korvane::stand_in
