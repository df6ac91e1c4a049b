#include "platform/elevation.h"

#include <windows.h>

#include <sddl.h>
#include <shellapi.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

struct FreeSecurityId {
  void operator()(void* sid) const { ::FreeSid(sid); }
};
struct FreeLocal {
  void operator()(void* memory) const { ::LocalFree(memory); }
};
struct CloseNativeHandle {
  void operator()(void* handle) const { ::CloseHandle(handle); }
};

std::unique_ptr<void, FreeSecurityId> AdministratorsGroup() {
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  PSID sid = nullptr;
  if (::AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID,
                                 DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0, &sid) == 0) {
    return nullptr;
  }
  return std::unique_ptr<void, FreeSecurityId>(sid);
}

// The TOKEN_USER record of the process; empty on failure.
std::vector<std::byte> TokenUserRecord() {
  HANDLE handle = nullptr;
  if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &handle) == 0) {
    return {};
  }
  const std::unique_ptr<void, CloseNativeHandle> token(handle);
  DWORD size = 0;
  ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  std::vector<std::byte> record(size);
  if (::GetTokenInformation(token.get(), TokenUser, record.data(), size, &size) == 0) {
    return {};
  }
  return record;
}

class WindowsElevation final : public Elevation {
 public:
  bool IsAdministrator() override {
    const std::unique_ptr<void, FreeSecurityId> administrators = AdministratorsGroup();
    BOOL member = FALSE;
    return administrators != nullptr &&
           ::CheckTokenMembership(nullptr, administrators.get(), &member) != 0 && member != 0;
  }

  std::wstring UserSid() override {
    const std::vector<std::byte> record = TokenUserRecord();
    LPWSTR text = nullptr;
    if (record.empty() ||
        ::ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(record.data())->User.Sid,
                                 &text) == 0) {
      return {};
    }
    const std::unique_ptr<wchar_t, FreeLocal> sid(text);
    return sid.get();
  }

  Result<KernelHandle> LaunchElevated(const std::wstring& executable,
                                      const std::wstring& parameters) override {
    SHELLEXECUTEINFOW launch{};
    launch.cbSize = sizeof(launch);
    launch.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC;
    launch.lpVerb = L"runas";
    launch.lpFile = executable.c_str();
    launch.lpParameters = parameters.c_str();
    launch.nShow = SW_SHOW;
    const bool launched = ::ShellExecuteExW(&launch) != 0;
    const ErrorCode error = ::GetLastError();
    if (!launched || launch.hProcess == nullptr) {
      return Result<KernelHandle>::Fail(error);
    }
    return KernelHandle(&RealKernelObjects(), launch.hProcess);
  }

  Result<std::uint32_t> ExitCode(const KernelHandle& process) override {
    DWORD code = 0;
    if (::GetExitCodeProcess(process.native(), &code) == 0) {
      return Result<std::uint32_t>::Fail(::GetLastError());
    }
    return code;
  }
};

}  // namespace

Elevation& RealElevation() {
  static NoDestructor<WindowsElevation> elevation;
  return *elevation;
}

}  // namespace korvane::platform
