#include "launch/window_theme.h"

#include <cstdint>

#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr wchar_t kThemeKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize";
constexpr wchar_t kThemeValue[] = L"AppsUseLightTheme";

// The first build with function 135. It took another meaning at 18362 and is called alike on both.
constexpr std::uint32_t kFirstDarkModeBuild = 17763;
constexpr std::int32_t kAllowDark = 1;

struct DarkModeLibrary {
  platform::ThemeFunction flush_menus = nullptr;
  platform::ThemeFunction refresh_color_policy = nullptr;
};

DarkModeLibrary OpenDarkModeLibrary() {
  DarkModeLibrary library;
  if (!os().appearance->LoadThemeLibrary()) {
    return library;
  }
  library.flush_menus = os().appearance->FindThemeFunction(platform::kThemeFlushMenus);
  library.refresh_color_policy =
      os().appearance->FindThemeFunction(platform::kThemeRefreshColorPolicy);
  const auto build = os().appearance->SystemBuild();
  if (build && *build >= kFirstDarkModeBuild) {
    const platform::ThemeFunction allow_dark =
        os().appearance->FindThemeFunction(platform::kThemeAllowDarkMode);
    if (allow_dark != nullptr) {
      os().appearance->CallTheme(allow_dark, kAllowDark);
    }
  }
  return library;
}

const DarkModeLibrary& TheDarkModeLibrary() {
  static const DarkModeLibrary library = OpenDarkModeLibrary();
  return library;
}

}  // namespace

void UpdateTheme(platform::WindowHandle window) {
  const auto light =
      os().registry->ReadDword(platform::RegistryHive::kCurrentUser, kThemeKey, kThemeValue);
  if (light) {
    os().appearance->SetDarkTitleBar(window, light.value() == 0);
  }
}

void LoadDarkModeLibrary() { static_cast<void>(TheDarkModeLibrary()); }

void RefreshDarkMode() {
  const DarkModeLibrary& library = TheDarkModeLibrary();
  if (library.refresh_color_policy != nullptr) {
    os().appearance->CallTheme(library.refresh_color_policy);
  }
  if (library.flush_menus != nullptr) {
    os().appearance->CallTheme(library.flush_menus);
  }
}

}  // namespace korvane
