#include "platform/scheduled_command.h"

#include <windows.h>

#include <memory>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr std::uint32_t kCodeOfAnUnknownEnd = 1;

struct CloseNativeHandle {
  void operator()(void* handle) const { ::CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<void, CloseNativeHandle>;

class WindowsScheduledCommand final : public ScheduledCommand {
 public:
  Result<std::uint32_t> Run(const std::wstring& command_line) override {
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    std::wstring line = command_line;  // the call writes into it
    PROCESS_INFORMATION started{};
    if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                         nullptr, &startup, &started) == 0) {
      return Result<std::uint32_t>::Fail(::GetLastError());
    }
    const OwnedHandle process(started.hProcess);
    const OwnedHandle thread(started.hThread);
    ::WaitForSingleObject(process.get(), INFINITE);
    DWORD code = 0;
    return ::GetExitCodeProcess(process.get(), &code) != 0 ? code : kCodeOfAnUnknownEnd;
  }
};

}  // namespace

ScheduledCommand& RealScheduledCommand() {
  static NoDestructor<WindowsScheduledCommand> command;
  return *command;
}

}  // namespace korvane::platform
