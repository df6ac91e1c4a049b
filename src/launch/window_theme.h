// window_theme.h: the title bar follows the user's light or dark setting.
//
// The system offers this through a library whose functions have numbers instead of names and may be
// missing; without them, or without the setting, a title bar stays as it is. On the window's
// thread.
#pragma once

#include "platform/window_system.h"

namespace korvane {

// Gives the title bar the colour that the user's setting asks for; changes nothing when there is no
// such setting.
void UpdateTheme(platform::WindowHandle window);

// Lets the process use dark menus and title bars, where the system can. Once per process; further
// calls do nothing.
void LoadDarkModeLibrary();

// Makes the library take up a changed setting, as far as it has functions for that.
void RefreshDarkMode();

}  // namespace korvane
