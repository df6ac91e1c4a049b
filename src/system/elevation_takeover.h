// elevation_takeover.h: hands the application over to an elevated copy of itself.
//
// The running process (the parent) starts the copy (the child) with a fresh token, waits until the
// child has signalled that it lives and belongs to the same user, and only then goes away; its end
// frees the single-instance mutex that the child waits for. Until the signal nothing of the parent
// has changed, so a declined prompt or a dead child costs nothing and a repeat starts clean.
//
//   Local\Korvane.Takeover.<token>.Request   made by the parent, signalled by the child
//   Local\Korvane.Takeover.<token>.Ready     made by the parent; nobody opens it
//
// Leaves on disk, on the direct exit alone: the OS shutdown marker and the intent
// "elevation_handoff". Failures go to the error stream.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/window_system.h"

namespace korvane {

// The parent's result, in the numbers of the protocol.
enum class TakeoverResult {
  kHandshake = 0,      // the child has signalled; the hand-over was posted to the window
  kCancelled = 1,      // the user declined the consent prompt
  kFailed = 2,         // setup or launch failed
  kTimeout = 3,        // no handshake in time; the child is left running
  kChildDied = 4,      // the child ended before the handshake, or the wait failed
  kDifferentUser = 5,  // the child refused: another user, or malformed arguments
};

// What a child that refuses exits with (USER_MISMATCH in the log).
inline constexpr std::uint32_t kTakeoverRefusalExitCode = 0x10A707E3;

inline constexpr std::uint32_t kTakeoverRequestWaitMs = 30000;

// Posted to the window of the parent, both parameters 0: it leaves its evidence, releases the
// single-instance mutex and ends the process.
inline constexpr std::uint32_t kWmAppTakeoverExit = platform::kWmApp + 42;

inline constexpr std::string_view kTakeoverTokenArgument = "--takeover-token=";
inline constexpr std::string_view kParentSidArgument = "--parent-sid=";

// The window that kWmAppTakeoverExit goes to; null for none. Any thread.
void SetTakeoverWindow(platform::WindowHandle window);

// How the single-instance mutex is given up on the direct exit; it belongs to the floor above.
// Handed in at start, called on the worker's thread.
void SetTakeoverMutexRelease(void (*release)());

// The parent's side. Blocks for the consent prompt and up to kTakeoverRequestWaitMs more; for a
// worker thread. Doesn't return when the child has signalled and no window can take the hand-over:
// the process then ends here, with its evidence and exit code 0. Two requests at once don't meet.
TakeoverResult RequestElevatedTakeover();

// The child's side, given the arguments without the program name, before the single-instance mutex
// is touched. Returns when this is no child of a takeover or the parent was looked for; ends the
// process with kTakeoverRefusalExitCode for malformed arguments or another user's process.
void RunTakeoverChildCheck(const std::vector<std::string>& arguments);

}  // namespace korvane
