// window_system.h: windows, messages and properties, in the shape of user32.
//
// The window logic (launch/) is written once against this; the Win32 side passes each call through,
// and the headless Linux side gives the same behaviour without a display: a window is a message
// queue of its thread, reachable from other processes through a socket in the user's runtime
// folder, found by class and title, with properties that other processes can read. Threads: a
// window belongs to the thread that made it; Post, PropertyOf, Find and the calls about another
// process's window may be made anywhere.
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

namespace korvane::platform {

// A native window (HWND). Not owned; null is none.
using WindowHandle = void*;
using MessageParameter = std::uintptr_t;  // WPARAM
using MessageData = std::intptr_t;        // LPARAM
using MessageResult = std::intptr_t;      // LRESULT

// Numbers of the messages that the host knows. Fixed by the system; the private ones by this
// program.
inline constexpr std::uint32_t kWmDestroy = 0x0002;
inline constexpr std::uint32_t kWmSize = 0x0005;
inline constexpr std::uint32_t kWmActivate = 0x0006;
inline constexpr std::uint32_t kWmClose = 0x0010;
inline constexpr std::uint32_t kWmQueryEndSession = 0x0011;
inline constexpr std::uint32_t kWmQuit = 0x0012;
inline constexpr std::uint32_t kWmEndSession = 0x0016;
inline constexpr std::uint32_t kWmSettingChange = 0x001A;
inline constexpr std::uint32_t kWmFontChange = 0x001D;
inline constexpr std::uint32_t kWmDisplayChange = 0x007E;
inline constexpr std::uint32_t kWmNcCreate = 0x0081;
inline constexpr std::uint32_t kWmPowerBroadcast = 0x0218;
inline constexpr std::uint32_t kWmWtsSessionChange = 0x02B1;
inline constexpr std::uint32_t kWmDpiChanged = 0x02E0;
inline constexpr std::uint32_t kWmDwmColorizationColorChanged = 0x0320;
inline constexpr std::uint32_t kWmApp = 0x8000;

// Arguments of Show.
inline constexpr int kShowNormal = 1;
inline constexpr int kShowRestore = 9;

struct Message {
  WindowHandle window = nullptr;
  std::uint32_t number = 0;
  MessageParameter parameter = 0;
  MessageData data = 0;
  // The rest of the system's record, kept between Next and Dispatch.
  std::uint32_t time = 0;
  std::int32_t x = 0;
  std::int32_t y = 0;
};

struct Rectangle {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t right = 0;
  std::int32_t bottom = 0;
};

// A window procedure. May throw: C++ exceptions pass through the system's dispatch on the window's
// own thread.
using WindowProcedure = MessageResult (*)(WindowHandle window, std::uint32_t message,
                                          MessageParameter parameter, MessageData data);

struct WindowClass {
  std::wstring name;
  std::uint32_t style = 0;
  int icon_resource = 0;  // of this module; the cursor is the arrow, there is no brush and no menu
  WindowProcedure procedure = nullptr;
};

struct WindowCreation {
  std::wstring window_class;
  std::wstring title;
  std::uint32_t style = 0;
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  void* parameter = nullptr;  // handed to the procedure with kWmNcCreate (CreationParameter)
};

class WindowSystem {
 public:
  virtual ~WindowSystem() = default;

  // RegisterClassW, UnregisterClassW, for this module.
  virtual Status RegisterWindowClass(const WindowClass& window_class) = 0;
  virtual Status UnregisterWindowClass(const std::wstring& name) = 0;

  // CreateWindowExW without extended style, parent or menu. The procedure gets kWmNcCreate before
  // this returns. The window is not shown.
  virtual Result<WindowHandle> Create(const WindowCreation& creation) = 0;
  // The parameter of the creation, from the data of kWmNcCreate.
  virtual void* CreationParameter(MessageData data) = 0;
  // DestroyWindow: the procedure gets kWmDestroy before this returns.
  virtual Status Destroy(WindowHandle window) = 0;
  // DefWindowProcW. kWmClose destroys the window; kWmQueryEndSession answers 1.
  virtual MessageResult DefaultProcedure(WindowHandle window, std::uint32_t message,
                                         MessageParameter parameter, MessageData data) = 0;

  // One pointer of the program's own per window (GWLP_USERDATA, index -21).
  virtual void SetUserData(WindowHandle window, void* data) = 0;
  virtual void* UserData(WindowHandle window) = 0;

  // SetPropW, RemovePropW on an own window; GetPropW on any: 0 when absent.
  virtual Status SetWindowProperty(WindowHandle window, const std::wstring& name,
                                   std::uintptr_t value) = 0;
  virtual void RemoveWindowProperty(WindowHandle window, const std::wstring& name) = 0;
  virtual std::uintptr_t WindowProperty(WindowHandle window, const std::wstring& name) = 0;
  // ChangeWindowMessageFilterEx(window, message, MSGFLT_ALLOW = 1, nullptr).
  virtual Status AllowMessage(WindowHandle window, std::uint32_t message) = 0;

  virtual Rectangle ClientRectangle(WindowHandle window) = 0;
  // MoveWindow with repaint.
  virtual void Move(WindowHandle window, const Rectangle& area) = 0;
  // SetWindowPos with no insert-after and flags 0x14 (keep Z order, don't activate).
  virtual void Place(WindowHandle window, std::int32_t x, std::int32_t y, std::int32_t width,
                     std::int32_t height) = 0;
  virtual void SetParent(WindowHandle child, WindowHandle parent) = 0;
  virtual void SetFocus(WindowHandle window) = 0;
  // ShowWindow, on an own or a foreign window.
  virtual void Show(WindowHandle window, int command) = 0;
  virtual bool SetForeground(WindowHandle window) = 0;

  // MonitorFromPoint with flag 2 (nearest): an opaque monitor for FlutterDesktopGetDpiForMonitor.
  virtual void* MonitorAt(std::int32_t x, std::int32_t y) = 0;

  // PostMessageW: queues the message for the window's thread, from any thread or process.
  virtual Status Post(WindowHandle window, std::uint32_t message, MessageParameter parameter,
                      MessageData data) = 0;
  virtual void PostQuit(int exit_code) = 0;
  // GetMessageW(&message, nullptr, 0, 0): waits; 0 for kWmQuit, -1 for a failure, else not 0.
  virtual int Next(Message& message) = 0;
  // TranslateMessage, then DispatchMessageW.
  virtual void Dispatch(const Message& message) = 0;

  // FindWindowW: a top-level window of any process of this session.
  virtual WindowHandle Find(const std::wstring& window_class, const std::wstring& title) = 0;
  // GetWindowThreadProcessId; 0 is a failure.
  virtual std::uint32_t OwnerProcess(WindowHandle window) = 0;
  // AllowSetForegroundWindow.
  virtual bool AllowForeground(std::uint32_t process_id) = 0;
  // MessageBoxW with no owner; blocks until it is closed. Linux: writes the caption and the text to
  // the error stream and returns 1.
  virtual int ShowMessageBox(const std::wstring& text, const std::wstring& caption,
                             std::uint32_t flags) = 0;

  // WTSRegisterSessionNotification with flag 0, WTSUnRegisterSessionNotification.
  virtual Status RegisterSessionNotification(WindowHandle window) = 0;
  virtual Status UnregisterSessionNotification(WindowHandle window) = 0;

  // GetSystemMetrics(0x1000) non-zero; GetSystemMetrics(0x50).
  virtual bool RemoteSession() = 0;
  virtual std::int32_t DisplayCount() = 0;
};

}  // namespace korvane::platform
