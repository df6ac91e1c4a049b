#include "platform/detached_thread.h"

#include <pthread.h>

namespace korvane::platform {

namespace {

struct Start {
  void (*entry)(void* argument) noexcept;
  void* argument;
};

void* RunStart(void* parameter) {
  const Start start = *std::unique_ptr<Start>(static_cast<Start*>(parameter));
  start.entry(start.argument);
  return nullptr;
}

}  // namespace

bool StartDetachedThread(void (*entry)(void* argument) noexcept, void* argument) {
  auto start = std::make_unique<Start>(Start{entry, argument});
  pthread_t thread{};
  if (::pthread_create(&thread, nullptr, RunStart, start.get()) != 0) {
    return false;
  }
  static_cast<void>(start.release());  // the thread's now
  ::pthread_detach(thread);
  return true;
}

}  // namespace korvane::platform
