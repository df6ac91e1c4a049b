// error_stream_for_children.h: the error stream that a child process of this one gets.
#pragma once

namespace korvane::platform {

// The descriptor of the stream that this process was started with, also after its own descriptor 2
// was silenced: an elevated copy writes its lines where this one writes its own. -1 when there is
// none. Not owned, and never closed. Any thread.
int ErrorStreamForChildren();

}  // namespace korvane::platform
