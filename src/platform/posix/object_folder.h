// object_folder.h: the names of kernel objects, as files in the user's runtime folder.
//
// A name is a file in the folder "objects": a regular file for a mutex, a named pipe for an event;
// the two kinds share their names, as on Windows. It lives as long as anybody has it open. Each
// open handle has a shared flock on a descriptor of its own, which the system gives back with the
// process, however that ends; a file on which nobody has one is a leftover and counts as absent.
// Finding, making and removing happen under a lock on the folder, held for these few calls only.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>

#include "platform/posix/file_descriptor.h"
#include "platform/result.h"

namespace korvane::platform {

// The file name for an object's name: "local." or "global.", then the name with its odd characters
// as "%" and two hexadecimal digits for each byte. A name without "Local\" or "Global\" in front is
// a local one. kErrorPathNotFound for an empty name and for any further backslash.
Result<std::string> ObjectFileName(std::wstring_view name);

// The folder, locked against every other thread and process for as long as this lives.
class ObjectFolder {
 public:
  // Makes the folder if need be, and waits for the lock.
  static Result<ObjectFolder> Enter();

  // Opens a living object. kErrorFileNotFound when there is none (a leftover is removed),
  // kErrorInvalidHandle when it is of another kind. `kind` is S_IFREG or S_IFIFO.
  Result<FileDescriptor> Open(const std::string& file, mode_t kind);

  // Makes a new object, empty. Precondition: Open has just found none.
  Result<FileDescriptor> Make(const std::string& file, mode_t kind);

  // Removes the name, unless somebody else has the object open. The descriptor no longer keeps the
  // name alive then, and is only good for being closed.
  void Forget(const std::string& file, const FileDescriptor& object);

 private:
  explicit ObjectFolder(FileDescriptor folder) : folder_(std::move(folder)) {}

  FileDescriptor folder_;
};

}  // namespace korvane::platform
