#include "launch/win32_window.h"

#include <cwchar>

#include "flutter_boundary/flutter_windows_abi.h"
#include "launch/window_messages.h"
#include "launch/window_theme.h"
#include "platform/os.h"
#include "recorder/startup_recorder.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::uint32_t kRedrawOnResize = 3;           // CS_HREDRAW | CS_VREDRAW
constexpr std::uint32_t kOverlappedWindow = 0xCF0000;  // without WS_VISIBLE
constexpr int kIconResource = 101;
constexpr double kBaseDpi = 96.0;
constexpr wchar_t kColorSetChanged[] = L"ImmersiveColorSet";

int active_window_count = 0;

// The window class, registered for as long as there are window objects.
class ClassRegistrar {
 public:
  // A refusal of the system shows up as the failure to make a window.
  void Register(platform::WindowProcedure procedure) {
    if (registered_) {
      return;
    }
    static_cast<void>(os().windows->RegisterWindowClass({.name = kWindowClass,
                                                         .style = kRedrawOnResize,
                                                         .icon_resource = kIconResource,
                                                         .procedure = procedure}));
    registered_ = true;
  }

  void Unregister() {
    static_cast<void>(os().windows->UnregisterWindowClass(kWindowClass));
    registered_ = false;
  }

 private:
  bool registered_ = false;
};

ClassRegistrar& Registrar() {
  static ClassRegistrar registrar;
  return registrar;
}

// Cut toward zero, not rounded.
std::int32_t Scale(std::int32_t value, double factor) {
  return static_cast<std::int32_t>(value * factor);
}

void RecordIfFailed(const platform::Status& status, const char* stage) {
  if (!status) {
    StartupRecorder::instance().Event(stage, {{"os_error", std::int64_t{status.error()}}});
  }
}

}  // namespace

Win32Window::Win32Window() { ++active_window_count; }

Win32Window::~Win32Window() {
  --active_window_count;
  Destroy();
}

bool Win32Window::Create(const std::wstring& title, WindowOrigin origin, WindowSize size) {
  Destroy();
  Registrar().Register(&Win32Window::Procedure);
  const double factor =
      FlutterDesktopGetDpiForMonitor(os().windows->MonitorAt(origin.x, origin.y)) / kBaseDpi;
  LoadDarkModeLibrary();
  const auto created = os().windows->Create({.window_class = kWindowClass,
                                             .title = title,
                                             .style = kOverlappedWindow,
                                             .x = Scale(origin.x, factor),
                                             .y = Scale(origin.y, factor),
                                             .width = Scale(size.width, factor),
                                             .height = Scale(size.height, factor),
                                             .parameter = this});
  if (!created) {
    return false;
  }
  UpdateTheme(created.value());
  return OnCreate();
}

void Win32Window::Show() { os().windows->Show(window_handle_, platform::kShowNormal); }

void Win32Window::Destroy() {
  // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall): the destructor means the base's
  OnDestroy();
  if (window_handle_ != nullptr) {
    static_cast<void>(os().windows->Destroy(window_handle_));
    window_handle_ = nullptr;
  }
  if (active_window_count == 0) {
    Registrar().Unregister();
  }
}

void Win32Window::SetChildContent(platform::WindowHandle content) {
  child_content_ = content;
  os().windows->SetParent(content, window_handle_);
  os().windows->Move(content, GetClientArea());
  os().windows->SetFocus(content);
}

platform::Rectangle Win32Window::GetClientArea() const {
  return os().windows->ClientRectangle(window_handle_);
}

platform::MessageResult Win32Window::Procedure(platform::WindowHandle window, std::uint32_t message,
                                               platform::MessageParameter parameter,
                                               platform::MessageData data) {
  if (message == platform::kWmNcCreate) {
    return BeginWindow(window, parameter, data);
  }
  auto* const self = static_cast<Win32Window*>(os().windows->UserData(window));
  if (self == nullptr) {
    return os().windows->DefaultProcedure(window, message, parameter, data);
  }
  if (message == platform::kWmDestroy) {
    os().windows->RemoveWindowProperty(window, kActivationProtocolProperty);
    os().windows->RemoveWindowProperty(window, kFirstRasterProperty);
  }
  return self->MessageHandler(window, message, parameter, data);
}

platform::MessageResult Win32Window::BeginWindow(platform::WindowHandle window,
                                                 platform::MessageParameter parameter,
                                                 platform::MessageData data) {
  RecordIfFailed(
      os().windows->SetWindowProperty(window, kActivationProtocolProperty, kPropertyValue),
      "activation_protocol_property_failed");
  // A second instance of lower integrity may reach an elevated window with this one message.
  RecordIfFailed(os().windows->AllowMessage(window, kWmAppActivateRequest),
                 "activation_message_filter_failed");
  StartupRecorder::instance().Event("win32_create");
  auto* const self = static_cast<Win32Window*>(os().windows->CreationParameter(data));
  os().windows->SetUserData(window, self);
  os().appearance->EnableNonClientDpiScaling(window);
  self->window_handle_ = window;
  return os().windows->DefaultProcedure(window, platform::kWmNcCreate, parameter, data);
}

platform::MessageResult Win32Window::MessageHandler(platform::WindowHandle window,
                                                    std::uint32_t message,
                                                    platform::MessageParameter parameter,
                                                    platform::MessageData data) {
  switch (message) {
    case platform::kWmDestroy:
      window_handle_ = nullptr;
      Destroy();
      if (quit_on_close_) {
        os().windows->PostQuit(0);
      }
      return 0;
    case platform::kWmSize:
      FitChildContent();
      return 0;
    case platform::kWmActivate:
      if (child_content_ != nullptr) {
        os().windows->SetFocus(child_content_);
      }
      return 0;
    case platform::kWmSettingChange:
      return HandleSettingChange(window, parameter, data);
    case platform::kWmDpiChanged:
      TakeSuggestedArea(window, data);
      return 0;
    case platform::kWmDwmColorizationColorChanged:
      UpdateTheme(window);
      return 0;
    default:
      return os().windows->DefaultProcedure(window, message, parameter, data);
  }
}

platform::MessageResult Win32Window::HandleSettingChange(platform::WindowHandle window,
                                                         platform::MessageParameter parameter,
                                                         platform::MessageData data) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): what the message carries
  const auto* const changed = reinterpret_cast<const wchar_t*>(data);
  if (changed == nullptr || std::wcscmp(changed, kColorSetChanged) != 0) {
    return os().windows->DefaultProcedure(window, platform::kWmSettingChange, parameter, data);
  }
  UpdateTheme(window);
  RefreshDarkMode();
  return 0;
}

void Win32Window::TakeSuggestedArea(platform::WindowHandle window, platform::MessageData data) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): what the message carries
  const auto* const area = reinterpret_cast<const platform::Rectangle*>(data);
  if (area != nullptr) {  // a message from outside may bring none
    os().windows->Place(window, area->left, area->top, area->right - area->left,
                        area->bottom - area->top);
  }
}

void Win32Window::FitChildContent() {
  const platform::Rectangle area = GetClientArea();
  if (child_content_ != nullptr) {
    os().windows->Move(child_content_, area);
  }
}

bool Win32Window::OnCreate() { return true; }

void Win32Window::OnDestroy() {}

}  // namespace korvane
