// crash_guard.h: a call that survives a fault at machine level.
#pragma once

namespace korvane::platform {

// As DynamicLibraries::CallGuarded. Any thread, several at once, and one inside another.
//
// While any guarded call runs, the process's handlers for the fault signals are ours. They leave
// the faulting thread's innermost guarded call by a jump; a fault of a thread that is in none goes
// to the handlers that were there before. Faults are taken on a stack of their own, so that an
// overflow of the thread's stack is one of them.
bool CallWithCrashGuard(void (*function)(void* argument), void* argument);

}  // namespace korvane::platform
