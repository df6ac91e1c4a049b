#include "launch/launch_decision.h"

namespace korvane {

namespace {

LaunchEvent OsErrorEvent(const char* stage, platform::ErrorCode error) {
  return {stage, {{"os_error", std::int64_t{error}}}};
}

// The takeover's wait wins over that of a plain restart. Kept on purpose: a wait of nothing is a
// wait too, since it is what takes an abandoned mutex over.
std::uint32_t WaitFor(const LaunchFlags& flags) {
  if (flags.takeover_child) {
    return kLaunchWaitTakeover;
  }
  return flags.elevated_restart ? kLaunchWaitElevatedRestart : kLaunchWaitNone;
}

}  // namespace

LaunchDecision DecideOnCreatedMutex(const LaunchFlags& flags, bool has_handle,
                                    platform::ErrorCode code) {
  if (!has_handle) {
    return {.step = LaunchStep::kPrimary, .event = OsErrorEvent("mutex_create_failed", code)};
  }
  const bool already_exists = code == platform::kErrorAlreadyExists;
  LaunchDecision decision;
  decision.event = LaunchEvent{"mutex", {{"already_exists", already_exists}}};
  if (already_exists) {
    decision.step = LaunchStep::kWait;
    decision.wait_ms = WaitFor(flags);
  } else {
    decision.owned = true;
  }
  return decision;
}

LaunchDecision DecideOnWait(const platform::WaitOutcome& outcome) {
  switch (outcome.result) {
    case platform::kWaitSignalled:
      return {.step = LaunchStep::kPrimary, .owned = true};
    case platform::kWaitAbandoned:
      return {.step = LaunchStep::kPrimary,
              .owned = true,
              .event = LaunchEvent{"instance_mutex_abandoned", {}}};
    case platform::kWaitTimeout:
      return {.step = LaunchStep::kSecondInstance,
              .event = LaunchEvent{"instance_mutex_wait_timeout", {}}};
    case platform::kWaitFailed:
      return {.step = LaunchStep::kSecondInstance,
              .event = OsErrorEvent("instance_mutex_wait_failed", outcome.error)};
    default:
      return {.step = LaunchStep::kSecondInstance};
  }
}

}  // namespace korvane
