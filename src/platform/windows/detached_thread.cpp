#include "platform/detached_thread.h"

#include <windows.h>

#include <process.h>

#include <cstdint>

namespace korvane::platform {

namespace {

struct Start {
  void (*entry)(void* argument) noexcept;
  void* argument;
};

unsigned __stdcall RunStart(void* parameter) {
  const Start start = *std::unique_ptr<Start>(static_cast<Start*>(parameter));
  start.entry(start.argument);
  return 0;
}

}  // namespace

bool StartDetachedThread(void (*entry)(void* argument) noexcept, void* argument) {
  auto start = std::make_unique<Start>(Start{entry, argument});
  const std::uintptr_t thread = ::_beginthreadex(nullptr, 0, RunStart, start.get(), 0, nullptr);
  if (thread == 0) {
    return false;
  }
  static_cast<void>(start.release());  // the thread's now
  ::CloseHandle(reinterpret_cast<HANDLE>(thread));
  return true;
}

}  // namespace korvane::platform
