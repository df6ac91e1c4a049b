#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

namespace {

constexpr std::int32_t kFailedHresult = -2147467259;  // E_FAIL

class CountingWindowSystem final : public Counted<WindowSystem> {
 public:
  using Counted::Counted;

  Status RegisterWindowClass(const WindowClass& window_class) override {
    return Make(Effect::kLooks, "WindowSystem.RegisterWindowClass",
                &WindowSystem::RegisterWindowClass, window_class);
  }
  Status UnregisterWindowClass(const std::wstring& name) override {
    return Make(Effect::kLooks, "WindowSystem.UnregisterWindowClass",
                &WindowSystem::UnregisterWindowClass, name);
  }
  Result<WindowHandle> Create(const WindowCreation& creation) override {
    return Make(Effect::kChanges, "WindowSystem.Create", &WindowSystem::Create, creation);
  }
  void* CreationParameter(MessageData data) override {
    return Make(Effect::kLooks, "WindowSystem.CreationParameter", &WindowSystem::CreationParameter,
                data);
  }
  Status Destroy(WindowHandle window) override {
    return Make(Effect::kChanges, "WindowSystem.Destroy", &WindowSystem::Destroy, window);
  }
  MessageResult DefaultProcedure(WindowHandle window, std::uint32_t message,
                                 MessageParameter parameter, MessageData data) override {
    return Make(Effect::kLooks, "WindowSystem.DefaultProcedure", &WindowSystem::DefaultProcedure,
                window, message, parameter, data);
  }
  void SetUserData(WindowHandle window, void* data) override {
    Make(Effect::kLooks, "WindowSystem.SetUserData", &WindowSystem::SetUserData, window, data);
  }
  void* UserData(WindowHandle window) override {
    return Make(Effect::kLooks, "WindowSystem.UserData", &WindowSystem::UserData, window);
  }
  Status SetWindowProperty(WindowHandle window, const std::wstring& name,
                           std::uintptr_t value) override {
    return Make(Effect::kChanges, "WindowSystem.SetWindowProperty",
                &WindowSystem::SetWindowProperty, window, name, value);
  }
  void RemoveWindowProperty(WindowHandle window, const std::wstring& name) override {
    Make(Effect::kChanges, "WindowSystem.RemoveWindowProperty", &WindowSystem::RemoveWindowProperty,
         window, name);
  }
  std::uintptr_t WindowProperty(WindowHandle window, const std::wstring& name) override {
    return Make(Effect::kLooks, "WindowSystem.WindowProperty", &WindowSystem::WindowProperty,
                window, name);
  }
  Status AllowMessage(WindowHandle window, std::uint32_t message) override {
    return Make(Effect::kLooks, "WindowSystem.AllowMessage", &WindowSystem::AllowMessage, window,
                message);
  }
  Rectangle ClientRectangle(WindowHandle window) override {
    return Make(Effect::kLooks, "WindowSystem.ClientRectangle", &WindowSystem::ClientRectangle,
                window);
  }
  void Move(WindowHandle window, const Rectangle& area) override {
    Make(Effect::kLooks, "WindowSystem.Move", &WindowSystem::Move, window, area);
  }
  void Place(WindowHandle window, std::int32_t x, std::int32_t y, std::int32_t width,
             std::int32_t height) override {
    Make(Effect::kLooks, "WindowSystem.Place", &WindowSystem::Place, window, x, y, width, height);
  }
  void SetParent(WindowHandle child, WindowHandle parent) override {
    Make(Effect::kLooks, "WindowSystem.SetParent", &WindowSystem::SetParent, child, parent);
  }
  void SetFocus(WindowHandle window) override {
    Make(Effect::kLooks, "WindowSystem.SetFocus", &WindowSystem::SetFocus, window);
  }
  void Show(WindowHandle window, int command) override {
    Make(Effect::kChanges, "WindowSystem.Show", &WindowSystem::Show, window, command);
  }
  bool SetForeground(WindowHandle window) override {
    return MakeOr(false, Effect::kChanges, "WindowSystem.SetForeground",
                  &WindowSystem::SetForeground, window);
  }
  void* MonitorAt(std::int32_t x, std::int32_t y) override {
    return Make(Effect::kLooks, "WindowSystem.MonitorAt", &WindowSystem::MonitorAt, x, y);
  }
  Status Post(WindowHandle window, std::uint32_t message, MessageParameter parameter,
              MessageData data) override {
    return Make(Effect::kChanges, "WindowSystem.Post", &WindowSystem::Post, window, message,
                parameter, data);
  }
  void PostQuit(int exit_code) override {
    Make(Effect::kLooks, "WindowSystem.PostQuit", &WindowSystem::PostQuit, exit_code);
  }
  int Next(Message& message) override {
    return Make(Effect::kLooks, "WindowSystem.Next", &WindowSystem::Next, message);
  }
  void Dispatch(const Message& message) override {
    Make(Effect::kLooks, "WindowSystem.Dispatch", &WindowSystem::Dispatch, message);
  }
  WindowHandle Find(const std::wstring& window_class, const std::wstring& title) override {
    return MakeOr(WindowHandle{nullptr}, Effect::kLooks, "WindowSystem.Find", &WindowSystem::Find,
                  window_class, title);
  }
  std::uint32_t OwnerProcess(WindowHandle window) override {
    return MakeOr(std::uint32_t{0}, Effect::kLooks, "WindowSystem.OwnerProcess",
                  &WindowSystem::OwnerProcess, window);
  }
  bool AllowForeground(std::uint32_t process_id) override {
    return MakeOr(false, Effect::kLooks, "WindowSystem.AllowForeground",
                  &WindowSystem::AllowForeground, process_id);
  }
  int ShowMessageBox(const std::wstring& text, const std::wstring& caption,
                     std::uint32_t flags) override {
    return Make(Effect::kChanges, "WindowSystem.ShowMessageBox", &WindowSystem::ShowMessageBox,
                text, caption, flags);
  }
  Status RegisterSessionNotification(WindowHandle window) override {
    return Make(Effect::kLooks, "WindowSystem.RegisterSessionNotification",
                &WindowSystem::RegisterSessionNotification, window);
  }
  Status UnregisterSessionNotification(WindowHandle window) override {
    return Make(Effect::kLooks, "WindowSystem.UnregisterSessionNotification",
                &WindowSystem::UnregisterSessionNotification, window);
  }
  bool RemoteSession() override {
    return Make(Effect::kLooks, "WindowSystem.RemoteSession", &WindowSystem::RemoteSession);
  }
  std::int32_t DisplayCount() override {
    return Make(Effect::kLooks, "WindowSystem.DisplayCount", &WindowSystem::DisplayCount);
  }
};

class CountingAppearance final : public Counted<Appearance> {
 public:
  using Counted::Counted;

