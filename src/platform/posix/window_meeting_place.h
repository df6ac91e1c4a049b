// window_meeting_place.h: where processes find each other's headless windows.
//
// The folder "windows" in the user's runtime folder, with one socket for each process that has a
// top-level window, named by its process id. An entry counts only while somebody listens behind it:
// what a dead process left is removed by whoever comes upon it. Making and removing entries happens
// under a lock on the folder, so that nobody removes what another process has just made anew.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "platform/result.h"

namespace korvane::platform {

class WindowMeetingPlace {
 public:
  // The folder of this moment's environment, made if need be.
  static Result<WindowMeetingPlace> Open();

  // A listening socket under this process's id. An entry of that name is a dead process's and goes.
  Result<FileDescriptor> Listen();
  // Removes this process's entry.
  void Remove();

  // A connection to a process; its reads and writes end after some seconds, so that one which was
  // stopped holds nobody up for good. ECONNREFUSED or ENOENT when the process has no windows; a
  // dead one's entry is removed.
  Result<FileDescriptor> Connect(std::uint32_t process);

  // The other processes that have an entry, in ascending order.
  std::vector<std::uint32_t> OtherProcesses();

 private:
  explicit WindowMeetingPlace(FileDescriptor folder) : folder_(std::move(folder)) {}

  Result<FileDescriptor> TryConnect(std::uint32_t process);
  void RemoveIfDead(std::uint32_t process);

  FileDescriptor folder_;
};

}  // namespace korvane::platform
