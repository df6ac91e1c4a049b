#include "platform/posix/crash_guard.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <vector>

namespace korvane::platform {
namespace {

void Ignore(int /*signal*/) {}

std::vector<void (*)(int)> PresentHandlers() {
  std::vector<void (*)(int)> handlers;
  for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
    struct sigaction present {};
    sigaction(signal, nullptr, &present);
    handlers.push_back(present.sa_handler);
  }
  return handlers;
}

TEST(CrashGuardTest, FormerHandlersAndTheSignalMaskComeBack) {
  signal(SIGFPE, &Ignore);
  const auto before = PresentHandlers();
  EXPECT_FALSE(CallWithCrashGuard([](void*) { raise(SIGSEGV); }, nullptr));
  EXPECT_TRUE(CallWithCrashGuard([](void*) { EXPECT_NE(PresentHandlers()[3], &Ignore); }, nullptr));
  EXPECT_EQ(PresentHandlers(), before);
  sigset_t blocked;
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
}

TEST(CrashGuardTest, HandlerThatTheGuardedCallInstalledStays) {
  EXPECT_TRUE(CallWithCrashGuard([](void*) { signal(SIGFPE, &Ignore); }, nullptr));
  EXPECT_EQ(PresentHandlers()[3], &Ignore);
}

}  // namespace
}  // namespace korvane::platform
