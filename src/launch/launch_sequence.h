// launch_sequence.h: from the process entry to its exit code.
//
// Fixes where libraries are looked for, starts the journal, lets the child of a takeover signal its
// parent, and settles by a named mutex which process runs a window. The one that wins makes the
// window and runs its messages until it closes; any other brings the running one forward and
// leaves.
//
//   libraries can't be restricted        1   nothing was logged
//   refused takeover child               279381987, from within
//   second instance                      0
//   no window                            1   window_create_failed
//   message loop ended                   0
//   hand-over to an elevated successor   0, from within
//
// Failures at start are survived wherever a window can still come up. Runs once, on the process's
// first thread, which becomes the window's thread.
#pragma once

namespace korvane {

// The exit code of the process.
int RunLaunchSequence();

}  // namespace korvane
