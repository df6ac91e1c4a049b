// activation.h: a second instance brings the running one forward.
//
// The running window announces by a property that it answers requests; it may be elevated, and it
// may not have drawn a frame yet. So the second instance grants it the foreground and posts a
// request with its own process id; what becomes of that is the running instance's business, and no
// answer is awaited. A window without the property is shown and brought forward from here. All
// outcomes go to the startup log alone.
//
// Runs on the second instance's first thread, which then ends.
#pragma once

namespace korvane {

// Looks for the window of the running instance for up to 2 seconds.
void ActivateExistingInstance();

// Tells the user that the batch file which started this process is retired. Blocks until the
// notice is closed, then removes the value "AdminBatShimSeen" of the user's hive.
void ShowAdminBatShimNotice();

}  // namespace korvane
