// headless_windows.h: the C door by which a shared library in this process uses the headless
// windows as it would use user32.
//
// The closed interface library makes its view as a window of the host's own thread. Without user32
// its stand-in does that through the table below. The host executable exports one symbol
// (ENABLE_EXPORTS in CMake); the library looks it up once and links to nothing of ours:
//
//   auto door = reinterpret_cast<KorvaneHeadlessWindowsDoor>(
//       dlsym(RTLD_DEFAULT, "korvane_headless_windows_v1"));
//   const KorvaneHeadlessWindowsV1* windows = door != nullptr ? door() : nullptr;
//
// The symbol's name carries the version of the layout: a change of the table is a new symbol. The
// header includes nothing of the project. Handles are those of WindowSystem. Nothing throws, and a
// callback must not throw either.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

// A child window's procedure, called on the thread that made the window: for a message that was
// posted to it, when that thread dispatches it, and for kWmSize (0x0005, data: width in the low
// word and height in the high one) and kWmDestroy (0x0002) while the call that causes them runs.
using KorvaneChildProcedure = intptr_t (*)(void* user_data, void* window, uint32_t message,
                                           uintptr_t parameter, intptr_t data);

// What became of a top-level window of this process. One call of the host is one report, also when
// it changed nothing.
enum KorvaneWindowChange : int32_t {
  kKorvaneWindowCreated = 1,     // its procedure has returned from kWmNcCreate
  kKorvaneWindowShown = 2,       // Show with any command but restore, hide and minimise
  kKorvaneWindowRestored = 3,    // Show with kShowRestore
  kKorvaneWindowForeground = 4,  // SetForeground was granted
  kKorvaneWindowDestroyed = 5,   // its procedure has returned from kWmDestroy; the handle is dead
};

// Called on the window's own thread, with no lock held; may use the table.
using KorvaneWindowObserver = void (*)(void* user_data, KorvaneWindowChange change, void* window);

struct KorvaneHeadlessWindowsV1 {
  size_t struct_size;  // of this table, as the host was built

  // Makes a hidden window of size 0 without a parent, on the calling thread; null on failure. The
  // host gives it a parent (SetParent), and it is destroyed with that parent at the latest.
  void* (*create_child)(KorvaneChildProcedure procedure, void* user_data);

  // Destroys a window that create_child made on the calling thread. False when it is not one.
  bool (*destroy)(void* window);

  // Queues a message for a window of this process, from any thread. False when there is no such
  // window, or its queue is full.
  bool (*post)(void* window, uint32_t message, uintptr_t parameter, intptr_t data);

  // The oldest top-level window that the calling thread has made and not destroyed; null for none.
  void* (*thread_top_level)(void);

  // The size of the client area of a window of this process; false when there is no such window.
  bool (*client_size)(void* window, int32_t* width, int32_t* height);

  // One observer at a time; a null one takes the former away. Any thread; windows that were there
  // before are not reported. Once it returns, a report to the former observer may still be running
  // on another thread.
  void (*set_observer)(KorvaneWindowObserver observer, void* user_data);
};

using KorvaneHeadlessWindowsDoor = const KorvaneHeadlessWindowsV1* (*)(void);

// The table; never null, the same for the life of the process. Any thread.
__attribute__((visibility("default"))) const KorvaneHeadlessWindowsV1* korvane_headless_windows_v1(
    void);

}  // extern "C"
