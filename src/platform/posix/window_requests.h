// window_requests.h: what other processes may ask of this one's headless windows.
#pragma once

#include "platform/posix/headless_desktop.h"
#include "platform/posix/window_wire.h"

namespace korvane::platform {

// Answers one request. Trusts nothing in it: windows that are not ours, texts that are too long and
// unknown operations are refused. Runs no procedure; any thread.
WindowReply AnswerWindowRequest(HeadlessDesktop& desktop, const WindowRequest& request);

}  // namespace korvane::platform
