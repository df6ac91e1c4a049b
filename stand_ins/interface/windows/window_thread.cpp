#include "interface/window_thread.h"

#include <windows.h>

#include <atomic>
#include <utility>

#include "interface/task_queue.h"
#include "platform/no_destructor.h"

namespace korvane::stand_in::window_thread {
namespace {

constexpr UINT kRunTask = WM_APP + 0x5A;
constexpr wchar_t kQueueClass[] = L"KORVANE_STAND_IN_QUEUE";
constexpr wchar_t kViewClass[] = L"FLUTTERVIEW";

struct State {
  std::atomic<Report> report{nullptr};
  std::atomic<HWND> host{nullptr};

  // Window thread only.
  bool was_visible = false;
  bool was_iconic = false;
  bool was_foreground = false;
  HWND queue = nullptr;

  TaskQueue tasks;
};

State& TheState() {
  static NoDestructor<State> state;
  return *state;
}

HINSTANCE ThisLibrary() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(&TheState), &module);
  return module;
}

bool IsHostWindow(HWND window) {
  const auto style = GetWindowLongPtrW(window, GWL_STYLE);
  return (style & WS_CAPTION) == WS_CAPTION && (style & (WS_CHILD | WS_POPUP)) == 0;
}

// Tells what changed, by what the window is now: a message alone doesn't say whether it changed
// anything.
void ReportState(State& state, HWND window) {
  const auto report = state.report.load();
  const bool visible = IsWindowVisible(window) != 0;
  const bool iconic = IsIconic(window) != 0;
  const bool foreground = !iconic && GetForegroundWindow() == window;
  const bool was_visible = std::exchange(state.was_visible, visible);
  const bool was_iconic = std::exchange(state.was_iconic, iconic);
  const bool was_foreground = std::exchange(state.was_foreground, foreground);
  if (visible && !was_visible) {
    report("shown");
  }
  if (!iconic && was_iconic) {
    report("restored");
  }
  if (foreground && !was_foreground) {
    report("foreground");
  }
}

void OnHostMessage(State& state, const CWPRETSTRUCT& sent) {
  switch (sent.message) {
    case WM_CREATE:
      state.report.load()("created");
      break;
    case WM_NCDESTROY:
      state.host = nullptr;
      state.report.load()("destroyed");
      break;
    case WM_WINDOWPOSCHANGED:
    case WM_SHOWWINDOW:
    case WM_SIZE:
    case WM_ACTIVATE:
    case WM_NCACTIVATE:
    case WM_SETFOCUS:
      ReportState(state, sent.hwnd);
      break;
    default:
      break;
  }
}

// Behind each message that was sent to a window of the thread.
LRESULT CALLBACK AfterSentMessage(int code, WPARAM wparam, LPARAM lparam) {
  if (code == HC_ACTION) {
    auto& state = TheState();
    const auto& sent = *reinterpret_cast<const CWPRETSTRUCT*>(lparam);
    HWND none = nullptr;
    if (sent.message == WM_CREATE && IsHostWindow(sent.hwnd)) {
      state.host.compare_exchange_strong(none, sent.hwnd);
    }
    if (sent.hwnd == state.host.load()) {
      OnHostMessage(state, sent);
    }
  }
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

BOOL CALLBACK TakeHostWindow(HWND window, LPARAM /*data*/) {
  HWND none = nullptr;
  if (IsHostWindow(window)) {
    TheState().host.compare_exchange_strong(none, window);
  }
  return TRUE;
}

LRESULT CALLBACK QueueProcedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message != kRunTask) {
    return DefWindowProcW(window, message, wparam, lparam);
  }
  TheState().tasks.RunForMessage();
  return 0;
}

