#include "interface/window_thread.h"

#include <dlfcn.h>

#include <atomic>
#include <utility>

#include "interface/task_queue.h"
#include "platform/no_destructor.h"
#include "platform/posix/headless_windows.h"

namespace korvane::stand_in::window_thread {
namespace {

constexpr std::uint32_t kRunTask = 0x8000 + 0x5A;

const KorvaneHeadlessWindowsV1* Windows() {
  static const auto* const windows = [] {
    const auto door = reinterpret_cast<KorvaneHeadlessWindowsDoor>(
        dlsym(RTLD_DEFAULT, "korvane_headless_windows_v1"));
    return door != nullptr ? door() : nullptr;
  }();
  return windows;
}

const char* NameOf(KorvaneWindowChange change) {
  switch (change) {
    case kKorvaneWindowCreated:
      return "created";
    case kKorvaneWindowShown:
      return "shown";
    case kKorvaneWindowRestored:
      return "restored";
    case kKorvaneWindowForeground:
      return "foreground";
    case kKorvaneWindowDestroyed:
      return "destroyed";
  }
  return "changed";
}

struct State {
  std::atomic<Report> report{nullptr};
  std::atomic<void*> host{nullptr};

  void* queue = nullptr;  // window thread only
  TaskQueue tasks;
};

State& TheState() {
  static NoDestructor<State> state;
  return *state;
}

void OnWindowChange(void* /*user_data*/, KorvaneWindowChange change, void* window) {
  auto& state = TheState();
  void* none = nullptr;
  if (change == kKorvaneWindowCreated) {
    state.host.compare_exchange_strong(none, window);
  }
  if (state.host.load() != window) {
    return;
  }
  if (change == kKorvaneWindowDestroyed) {
    state.host = nullptr;
  }
  state.report.load()(NameOf(change));
}

std::intptr_t QueueProcedure(void* /*user_data*/, void* /*window*/, std::uint32_t message,
                             std::uintptr_t /*parameter*/, std::intptr_t /*data*/) {
  if (message == kRunTask) {
    TheState().tasks.RunForMessage();
  }
  return 0;
}

std::intptr_t ViewProcedure(void* /*user_data*/, void* /*window*/, std::uint32_t /*message*/,
                            std::uintptr_t /*parameter*/, std::intptr_t /*data*/) {
  return 0;  // there is no display to draw on
}

}  // namespace

void Watch(Report report) {
  Report none = nullptr;
  if (Windows() == nullptr || !TheState().report.compare_exchange_strong(none, report)) {
    return;
  }
  Windows()->set_observer(OnWindowChange, nullptr);
}

bool Open() {
  if (Windows() == nullptr) {
    return false;
  }
  auto& state = TheState();
  void* none = nullptr;
  state.host.compare_exchange_strong(none, Windows()->thread_top_level());
  void* queue = Windows()->create_child(QueueProcedure, nullptr);
  if (queue == nullptr) {
    return false;
  }
  state.queue = queue;
  state.tasks.Open([queue] { return Windows()->post(queue, kRunTask, 0, 0); });
  return true;
}

void Close() {
  TheState().tasks.Close();
  if (void* queue = std::exchange(TheState().queue, nullptr)) {
    Windows()->destroy(queue);
  }
}

void Run(std::function<void()> task) { TheState().tasks.Push(std::move(task)); }

void* CreateView(int /*width*/, int /*height*/) {
  return Windows()->create_child(ViewProcedure, nullptr);
}

void DestroyView(void* view) { Windows()->destroy(view); }

bool PostToHost(std::uint32_t message, std::uintptr_t wparam, std::intptr_t lparam,
                bool /*points*/) {
  void* host = TheState().host;
  return host != nullptr && Windows()->post(host, message, wparam, lparam);
}

std::uint32_t DpiOfMonitor(void* /*monitor*/) { return 96; }

}  // namespace korvane::stand_in::window_thread
