#include "support/scoped_environment.h"

#include <windows.h>

#include "platform/real_os.h"

namespace korvane::test {
namespace {

std::wstring Wide(const std::string& text) {
  return platform::RealTextEncoding().Utf8ToWide(text).value_or(L"");
}

std::optional<std::string> Get(const std::string& name) {
  ::SetLastError(ERROR_SUCCESS);
  const DWORD size = ::GetEnvironmentVariableW(Wide(name).c_str(), nullptr, 0);
  if (size == 0 && ::GetLastError() == ERROR_ENVVAR_NOT_FOUND) {
    return std::nullopt;
  }
  std::wstring value(size, L'\0');
  value.resize(::GetEnvironmentVariableW(Wide(name).c_str(), value.data(), size));
  return platform::RealTextEncoding().WideToUtf8Lossy(value);
}

void Set(const std::string& name, const std::optional<std::string>& value) {
  const std::wstring wide = Wide(value.value_or(""));
  ::SetEnvironmentVariableW(Wide(name).c_str(), value ? wide.c_str() : nullptr);
}

}  // namespace

ScopedEnvironment::ScopedEnvironment(const char* name, const std::optional<std::string>& value)
    : name_(name), previous_(Get(name_)) {
  Set(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() { Set(name_, previous_); }

}  // namespace korvane::test
