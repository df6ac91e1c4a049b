// runtime_folder.h: the folder in which the user's processes meet: named kernel objects, windows.
//
// $XDG_RUNTIME_DIR/korvane where that variable names an existing folder by an absolute path, else
// /tmp/korvane-<user id>. Whoever can write there can post to our windows, so a folder that is not
// wholly the user's own is refused, not mended. Any thread; no state.
#pragma once

#include <filesystem>

#include "platform/result.h"

namespace korvane::platform {

// Makes the folder if need be (mode 0700) and checks it: a folder and no link, owned by the
// effective user, closed to everybody else (EPERM where it is not). The environment is read anew at
// each call. Processes of one session agree on it as long as they share the environment.
Result<std::filesystem::path> RuntimeFolder();

}  // namespace korvane::platform
