#include "platform/window_system.h"

#include <windows.h>

#include <wtsapi32.h>

#include <exception>
#include <map>
#include <utility>

#include "platform/mutex.h"
#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr int kProcedureSlot = 0;  // in a window's extra bytes: its procedure, once it is known
constexpr UINT kPlaceFlags = SWP_NOZORDER | SWP_NOACTIVATE;

HWND Native(WindowHandle window) { return static_cast<HWND>(window); }

ErrorCode LastError() { return GetLastError(); }

Status StatusOf(BOOL succeeded) { return succeeded ? Status::Ok() : Status::Fail(LastError()); }

// The procedures of this module's classes, by class atom. A window looks its own up once.
class ClassProcedures {
 public:
  void Add(ATOM window_class, WindowProcedure procedure) KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    procedures_[window_class] = procedure;
  }

  WindowProcedure Find(ATOM window_class) KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    const auto found = procedures_.find(window_class);
    return found == procedures_.end() ? nullptr : found->second;
  }

 private:
  Mutex mutex_;
  std::map<ATOM, WindowProcedure> procedures_ KORVANE_GUARDED_BY(mutex_);
};

ClassProcedures& Procedures() {
  static NoDestructor<ClassProcedures> procedures;
  return *procedures;
}

// An exception must not unwind through the system's own frames: depending on version and frame it
// is swallowed there, or ends the process. It is held here while the system returns, and thrown on
// by the call of ours that went into the system. The first one is kept.
thread_local std::exception_ptr held_exception;

void ThrowHeld() {
  if (held_exception != nullptr) {
    std::rethrow_exception(std::exchange(held_exception, nullptr));
  }
}

template <typename Value>
Value ThrowHeldElse(Value value) {
  ThrowHeld();
  return value;
}

WindowProcedure ProcedureOf(HWND window) {
  const LONG_PTR known = GetWindowLongPtrW(window, kProcedureSlot);
  if (known != 0) {
    return reinterpret_cast<WindowProcedure>(known);
  }
  const auto window_class = static_cast<ATOM>(GetClassLongPtrW(window, GCW_ATOM));
  const WindowProcedure procedure = Procedures().Find(window_class);
  SetWindowLongPtrW(window, kProcedureSlot, reinterpret_cast<LONG_PTR>(procedure));
  return procedure;
}

LRESULT CALLBACK CallProcedure(HWND window, UINT message, WPARAM parameter, LPARAM data) {
  try {
    const WindowProcedure procedure = ProcedureOf(window);
    return procedure != nullptr ? procedure(window, message, parameter, data)
                                : DefWindowProcW(window, message, parameter, data);
  } catch (...) {  // thrown on by ThrowHeld
    if (held_exception == nullptr) {
      held_exception = std::current_exception();
    }
    return 0;
  }
}

class WindowsWindowSystem : public WindowSystem {
 public:
  Status RegisterWindowClass(const WindowClass& window_class) override {
    const HINSTANCE module = GetModuleHandleW(nullptr);
    WNDCLASSW record{};
    record.style = window_class.style;
    record.lpfnWndProc = &CallProcedure;
    record.cbWndExtra = sizeof(LONG_PTR);
    record.hInstance = module;
    record.hIcon = LoadIconW(module, MAKEINTRESOURCEW(window_class.icon_resource));
    record.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    record.lpszClassName = window_class.name.c_str();
    const ATOM atom = RegisterClassW(&record);
    if (atom == 0) {
      return Status::Fail(LastError());
    }
    Procedures().Add(atom, window_class.procedure);
    return Status::Ok();
  }

  Status UnregisterWindowClass(const std::wstring& name) override {
    return StatusOf(UnregisterClassW(name.c_str(), GetModuleHandleW(nullptr)));
  }

  Result<WindowHandle> Create(const WindowCreation& creation) override {
    const HWND window =
        CreateWindowExW(0, creation.window_class.c_str(), creation.title.c_str(), creation.style,
                        creation.x, creation.y, creation.width, creation.height, nullptr, nullptr,
                        GetModuleHandleW(nullptr), creation.parameter);
    const ErrorCode error = LastError();
    ThrowHeld();
    if (window == nullptr) {
      return Result<WindowHandle>::Fail(error);
    }
    return WindowHandle{window};
  }

  void* CreationParameter(MessageData data) override {
    return reinterpret_cast<const CREATESTRUCTW*>(data)->lpCreateParams;
  }

  Status Destroy(WindowHandle window) override {
    return ThrowHeldElse(StatusOf(DestroyWindow(Native(window))));
  }

  MessageResult DefaultProcedure(WindowHandle window, std::uint32_t message,
                                 MessageParameter parameter, MessageData data) override {
    return ThrowHeldElse(DefWindowProcW(Native(window), message, parameter, data));
  }

