// wait.h: waiting for sockets, with an end that another thread can call.
//
// Every wait of this library runs through Wait, so that a service can end all its threads at once
// by raising one signal; nothing relies on a socket being closed under a waiting thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "net/deadline.h"

namespace korvane::net {

// The system's socket: a descriptor on Linux, a SOCKET on Windows. -1 is none on both.
using Handle = std::intptr_t;
inline constexpr Handle kNoHandle = -1;

// What a wait is to look for on one socket.
struct Interest {
  Handle handle = kNoHandle;
  bool read = false;
  bool write = false;
};

// The most sockets of one wait, the stop signal included.
inline constexpr std::size_t kMostInterests = 8;

enum class WaitStatus { kReady, kTimedOut, kStopped };

// Once raised, it stays raised, and every wait that was given it returns. Any thread.
class StopSignal {
 public:
  // Throws std::runtime_error when the system has no socket left.
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  void Raise();
  bool raised() const { return raised_.load(std::memory_order_acquire); }

  // Waits for the given time; true when the signal was raised before it ran out.
  bool RaisedWithin(std::chrono::milliseconds time) const;

 private:
  friend WaitStatus Wait(std::span<const Interest>, const StopSignal*, Deadline);

  // A datagram socket that is its own peer: raising sends one byte, which nobody reads, so that it
  // stays readable for every waiter. The one thing that both systems can wait for beside a socket.
  Handle handle_ = kNoHandle;
  std::atomic<bool> raised_{false};
};

// Waits until one of the sockets can go on (or has failed: the next operation tells), the deadline
// passes, or the signal is raised. `stop` may be null. At most kMostInterests - 1 interests,
// and at least one of signal and interests.
WaitStatus Wait(std::span<const Interest> interests, const StopSignal* stop, Deadline deadline);

}  // namespace korvane::net
