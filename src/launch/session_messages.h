// session_messages.h: what the system tells a window about power, displays, the session and its
// end, kept for later readers.
//
// Observation only: none of these messages is answered or held up here. On the window's thread.
#pragma once

#include <cstdint>

#include "platform/window_system.h"

namespace korvane {

// Writes power, display, DPI and session messages to the startup log, by their system names; other
// messages do nothing.
void RecordSystemMessage(std::uint32_t message, platform::MessageParameter parameter,
                         platform::MessageData data);

// A session that asks to end, or ends, leaves the OS shutdown marker and the intent "os_shutdown";
// one that is called off takes both back.
void KeepShutdownEvidence(std::uint32_t message, platform::MessageParameter parameter);

}  // namespace korvane
