// launch_decision.h: whether this process becomes the one that runs a window.
//
// Pure functions of three values: what the arguments say, what came of creating the single-instance
// mutex, and what came of waiting for it. They touch nothing; launch_sequence.h does what they say.
//
//   created        | wait      | becomes
//   no handle      | none      | primary, without a mutex: a failure never stops a launch
//   new            | none      | primary, owner
//   already exists | signalled | primary, owner: the former owner released it
//                  | abandoned | primary, owner: the former owner died with it
//                  | other     | second instance
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "flutter_boundary/encodable_value.h"
#include "launch/launch_arguments.h"
#include "platform/kernel_objects.h"

namespace korvane {

inline constexpr std::uint32_t kLaunchWaitNone = 0;
inline constexpr std::uint32_t kLaunchWaitElevatedRestart = 6000;
inline constexpr std::uint32_t kLaunchWaitTakeover = 30000;

// A line for the startup log.
struct LaunchEvent {
  std::string stage;
  flutter::EncodableMap fields;
};

enum class LaunchStep { kPrimary, kWait, kSecondInstance };

struct LaunchDecision {
  LaunchStep step = LaunchStep::kPrimary;
  bool owned = false;         // of kPrimary: whether this process holds the mutex
  std::uint32_t wait_ms = 0;  // of kWait
  std::optional<LaunchEvent> event = std::nullopt;
};

// After the creation. `code` is the last error right behind the call.
LaunchDecision DecideOnCreatedMutex(const LaunchFlags& flags, bool has_handle,
                                    platform::ErrorCode code);

// After the wait that the former asked for; never kWait.
LaunchDecision DecideOnWait(const platform::WaitOutcome& outcome);

}  // namespace korvane
