#include "platform/appearance.h"

#include <windows.h>

#include <dwmapi.h>

#include <atomic>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr DWORD kDarkTitleBarAttribute = 20;
constexpr ULONG kVersionRecordSize = 276;
static_assert(sizeof(RTL_OSVERSIONINFOW) == kVersionRecordSize);

// The loader's function type says nothing about the real one; the detour through void* is what the
// compiler accepts for that.
template <typename Function>
Function As(FARPROC function) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(function));
}

class WindowsAppearance : public Appearance {
 public:
  bool LoadThemeLibrary() override {
    theme_library_ = LoadLibraryExW(L"uxtheme.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return theme_library_ != nullptr;
  }

  ThemeFunction FindThemeFunction(std::uint16_t ordinal) override {
    const HMODULE library = theme_library_;
    return library == nullptr
               ? nullptr
               : As<ThemeFunction>(GetProcAddress(library, MAKEINTRESOURCEA(ordinal)));
  }

  void CallTheme(ThemeFunction function) override { reinterpret_cast<void(WINAPI*)()>(function)(); }

  void CallTheme(ThemeFunction function, std::int32_t argument) override {
    reinterpret_cast<std::int32_t(WINAPI*)(std::int32_t)>(function)(argument);
  }

  std::optional<std::uint32_t> SystemBuild() override {
    using RtlGetVersionFunction = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    const auto query = ntdll == nullptr
                           ? nullptr
                           : As<RtlGetVersionFunction>(GetProcAddress(ntdll, "RtlGetVersion"));
    RTL_OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = kVersionRecordSize;
    if (query == nullptr || query(&version) < 0) {
      return std::nullopt;
    }
    return version.dwBuildNumber;
  }

  std::int32_t SetDarkTitleBar(WindowHandle window, bool dark) override {
    const BOOL value = dark ? TRUE : FALSE;
    return DwmSetWindowAttribute(static_cast<HWND>(window), kDarkTitleBarAttribute, &value,
                                 sizeof(value));
  }

  void EnableNonClientDpiScaling(WindowHandle window) override {
    const HMODULE user32 = LoadLibraryA("User32.dll");
    if (user32 == nullptr) {
      return;
    }
    const auto enable =
        As<BOOL(WINAPI*)(HWND)>(GetProcAddress(user32, "EnableNonClientDpiScaling"));
    if (enable != nullptr) {
      enable(static_cast<HWND>(window));
    }
    FreeLibrary(user32);
  }

  UserModule FindUserModule() override { return GetModuleHandleW(L"user32.dll"); }

  DensityFunction FindDensityFunction(UserModule module, const char* name) override {
    return As<DensityFunction>(GetProcAddress(static_cast<HMODULE>(module), name));
  }

  std::uint32_t WindowDensity(DensityFunction function, WindowHandle window) override {
    return reinterpret_cast<UINT(WINAPI*)(HWND)>(function)(static_cast<HWND>(window));
  }

  std::uint32_t SystemDensity(DensityFunction function) override {
    return reinterpret_cast<UINT(WINAPI*)()>(function)();
  }

 private:
  std::atomic<HMODULE> theme_library_{nullptr};
};

}  // namespace

Appearance& RealAppearance() {
  static NoDestructor<WindowsAppearance> appearance;
  return *appearance;
}

}  // namespace korvane::platform
