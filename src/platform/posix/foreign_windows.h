// foreign_windows.h: what can be asked of another process's headless windows.
//
// Each call is one request over a connection of its own. A process that is gone, of another build
// or stopped counts as one without windows (kErrorInvalidWindow). Any thread; no state.
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"
#include "platform/window_system.h"

namespace korvane::platform {

// The first match among the processes in ascending order of their ids; null for none.
WindowHandle FindForeignWindow(const std::wstring& window_class, const std::wstring& title);

bool ForeignWindowExists(WindowHandle window);
std::uintptr_t ForeignWindowProperty(WindowHandle window, const std::wstring& name);

// These two are queued for the window's thread and take effect there.
Status ShowForeignWindow(WindowHandle window, int command);
Status SetForeignForeground(WindowHandle window);

// `elevated` tells whether this process is: an elevated one refuses the messages of others that it
// didn't allow (kErrorAccessDenied).
Status PostToForeignWindow(const Message& message, bool elevated);

}  // namespace korvane::platform
