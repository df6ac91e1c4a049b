// win32_window.h: the base of the application's window.
//
// Registers the window class, makes a top-level window scaled to its monitor, follows the user's
// light or dark setting in the title bar, keeps one child window over the client area, and hands
// every message to a virtual handler. Knows neither the tunnel nor the engine.
//
// A window is made hidden; showing it is the derived class's decision. Everything runs on the
// thread that called Create. An object outlives its native window: after kWmDestroy it has no
// handle and may Create another.
#pragma once

#include <cstdint>
#include <string>

#include "platform/window_system.h"

namespace korvane {

// In logical units, of 1/96 inch on the monitor that the window opens on.
struct WindowOrigin {
  std::int32_t x = 0;
  std::int32_t y = 0;
};
struct WindowSize {
  std::int32_t width = 0;
  std::int32_t height = 0;
};

class Win32Window {
 public:
  Win32Window();
  // Destroys the native window. By then the derived part is gone: its OnDestroy and MessageHandler
  // aren't reached from here.
  virtual ~Win32Window();
  Win32Window(const Win32Window&) = delete;
  Win32Window& operator=(const Win32Window&) = delete;

  // Makes the native window, hidden, after destroying a former one. False when the system gave no
  // window or OnCreate refused.
  bool Create(const std::wstring& title, WindowOrigin origin, WindowSize size);

  void Show();

  // Calls OnDestroy, then destroys the native window if there is one (which calls it again). The
  // class goes with the last object of this kind.
  void Destroy();

  // Puts the window into this one, over its whole client area, and gives it the focus.
  void SetChildContent(platform::WindowHandle content);

  platform::WindowHandle GetHandle() const { return window_handle_; }
  platform::Rectangle GetClientArea() const;

  // Whether the message loop ends when the native window is destroyed. It doesn't by default.
  void SetQuitOnClose(bool quit_on_close) { quit_on_close_ = quit_on_close; }

 protected:
  // Every message of the native window but its first; kWmDestroy finds the handle still set.
  virtual platform::MessageResult MessageHandler(platform::WindowHandle window,
                                                 std::uint32_t message,
                                                 platform::MessageParameter parameter,
                                                 platform::MessageData data);
  // Called when the native window exists; false makes Create fail.
  virtual bool OnCreate();
  // May be called when there is no native window, and twice for one.
  virtual void OnDestroy();

 private:
  static platform::MessageResult Procedure(platform::WindowHandle window, std::uint32_t message,
                                           platform::MessageParameter parameter,
                                           platform::MessageData data);
  static platform::MessageResult BeginWindow(platform::WindowHandle window,
                                             platform::MessageParameter parameter,
                                             platform::MessageData data);
  platform::MessageResult HandleSettingChange(platform::WindowHandle window,
                                              platform::MessageParameter parameter,
                                              platform::MessageData data);
  static void TakeSuggestedArea(platform::WindowHandle window, platform::MessageData data);
  void FitChildContent();

  bool quit_on_close_ = false;
  platform::WindowHandle window_handle_ = nullptr;
  platform::WindowHandle child_content_ = nullptr;
};

}  // namespace korvane
