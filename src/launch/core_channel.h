// core_channel.h: the channel by which the Dart side writes into the startup log.
//
// No state of its own. What Dart sends is checked by exact type, length and character before any
// of it reaches the log; what doesn't fit is answered with its reason and recorded by that reason
// alone.
//
//   getCoreVersion                                                   the engine's version
//   startupBreadcrumb  name, dartMs                                  dart_breadcrumb
//   startupUpdate      last_attempt_at, last_successful_check_at,
//                      last_result                                   update_result
//
// On the window's thread. The handler answers before it returns, and blocks for the writing of one
// line (startup_recorder.h tells the bound).
#pragma once

#include <memory>

#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/method_channel.h"

namespace korvane {

// Opens the channel on a messenger, with its handler. It serves for as long as the owner keeps it.
std::unique_ptr<flutter::MethodChannel<>> OpenCoreChannel(flutter::BinaryMessenger* messenger);

// The handler itself.
void HandleCoreCall(const flutter::MethodCall<>& call,
                    std::unique_ptr<flutter::MethodResult<>> result);

}  // namespace korvane
