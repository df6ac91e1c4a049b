#include "platform/posix/headless_windows.h"

#include "platform/posix/headless_desktop.h"

namespace korvane::platform {

namespace {

HeadlessDesktop& Desktop() { return HeadlessDesktop::Instance(); }

void* CreateChild(KorvaneChildProcedure procedure, void* user_data) {
  return procedure != nullptr ? Desktop().CreateChild(procedure, user_data) : nullptr;
}

bool Destroy(void* window) {
  bool child = false;
  Desktop().registry().With(window,
                            [&child](const HeadlessWindow& target) { child = !target.top_level; });
  return child && Desktop().Destroy(window).ok();
}

bool Post(void* window, uint32_t message, uintptr_t parameter, intptr_t data) {
  return Desktop()
      .Post({.window = window, .number = message, .parameter = parameter, .data = data})
      .ok();
}

void* ThreadTopLevel() {
  const MessageQueue* here = MessageQueue::OfThisThread().get();
  const auto found = Desktop().registry().All([here](const HeadlessWindow& window) {
    return window.top_level && window.queue.get() == here;
  });
  return found.empty() ? nullptr : found.front();
}

bool ClientSize(void* window, int32_t* width, int32_t* height) {
  return Desktop().registry().With(window, [&](const HeadlessWindow& target) {
    const WindowSize size = SizeOf(target.area);
    *width = size.width;
    *height = size.height;
  });
}

void SetObserver(KorvaneWindowObserver observer, void* user_data) {
  Desktop().observer().Set(observer, user_data);
}

constexpr KorvaneHeadlessWindowsV1 kDoor = {
    .struct_size = sizeof(KorvaneHeadlessWindowsV1),
    .create_child = &CreateChild,
    .destroy = &Destroy,
    .post = &Post,
    .thread_top_level = &ThreadTopLevel,
    .client_size = &ClientSize,
    .set_observer = &SetObserver,
};

}  // namespace

}  // namespace korvane::platform

const KorvaneHeadlessWindowsV1* korvane_headless_windows_v1() { return &korvane::platform::kDoor; }
