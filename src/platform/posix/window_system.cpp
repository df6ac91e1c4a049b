#include "platform/window_system.h"

#include <unistd.h>

#include "platform/no_destructor.h"
#include "platform/os.h"
#include "platform/posix/foreign_windows.h"
#include "platform/posix/headless_desktop.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr MessageResult kYes = 1;

HeadlessDesktop& Desktop() { return HeadlessDesktop::Instance(); }

WindowRegistry& Windows() { return HeadlessDesktop::Instance().registry(); }

bool IsForeign(WindowHandle window) {
  return window != nullptr && ProcessOfHandle(window) != static_cast<std::uint32_t>(getpid());
}

Status FoundOrInvalid(bool found) {
  return found ? Status::Ok() : Status::Fail(kErrorInvalidWindow);
}

class HeadlessWindowSystem : public WindowSystem {
 public:
  Status RegisterWindowClass(const WindowClass& window_class) override {
    return Windows().AddClass(window_class.name, window_class.procedure);
  }

  Status UnregisterWindowClass(const std::wstring& name) override {
    return Windows().RemoveClass(name);
  }

  Result<WindowHandle> Create(const WindowCreation& creation) override {
    return Desktop().Create(creation);
  }

  void* CreationParameter(MessageData data) override {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): what the message carries
    return reinterpret_cast<const HeadlessCreation*>(data)->parameter;
  }

  Status Destroy(WindowHandle window) override {
    return IsForeign(window) ? Status::Fail(kErrorAccessDenied) : Desktop().Destroy(window);
  }

  MessageResult DefaultProcedure(WindowHandle window, std::uint32_t message,
                                 MessageParameter /*parameter*/, MessageData /*data*/) override {
    switch (message) {
      case kWmNcCreate:
      case kWmQueryEndSession:
        return kYes;
      case kWmClose:
        static_cast<void>(Destroy(window));
        return 0;
      default:
        return 0;
    }
  }

  void SetUserData(WindowHandle window, void* data) override {
    Windows().With(window, [data](HeadlessWindow& target) { target.user_data = data; });
  }

  void* UserData(WindowHandle window) override {
    void* data = nullptr;
    Windows().With(window, [&data](const HeadlessWindow& target) { data = target.user_data; });
    return data;
  }

  Status SetWindowProperty(WindowHandle window, const std::wstring& name,
                           std::uintptr_t value) override {
    if (name.empty() || name.size() > kWindowNameLimit) {
      return Status::Fail(kErrorInvalidParameter);
    }
    if (IsForeign(window)) {
      return Status::Fail(kErrorAccessDenied);
    }
    return FoundOrInvalid(
        Windows().With(window, [&](HeadlessWindow& target) { target.properties[name] = value; }));
  }

  void RemoveWindowProperty(WindowHandle window, const std::wstring& name) override {
    Windows().With(window, [&name](HeadlessWindow& target) { target.properties.erase(name); });
  }

  std::uintptr_t WindowProperty(WindowHandle window, const std::wstring& name) override {
    return IsForeign(window) ? ForeignWindowProperty(window, name)
                             : Windows().PropertyOf(window, name).value_or(0);
  }

  Status AllowMessage(WindowHandle window, std::uint32_t message) override {
    return FoundOrInvalid(Windows().With(
        window, [message](HeadlessWindow& target) { target.allowed_messages.insert(message); }));
  }

  Rectangle ClientRectangle(WindowHandle window) override {
    Rectangle client;
    Windows().With(window, [&client](const HeadlessWindow& target) {
      const WindowSize size = SizeOf(target.area);
      client = {.left = 0, .top = 0, .right = size.width, .bottom = size.height};
    });
    return client;
  }

  void Move(WindowHandle window, const Rectangle& area) override {
    static_cast<void>(Desktop().Place(window, area));
  }

  void Place(WindowHandle window, std::int32_t x, std::int32_t y, std::int32_t width,
             std::int32_t height) override {
    static_cast<void>(Desktop().Place(window, AreaOf(x, y, width, height)));
  }

  void SetParent(WindowHandle child, WindowHandle parent) override {
    static_cast<void>(Windows().SetParent(child, parent));
  }

  void SetFocus(WindowHandle /*window*/) override {}

  void Show(WindowHandle window, int command) override {
    static_cast<void>(IsForeign(window) ? ShowForeignWindow(window, command)
                                        : Desktop().Show(window, command));
  }

  bool SetForeground(WindowHandle window) override {
    return IsForeign(window) ? SetForeignForeground(window).ok()
                             : Desktop().SetForeground(window).ok();
  }

  // One display, of which nothing can be asked but that it is there.
  void* MonitorAt(std::int32_t /*x*/, std::int32_t /*y*/) override { return this; }

  Status Post(WindowHandle window, std::uint32_t message, MessageParameter parameter,
              MessageData data) override {
    const Message posted = {
        .window = window, .number = message, .parameter = parameter, .data = data};
    return IsForeign(window) ? PostToForeignWindow(posted, RealElevation().IsAdministrator())
                             : Desktop().Post(posted);
  }

  void PostQuit(int exit_code) override { MessageQueue::OfThisThread()->PostQuit(exit_code); }

  int Next(Message& message) override { return MessageQueue::OfThisThread()->Next(message); }

  void Dispatch(const Message& message) override { Desktop().Dispatch(message); }

  WindowHandle Find(const std::wstring& window_class, const std::wstring& title) override {
    const WindowHandle own = Desktop().Find(window_class, title);
    return own != nullptr ? own : FindForeignWindow(window_class, title);
  }

  std::uint32_t OwnerProcess(WindowHandle window) override {
    const bool exists =
        IsForeign(window) ? ForeignWindowExists(window) : Windows().Contains(window);
    return exists ? ProcessOfHandle(window) : 0;
  }

  bool AllowForeground(std::uint32_t /*process_id*/) override { return true; }

  int ShowMessageBox(const std::wstring& text, const std::wstring& caption,
                     std::uint32_t /*flags*/) override {
    WriteErrorLine(caption + L": " + text);
    return 1;
  }

  Status RegisterSessionNotification(WindowHandle window) override {
    return FoundOrInvalid(Windows().Contains(window));
  }

  Status UnregisterSessionNotification(WindowHandle window) override {
    return FoundOrInvalid(Windows().Contains(window));
  }

  bool RemoteSession() override { return false; }
  std::int32_t DisplayCount() override { return 1; }
};

}  // namespace

WindowSystem& RealWindowSystem() {
  static NoDestructor<HeadlessWindowSystem> windows;
  return *windows;
}

}  // namespace korvane::platform
