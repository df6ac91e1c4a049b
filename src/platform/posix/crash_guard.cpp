#include "platform/posix/crash_guard.h"

#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstddef>

#include "platform/mutex.h"
#include "platform/no_destructor.h"

namespace korvane::platform {

namespace {

constexpr std::array<int, 5> kFaultSignals = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr std::size_t kAlternateStackBytes = std::size_t{256} * 1024;

struct GuardedCall {
  sigjmp_buf way_out;
  GuardedCall* outer;
};

// Read by the signal handler, so it must not be made on first use, as other TLS models do it.
__attribute__((tls_model("initial-exec"))) thread_local constinit GuardedCall* innermost_call =
    nullptr;
__attribute__((tls_model("initial-exec"))) thread_local constinit bool passing_on = false;

// The handlers that were there before ours. Written before ours are put in place, and published by
// the count, since a fault on another thread may read them at once.
std::array<struct sigaction, kFaultSignals.size()> former_handlers{};
std::atomic<unsigned> former_handlers_noted = 0;

const struct sigaction& FormerHandler(int signal) {
  static_cast<void>(former_handlers_noted.load(std::memory_order_acquire));
  std::size_t index = 0;
  while (kFaultSignals[index] != signal) {
    ++index;
  }
  return former_handlers[index];
}

bool IsSame(const struct sigaction& one, const struct sigaction& other) {
  return one.sa_sigaction == other.sa_sigaction && one.sa_flags == other.sa_flags;
}

// The default action is taken when the handler returns: a fault happens again, and a signal that
// was sent is sent once more.
void EndByDefault(int signal, const siginfo_t* info) {
  struct sigaction by_default {};
  by_default.sa_handler = SIG_DFL;
  sigaction(signal, &by_default, nullptr);
  if (info->si_code <= 0) {
    raise(signal);
  }
}

// Gives a fault that is not ours to whoever had the signal before.
void PassOn(int signal, siginfo_t* info, void* context) {
  const struct sigaction& former = FormerHandler(signal);
  const bool has_function = (former.sa_flags & SA_SIGINFO) != 0 ||
                            (former.sa_handler != SIG_DFL && former.sa_handler != SIG_IGN);
  // A handler that was put over ours hands the signal back to us: nobody is left then.
  if (!has_function || passing_on) {
    EndByDefault(signal, info);
    return;
  }
  passing_on = true;
  if ((former.sa_flags & SA_SIGINFO) != 0) {
    former.sa_sigaction(signal, info, context);
  } else {
    former.sa_handler(signal);
  }
  passing_on = false;
}

void OnFault(int signal, siginfo_t* info, void* context) {
  if (innermost_call != nullptr) {
    siglongjmp(innermost_call->way_out, 1);
  }
  PassOn(signal, info, context);
}

bool IsOurs(const struct sigaction& handler) {
  return (handler.sa_flags & SA_SIGINFO) != 0 && handler.sa_sigaction == &OnFault;
}

// Puts our handlers in place for the first of the guarded calls that run at once, and the former
// ones back after the last.
class FaultHandlers {
 public:
  static FaultHandlers& Instance() {
    static NoDestructor<FaultHandlers> handlers;
    return *handlers;
  }

  void Enter() KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (calls_++ == 0) {
      Install();
    }
  }

  void Leave() KORVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (--calls_ == 0) {
      Restore();
    }
  }

 private:
  static void Install() {
    NoteFormerHandlers();
    struct sigaction ours {};
    ours.sa_sigaction = &OnFault;
    ours.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (const int signal : kFaultSignals) {
      sigaction(signal, &ours, nullptr);
    }
  }

  static void NoteFormerHandlers() {
    for (std::size_t index = 0; index < kFaultSignals.size(); ++index) {
      struct sigaction present {};
      sigaction(kFaultSignals[index], nullptr, &present);
      if (!IsOurs(present) && !IsSame(present, former_handlers[index])) {
        former_handlers[index] = present;
      }
    }
    former_handlers_noted.fetch_add(1, std::memory_order_release);
  }

  // What a guarded call has put over ours itself stays: an engine installs its own handlers.
  static void Restore() {
    for (std::size_t index = 0; index < kFaultSignals.size(); ++index) {
      struct sigaction present {};
      sigaction(kFaultSignals[index], nullptr, &present);
      if (IsOurs(present)) {
        sigaction(kFaultSignals[index], &former_handlers[index], nullptr);
      }
    }
  }

  Mutex mutex_;
  int calls_ KORVANE_GUARDED_BY(mutex_) = 0;
};

class HandlersInPlace {
 public:
  HandlersInPlace() { FaultHandlers::Instance().Enter(); }
  ~HandlersInPlace() { FaultHandlers::Instance().Leave(); }
  HandlersInPlace(const HandlersInPlace&) = delete;
  HandlersInPlace& operator=(const HandlersInPlace&) = delete;
};

// A stack for the thread's signal handlers, unless it has one. Without the memory for it only an
// overflow of the thread's stack is no longer survived.
class AlternateStack {
 public:
  AlternateStack() {
    stack_t present{};
    if (sigaltstack(nullptr, &present) != 0 || (present.ss_flags & SS_DISABLE) == 0) {
      return;
    }
    void* memory = mmap(nullptr, kAlternateStackBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
      return;
    }
    memory_ = memory;
    const stack_t own{.ss_sp = memory_, .ss_flags = 0, .ss_size = kAlternateStackBytes};
    sigaltstack(&own, nullptr);
  }

  ~AlternateStack() {
    if (memory_ == nullptr) {
      return;
    }
    stack_t present{};
    sigaltstack(nullptr, &present);
    if (present.ss_sp == memory_) {
      const stack_t none{.ss_sp = nullptr, .ss_flags = SS_DISABLE, .ss_size = 0};
      sigaltstack(&none, nullptr);
    }
    munmap(memory_, kAlternateStackBytes);
  }

  AlternateStack(const AlternateStack&) = delete;
  AlternateStack& operator=(const AlternateStack&) = delete;

 private:
  void* memory_ = nullptr;
};

// A C++ exception counts as a crash: nothing may pass a C boundary.
__attribute__((noinline)) bool Call(void (*function)(void*), void* argument) {
  try {
    function(argument);
    return true;
  } catch (...) {
    return false;
  }
}

// A fault leaves this frame by a jump, so nothing with a destructor may live in it.
__attribute__((noinline)) bool CallOrJumpOut(void (*function)(void*), void* argument) {
  GuardedCall call;
  call.outer = innermost_call;
  if (sigsetjmp(call.way_out, 1) != 0) {  // the signal mask comes back with the jump
    innermost_call = call.outer;
    return false;
  }
  innermost_call = &call;
  const bool ended = Call(function, argument);
  innermost_call = call.outer;
  return ended;
}

}  // namespace

bool CallWithCrashGuard(void (*function)(void* argument), void* argument) {
  const AlternateStack stack;
  const HandlersInPlace handlers;
  return CallOrJumpOut(function, argument);
}

}  // namespace korvane::platform
