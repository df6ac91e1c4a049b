// window_thread.h: the host's window and its thread, as the stand-in reaches them.
//
// The thread on which the view controller is made is the window thread: it pumps messages, and all
// calls into the host run on it, as tasks that this queues among its messages. On Windows that is a
// message-only window of the library's own; on Linux the headless windows' C door. There is one
// window thread and one host window in a process.
#pragma once

#include <cstdint>
#include <functional>

namespace korvane::stand_in::window_thread {

// What became of the host's window: "created", "shown", "restored", "foreground", "destroyed".
// Called on its thread.
using Report = void (*)(const char* change);

// Watches the calling thread for the host's window: its first top-level window with a title bar.
// Later calls do nothing.
void Watch(Report report);

// Makes the calling thread the window thread. False when the system has no windows to offer.
bool Open();
// Drops what is still queued, and takes no more. Window thread.
void Close();

// Queues a task behind all that is queued already, posted messages included. Any thread; dropped
// when the queue isn't open.
void Run(std::function<void()> task);

// The view: a child window without a parent yet, which draws a plain picture. Window thread.
void* CreateView(int width, int height);
void DestroyView(void* view);

// Queues a message for the host's window. `points`: the last parameter points at something, so that
// Windows won't queue it; a task sends it then. False when there is no such window. Any thread.
bool PostToHost(std::uint32_t message, std::uintptr_t wparam, std::intptr_t lparam, bool points);

// The system's DPI of a monitor; 96 where it can't tell.
std::uint32_t DpiOfMonitor(void* monitor);

}  // namespace korvane::stand_in::window_thread