  void SetUserData(WindowHandle window, void* data) override {
    SetWindowLongPtrW(Native(window), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(data));
  }

  void* UserData(WindowHandle window) override {
    return reinterpret_cast<void*>(GetWindowLongPtrW(Native(window), GWLP_USERDATA));
  }

  Status SetWindowProperty(WindowHandle window, const std::wstring& name,
                           std::uintptr_t value) override {
    return StatusOf(SetPropW(Native(window), name.c_str(), reinterpret_cast<HANDLE>(value)));
  }

  void RemoveWindowProperty(WindowHandle window, const std::wstring& name) override {
    RemovePropW(Native(window), name.c_str());
  }

  std::uintptr_t WindowProperty(WindowHandle window, const std::wstring& name) override {
    return reinterpret_cast<std::uintptr_t>(GetPropW(Native(window), name.c_str()));
  }

  Status AllowMessage(WindowHandle window, std::uint32_t message) override {
    return StatusOf(ChangeWindowMessageFilterEx(Native(window), message, MSGFLT_ALLOW, nullptr));
  }

  Rectangle ClientRectangle(WindowHandle window) override {
    RECT area{};
    GetClientRect(Native(window), &area);
    return {.left = area.left, .top = area.top, .right = area.right, .bottom = area.bottom};
  }

  void Move(WindowHandle window, const Rectangle& area) override {
    MoveWindow(Native(window), area.left, area.top, area.right - area.left, area.bottom - area.top,
               TRUE);
    ThrowHeld();
  }

  void Place(WindowHandle window, std::int32_t x, std::int32_t y, std::int32_t width,
             std::int32_t height) override {
    SetWindowPos(Native(window), nullptr, x, y, width, height, kPlaceFlags);
    ThrowHeld();
  }

  void SetParent(WindowHandle child, WindowHandle parent) override {
    ::SetParent(Native(child), Native(parent));
    ThrowHeld();
  }

  void SetFocus(WindowHandle window) override {
    ::SetFocus(Native(window));
    ThrowHeld();
  }

  void Show(WindowHandle window, int command) override {
    ShowWindow(Native(window), command);
    ThrowHeld();
  }

  bool SetForeground(WindowHandle window) override {
    return ThrowHeldElse(SetForegroundWindow(Native(window)) != FALSE);
  }

  void* MonitorAt(std::int32_t x, std::int32_t y) override {
    return MonitorFromPoint({x, y}, MONITOR_DEFAULTTONEAREST);
  }

  Status Post(WindowHandle window, std::uint32_t message, MessageParameter parameter,
              MessageData data) override {
    return StatusOf(PostMessageW(Native(window), message, parameter, data));
  }

  void PostQuit(int exit_code) override { PostQuitMessage(exit_code); }

  int Next(Message& message) override {
    MSG native{};
    const int result = GetMessageW(&native, nullptr, 0, 0);
    ThrowHeld();
    message = {.window = native.hwnd,
               .number = native.message,
               .parameter = native.wParam,
               .data = native.lParam,
               .time = native.time,
               .x = native.pt.x,
               .y = native.pt.y};
    return result;
  }

  void Dispatch(const Message& message) override {
    const MSG native = {.hwnd = Native(message.window),
                        .message = message.number,
                        .wParam = message.parameter,
                        .lParam = message.data,
                        .time = message.time,
                        .pt = {message.x, message.y}};
    TranslateMessage(&native);
    DispatchMessageW(&native);
    ThrowHeld();
  }

  WindowHandle Find(const std::wstring& window_class, const std::wstring& title) override {
    return FindWindowW(window_class.c_str(), title.c_str());
  }

  std::uint32_t OwnerProcess(WindowHandle window) override {
    DWORD process = 0;
    return GetWindowThreadProcessId(Native(window), &process) == 0 ? 0 : process;
  }

  bool AllowForeground(std::uint32_t process_id) override {
    return AllowSetForegroundWindow(process_id) != FALSE;
  }

  int ShowMessageBox(const std::wstring& text, const std::wstring& caption,
                     std::uint32_t flags) override {
    return ThrowHeldElse(MessageBoxW(nullptr, text.c_str(), caption.c_str(), flags));
  }

  Status RegisterSessionNotification(WindowHandle window) override {
    return StatusOf(WTSRegisterSessionNotification(Native(window), NOTIFY_FOR_THIS_SESSION));
  }

  Status UnregisterSessionNotification(WindowHandle window) override {
    return StatusOf(WTSUnRegisterSessionNotification(Native(window)));
  }

  bool RemoteSession() override { return GetSystemMetrics(SM_REMOTESESSION) != 0; }
  std::int32_t DisplayCount() override { return GetSystemMetrics(SM_CMONITORS); }
};

}  // namespace

WindowSystem& RealWindowSystem() {
  static NoDestructor<WindowsWindowSystem> windows;
  return *windows;
}

}  // namespace korvane::platform
