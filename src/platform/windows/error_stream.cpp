#include "platform/error_stream.h"

#include <windows.h>

#include <cstdio>
#include <string>

#include "platform/mutex.h"
#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

class WindowsErrorStream final : public ErrorStream {
 public:
  void WriteLine(std::string_view utf8) override {
    std::string line(utf8);
    line += '\n';
    MutexLock lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
  }

  Status SilenceStandardError() override {
    const HANDLE null_device =
        ::CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (null_device == INVALID_HANDLE_VALUE) {
      return Status::Fail(::GetLastError());
    }
    if (::SetStdHandle(STD_ERROR_HANDLE, null_device) == 0) {
      const ErrorCode error = ::GetLastError();
      ::CloseHandle(null_device);
      return Status::Fail(error);
    }
    return Status::Ok();  // the handle stays open for the life of the process
  }

  void WriteToDebugger(std::string_view utf8) override {
    ::OutputDebugStringA(std::string(utf8).c_str());
  }

 private:
  Mutex mutex_;
};

}  // namespace

ErrorStream& RealErrorStream() {
  static NoDestructor<WindowsErrorStream> stream;
  return *stream;
}

}  // namespace korvane::platform
