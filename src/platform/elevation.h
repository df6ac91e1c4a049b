// elevation.h: whose rights the process has, and starting itself with more.
//
// Linux: "elevated" is a flag that the launcher of a process sets (the environment variable
// KORVANE_POSIX_ELEVATED with the value 1, read by the platform layer alone), and a user's
// identifier is "S-1-5-21-0-0-0-" and the user id.
#pragma once

#include <string>

#include "platform/kernel_objects.h"
#include "platform/result.h"

namespace korvane::platform {

class Elevation {
 public:
  virtual ~Elevation() = default;

  // Whether the token in effect is a member of the Administrators group: AllocateAndInitializeSid
  // (NT authority, 32, 544), CheckTokenMembership(nullptr, ...), FreeSid. Any failure counts as not
  // a member. The filtered token of an administrator's unelevated process is no member.
  virtual bool IsAdministrator() = 0;

  // The user's SID in string form, from the process token: OpenProcessToken(TOKEN_QUERY),
  // GetTokenInformation(TokenUser) twice, ConvertSidToStringSidW. Empty on any failure.
  virtual std::wstring UserSid() = 0;

  // ShellExecuteExW: mask 0x140 (keep the process handle, no async), no window, verb "runas", no
  // directory, SW_SHOW. A success without a process handle is a failure with the last error.
  // kErrorCancelled when the user declined. Linux: the program is started again with the flag
  // above. The handle can be waited for (KernelObjects::WaitAny) and asked for its exit code.
  virtual Result<KernelHandle> LaunchElevated(const std::wstring& executable,
                                              const std::wstring& parameters) = 0;

  // GetExitCodeProcess.
  virtual Result<std::uint32_t> ExitCode(const KernelHandle& process) = 0;
};

}  // namespace korvane::platform
