// headless_desktop.h: what happens to the windows of this process without a display.
//
// The behaviour behind both doors: WindowSystem for the host, and the C one for a library in the
// process. It does what user32 does where it matters here, and no more:
//
//   Create          kWmNcCreate; its answer 0 undoes the creation. Found by others only afterwards.
//   Show            kWmSize at the first time; with an activating command (1, 3, 5, 9, 10) then
//                   kWmActivate 1, unless it is its thread's active window, whose former one gets
//                   kWmActivate 0. A hidden or minimised window (0, 2, 6, 7, 11) is not active.
//   SetForeground   always granted; activates a visible window as Show does.
//   Place           kWmSize when the size changed (parameter 0; width and height are data's words).
//   Destroy         kWmDestroy to the window, then its children go; what was queued is dropped.
//
// A window's client area is the whole window. There is no focus, no Z order, no minimised size.
// What another thread or process wants of a window is queued and runs on the window's thread while
// that waits in MessageQueue::Next, so a procedure runs on its window's thread alone.
//
// A procedure of the host may throw: the operation is brought to its end all the same, and the
// first exception then leaves it (as on Windows, where it must not pass through the system's
// frames). A thread that ends takes its windows along without a message.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/posix/headless_windows.h"
#include "platform/posix/window_observer.h"
#include "platform/posix/window_registry.h"
#include "platform/posix/window_service.h"
#include "platform/result.h"
#include "platform/window_system.h"

namespace korvane::platform {

// What the data of kWmNcCreate points to.
struct HeadlessCreation {
  void* parameter = nullptr;
};

// Holds no lock of its own; the registry and the service have theirs.
class HeadlessDesktop {
 public:
  // The process's only one.
  static HeadlessDesktop& Instance();
  HeadlessDesktop();

  WindowRegistry& registry() { return registry_; }
  WindowObserver& observer() { return observer_; }

  // For the calling thread's own windows. Another thread's is kErrorAccessDenied.
  Result<WindowHandle> Create(const WindowCreation& creation);
  WindowHandle CreateChild(KorvaneChildProcedure procedure, void* data);
  Status Destroy(WindowHandle window);
  void Dispatch(const Message& message);

  // Any thread; kErrorInvalidWindow for what is no window of this process. At once for a window of
  // the calling thread, else queued.
  Status Post(const Message& message);
  Status Show(WindowHandle window, int command);
  Status SetForeground(WindowHandle window);
  Status Place(WindowHandle window, const Rectangle& area);

  // Queued in any case.
  Status ShowLater(WindowHandle window, int command);
  Status SetForegroundLater(WindowHandle window);

  // The oldest top-level window of these texts; null for none. Any thread.
  WindowHandle Find(const std::wstring& window_class, const std::wstring& title);

  // Removes the windows of a thread that ends.
  void ForgetThread(const MessageQueue* queue);

 private:
  std::shared_ptr<MessageQueue> QueueOf(WindowHandle window);
  Status OnOwnThread(WindowHandle window, std::function<void()> call);
  Status Later(WindowHandle window, std::function<void()> call);

  // These run on the window's thread; a window that has gone meanwhile is nobody's business.
  // An exception of the procedure is held until the operation is through, and the result is 0 then.
  MessageResult Send(WindowHandle window, std::uint32_t message, MessageParameter parameter,
                     MessageData data);
  void SendSize(WindowHandle window);
  void ShowNow(WindowHandle window, int command);
  void SetForegroundNow(WindowHandle window);
  void PlaceNow(WindowHandle window, const Rectangle& area);
  void Activate(WindowHandle window);
  Status Announce(WindowHandle window);
  void DestroyChildren(WindowHandle parent);
  void Tell(KorvaneWindowChange change, WindowHandle window);

  // Takes the window out of everything, without a message.
  void Remove(WindowHandle window);

  WindowRegistry registry_;
  WindowObserver observer_;
  WindowService service_;
};

}  // namespace korvane::platform
