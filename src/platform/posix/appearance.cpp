#include "platform/appearance.h"

#include <string_view>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr std::uint32_t kHeadlessDensity = 96;

std::uint32_t GetDpiForWindow(WindowHandle window) {
  return window != nullptr ? kHeadlessDensity : 0;
}
std::uint32_t GetDpiForSystem() { return kHeadlessDensity; }

class HeadlessAppearance : public Appearance {
 public:
  bool LoadThemeLibrary() override { return false; }
  ThemeFunction FindThemeFunction(std::uint16_t /*ordinal*/) override { return nullptr; }
  void CallTheme(ThemeFunction /*function*/) override {}
  void CallTheme(ThemeFunction /*function*/, std::int32_t /*argument*/) override {}
  std::optional<std::uint32_t> SystemBuild() override { return std::nullopt; }
  std::int32_t SetDarkTitleBar(WindowHandle /*window*/, bool /*dark*/) override { return 0; }
  void EnableNonClientDpiScaling(WindowHandle /*window*/) override {}

  // Any value but null: there is one module, and its functions are in this file.
  UserModule FindUserModule() override { return this; }

  DensityFunction FindDensityFunction(UserModule /*module*/, const char* name) override {
    const std::string_view wanted = name;
    if (wanted == "GetDpiForWindow") {
      return reinterpret_cast<DensityFunction>(&GetDpiForWindow);
    }
    if (wanted == "GetDpiForSystem") {
      return reinterpret_cast<DensityFunction>(&GetDpiForSystem);
    }
    return nullptr;
  }

  std::uint32_t WindowDensity(DensityFunction function, WindowHandle window) override {
    return reinterpret_cast<decltype(&GetDpiForWindow)>(function)(window);
  }

  std::uint32_t SystemDensity(DensityFunction function) override {
    return reinterpret_cast<decltype(&GetDpiForSystem)>(function)();
  }
};

}  // namespace

Appearance& RealAppearance() {
  static NoDestructor<HeadlessAppearance> appearance;
  return *appearance;
}

}  // namespace korvane::platform
