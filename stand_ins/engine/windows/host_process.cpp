#include "engine/host_process.h"

#include <windows.h>

#include <string>

namespace korvane::stand_in {

std::filesystem::path LibraryFolder() {
  constexpr DWORD kFlags =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  HMODULE module = nullptr;
  if (!::GetModuleHandleExW(kFlags, reinterpret_cast<LPCWSTR>(&LibraryFolder), &module)) {
    return {};
  }
  constexpr DWORD kLongestPath = 32768;
  std::wstring path(kLongestPath, L'\0');
  path.resize(::GetModuleFileNameW(module, path.data(), kLongestPath));
  return std::filesystem::path(path).parent_path();
}

void WriteToStandardError(std::string_view bytes) {
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), bytes.data(), static_cast<DWORD>(bytes.size()),
              &written, nullptr);
}

}  // namespace korvane::stand_in
