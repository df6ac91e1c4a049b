// appearance.h: the user's theme and the display's density, as far as the system offers them.
//
// Most of this is looked up at run time, since older systems lack it or give it no name: the caller
// decides what is used at which build, and what an absence means. Linux has no theme and no
// scaling: the theme library is absent, every density is 96.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/window_system.h"

namespace korvane::platform {

// Ordinals of the theme library's unnamed functions.
inline constexpr std::uint16_t kThemeRefreshColorPolicy = 104;
inline constexpr std::uint16_t kThemeAllowDarkMode = 135;
inline constexpr std::uint16_t kThemeFlushMenus = 136;

// A function of the theme library, or of user32; null is none. Valid for the life of the process.
using ThemeFunction = void*;
using DensityFunction = void*;
using UserModule = void*;

class Appearance {
 public:
  virtual ~Appearance() = default;

  // LoadLibraryExW("uxtheme.dll", nullptr, 0x800 = System32 only); the module is never unloaded.
  // Whether it is there; a second call asks again. Any thread.
  virtual bool LoadThemeLibrary() = 0;
  // GetProcAddress by ordinal. Null when the library has no such entry, or was not loaded. The
  // number alone names a function: what stands there on a system that uses it otherwise is called
  // all the same.
  virtual ThemeFunction FindThemeFunction(std::uint16_t ordinal) = 0;
  // Calls an entry that takes nothing (104, 136), and one that takes a number (135).
  virtual void CallTheme(ThemeFunction function) = 0;
  virtual void CallTheme(ThemeFunction function, std::int32_t argument) = 0;

  // RtlGetVersion of "ntdll.dll" (GetModuleHandleW, GetProcAddress) with a zeroed record of 276
  // bytes that holds its size: the build number. Nothing when any of the steps failed. Linux:
  // nothing.
  virtual std::optional<std::uint32_t> SystemBuild() = 0;

  // DwmSetWindowAttribute(window, 20, BOOL, 4); the result is the HRESULT. Linux: S_OK.
  virtual std::int32_t SetDarkTitleBar(WindowHandle window, bool dark) = 0;

  // LoadLibraryA("User32.dll"), GetProcAddress("EnableNonClientDpiScaling"), the call if it is
  // there, FreeLibrary. A lack of any of them is nobody's business.
  virtual void EnableNonClientDpiScaling(WindowHandle window) = 0;

  // The density in its three steps, each of which may fail by itself: GetModuleHandleW
  // ("user32.dll"), GetProcAddress, and the call. Null is a failure; a density of 0 is the
  // function's own.
  virtual UserModule FindUserModule() = 0;
  // `name` is "GetDpiForWindow" or "GetDpiForSystem".
  virtual DensityFunction FindDensityFunction(UserModule module, const char* name) = 0;
  virtual std::uint32_t WindowDensity(DensityFunction function, WindowHandle window) = 0;
  virtual std::uint32_t SystemDensity(DensityFunction function) = 0;
};

}  // namespace korvane::platform
