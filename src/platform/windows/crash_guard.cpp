#include "platform/windows/crash_guard.h"

#include <windows.h>

#include <malloc.h>

// The exception of this thread's last guarded call; 0 while there was none.
static thread_local DWORD last_exception = 0;

// Named by the table below, so it has a C name and is seen from outside.
extern "C" long CALLBACK KorvaneTakeEveryException(EXCEPTION_POINTERS* exception, void* frame);

extern "C" __attribute__((used)) long CALLBACK
KorvaneTakeEveryException(EXCEPTION_POINTERS* exception, void* /*frame*/) {
  last_exception = exception->ExceptionRecord->ExceptionCode;
  return EXCEPTION_EXECUTE_HANDLER;
}

namespace korvane::platform {

namespace {

// What dispatching an exception takes of the stack, with room to spare: its records hold all of the
// processor's registers, the wide ones too.
constexpr ULONG kStackForHandlersBytes = 32 * 1024;

// The handler is for the whole function, the table names the part of it between the labels: when an
// exception comes out of there, the filter is asked and the function goes on behind the second
// label. So nothing with a destructor may live in this frame, and what the guarded part writes must
// be volatile. Not inlined, not copied: the labels exist once.
__attribute__((noinline, noclone)) bool CallOrGoOn(void (*function)(void*), void* argument) {
  volatile bool ended = false;
  __asm__ __volatile__(
      ".Lkorvane_guard_begin:\n"
      "\t.seh_handler __C_specific_handler, @except\n"
      "\t.seh_handlerdata\n"
      "\t.long 1\n"
      "\t.rva .Lkorvane_guard_begin, .Lkorvane_guard_end, KorvaneTakeEveryException, "
      ".Lkorvane_guard_end\n"
      "\t.text\n" ::
          : "memory");
  function(argument);
  ended = true;
  __asm__ __volatile__(
      "\tnop\n"
      ".Lkorvane_guard_end:\n"
      "\tnop\n" ::
          : "memory");
  return ended;
}

}  // namespace

bool CallWithCrashGuard(void (*function)(void* argument), void* argument) {
  ULONG stack_for_handlers = kStackForHandlersBytes;
  ::SetThreadStackGuarantee(&stack_for_handlers);
  last_exception = 0;  // makes it, too: the filter may have next to no stack
  const bool ended = CallOrGoOn(function, argument);
  if (!ended && last_exception == EXCEPTION_STACK_OVERFLOW) {
    ::_resetstkoflw();  // the page that tells of an overflow was used up
  }
  return ended;
}

}  // namespace korvane::platform
