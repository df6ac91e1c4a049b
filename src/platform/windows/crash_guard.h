// crash_guard.h: a call that survives a fault at machine level.
#pragma once

namespace korvane::platform {

// As DynamicLibraries::CallGuarded. Any thread, several at once, and one inside another.
//
// The compiler has no __try; the frame that the function runs in is entered by hand into the table
// by which the system finds a handler. Every structured exception is handled, those by which C++
// exceptions travel included. An abort() is none: the C library ends the process there.
bool CallWithCrashGuard(void (*function)(void* argument), void* argument);

}  // namespace korvane::platform