void Draw(HWND window) {
  PAINTSTRUCT paint;
  const HDC canvas = BeginPaint(window, &paint);
  RECT area;
  GetClientRect(window, &area);
  const HBRUSH ground = CreateSolidBrush(RGB(0x1B, 0x26, 0x38));
  FillRect(canvas, &area, ground);
  DeleteObject(ground);
  SetBkMode(canvas, TRANSPARENT);
  SetTextColor(canvas, RGB(0xE8, 0xEE, 0xF6));
  DrawTextW(canvas, L"Korvane interface stand-in", -1, &area,
            DT_CENTER | DT_VCENTER | DT_SINGLELINE);
  EndPaint(window, &paint);
}

LRESULT CALLBACK ViewProcedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_ERASEBKGND) {
    return 1;
  }
  if (message != WM_PAINT) {
    return DefWindowProcW(window, message, wparam, lparam);
  }
  Draw(window);
  return 0;
}

void RegisterOwnClass(const wchar_t* name, WNDPROC procedure) {
  WNDCLASSW own{};
  own.style = CS_HREDRAW | CS_VREDRAW;
  own.lpfnWndProc = procedure;
  own.hInstance = ThisLibrary();
  own.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  own.lpszClassName = name;
  RegisterClassW(&own);
}

HWND CreateMessageOnly(const wchar_t* name, DWORD style, int width, int height) {
  return CreateWindowExW(0, name, L"", style, 0, 0, width, height, HWND_MESSAGE, nullptr,
                         ThisLibrary(), nullptr);
}

}  // namespace

void Watch(Report report) {
  Report none = nullptr;
  if (!TheState().report.compare_exchange_strong(none, report)) {
    return;
  }
  SetWindowsHookExW(WH_CALLWNDPROCRET, AfterSentMessage, nullptr, GetCurrentThreadId());
}

bool Open() {
  RegisterOwnClass(kQueueClass, QueueProcedure);
  RegisterOwnClass(kViewClass, ViewProcedure);
  if (TheState().host.load() == nullptr) {
    EnumThreadWindows(GetCurrentThreadId(), TakeHostWindow, 0);
  }
  const HWND queue = CreateMessageOnly(kQueueClass, 0, 0, 0);
  if (queue == nullptr) {
    return false;
  }
  TheState().queue = queue;
  TheState().tasks.Open([queue] { return PostMessageW(queue, kRunTask, 0, 0) != 0; });
  return true;
}

void Close() {
  TheState().tasks.Close();
  if (const HWND queue = std::exchange(TheState().queue, nullptr)) {
    DestroyWindow(queue);
  }
}

void Run(std::function<void()> task) { TheState().tasks.Push(std::move(task)); }

void* CreateView(int width, int height) {
  return CreateMessageOnly(kViewClass, WS_CHILD | WS_VISIBLE, width, height);
}

void DestroyView(void* view) { DestroyWindow(static_cast<HWND>(view)); }

bool PostToHost(std::uint32_t message, std::uintptr_t wparam, std::intptr_t lparam, bool points) {
  const HWND host = TheState().host;
  if (host == nullptr) {
    return false;
  }
  if (!points) {
    return PostMessageW(host, message, wparam, lparam) != 0;
  }
  Run([=] { SendMessageW(host, message, wparam, lparam); });
  return true;
}

std::uint32_t DpiOfMonitor(void* monitor) {
  using GetDpi = HRESULT(WINAPI*)(HMONITOR, int, UINT*, UINT*);
  const HMODULE shcore = LoadLibraryW(L"shcore.dll");
  const auto get_dpi = shcore == nullptr ? nullptr
                                         : reinterpret_cast<GetDpi>(reinterpret_cast<void*>(
                                               GetProcAddress(shcore, "GetDpiForMonitor")));
  UINT x = 96;
  UINT y = 96;
  const bool known = get_dpi != nullptr && get_dpi(static_cast<HMONITOR>(monitor), 0, &x, &y) >= 0;
  return known && x != 0 ? x : 96;
}

}  // namespace korvane::stand_in::window_thread
