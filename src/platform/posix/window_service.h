// window_service.h: the thread by which other processes reach this one's headless windows.
//
// It runs while the process has a top-level window and is the one that listens at the meeting
// place. It answers each request at once and runs no procedure: what a window is to do is queued
// for the window's thread. Peers are other processes of the same user; one that is silent, slow or
// talks nonsense costs its own connection only.
#pragma once

#include <functional>
#include <memory>

#include "platform/mutex.h"
#include "platform/posix/window_wire.h"
#include "platform/result.h"

namespace korvane::platform {

class WindowServer;

class WindowService {
 public:
  // Called on the service's thread; must neither block nor throw.
  using Answer = std::function<WindowReply(const WindowRequest&)>;

  explicit WindowService(Answer answer);
  ~WindowService();

  // One more top-level window; the first starts the thread. After a failure the window counts all
  // the same, but no other process finds it.
  Status Enter() KORVANE_EXCLUDES(mutex_);
  // One fewer; the last ends the thread, waits for it and removes the entry.
  void Leave() KORVANE_EXCLUDES(mutex_);

 private:
  const Answer answer_;
  Mutex mutex_;
  int windows_ KORVANE_GUARDED_BY(mutex_) = 0;
  std::unique_ptr<WindowServer> server_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::platform