  bool LoadThemeLibrary() override {
    return MakeOr(false, Effect::kLooks, "Appearance.LoadThemeLibrary",
                  &Appearance::LoadThemeLibrary);
  }
  ThemeFunction FindThemeFunction(std::uint16_t ordinal) override {
    return MakeOr(ThemeFunction{nullptr}, Effect::kLooks, "Appearance.FindThemeFunction",
                  &Appearance::FindThemeFunction, ordinal);
  }
  void CallTheme(ThemeFunction function) override {
    Make(Effect::kLooks, "Appearance.CallTheme",
         static_cast<void (Appearance::*)(ThemeFunction)>(&Appearance::CallTheme), function);
  }
  void CallTheme(ThemeFunction function, std::int32_t argument) override {
    Make(Effect::kLooks, "Appearance.CallTheme",
         static_cast<void (Appearance::*)(ThemeFunction, std::int32_t)>(&Appearance::CallTheme),
         function, argument);
  }
  std::optional<std::uint32_t> SystemBuild() override {
    return Make(Effect::kLooks, "Appearance.SystemBuild", &Appearance::SystemBuild);
  }
  std::int32_t SetDarkTitleBar(WindowHandle window, bool dark) override {
    return MakeOr(kFailedHresult, Effect::kLooks, "Appearance.SetDarkTitleBar",
                  &Appearance::SetDarkTitleBar, window, dark);
  }
  void EnableNonClientDpiScaling(WindowHandle window) override {
    Make(Effect::kLooks, "Appearance.EnableNonClientDpiScaling",
         &Appearance::EnableNonClientDpiScaling, window);
  }
  UserModule FindUserModule() override {
    return MakeOr(UserModule{nullptr}, Effect::kLooks, "Appearance.FindUserModule",
                  &Appearance::FindUserModule);
  }
  DensityFunction FindDensityFunction(UserModule module, const char* name) override {
    return MakeOr(DensityFunction{nullptr}, Effect::kLooks, "Appearance.FindDensityFunction",
                  &Appearance::FindDensityFunction, module, name);
  }
  std::uint32_t WindowDensity(DensityFunction function, WindowHandle window) override {
    return Make(Effect::kLooks, "Appearance.WindowDensity", &Appearance::WindowDensity, function,
                window);
  }
  std::uint32_t SystemDensity(DensityFunction function) override {
    return Make(Effect::kLooks, "Appearance.SystemDensity", &Appearance::SystemDensity, function);
  }
};

}  // namespace

std::unique_ptr<WindowSystem> Count(WindowSystem& inner, OperationCounter& counter) {
  return std::make_unique<CountingWindowSystem>(inner, counter);
}

std::unique_ptr<Appearance> Count(Appearance& inner, OperationCounter& counter) {
  return std::make_unique<CountingAppearance>(inner, counter);
}

}  // namespace korvane::test
