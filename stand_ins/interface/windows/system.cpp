#include "interface/system.h"

#include <windows.h>

#include <algorithm>

namespace korvane::stand_in {
namespace {

// Both are short: names and paths from the environment.
std::wstring Wide(const std::string& utf8) {
  std::wstring wide(utf8.size(), L'\0');
  const int count = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()),
                                        wide.data(), static_cast<int>(wide.size()));
  wide.resize(static_cast<std::size_t>(std::max(count, 0)));
  return wide;
}

std::string Utf8(const std::wstring& wide) {
  std::string utf8(wide.size() * 3, '\0');
  const int count =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), utf8.data(),
                          static_cast<int>(utf8.size()), nullptr, nullptr);
  utf8.resize(static_cast<std::size_t>(std::max(count, 0)));
  return utf8;
}

HANDLE AsHandle(std::intptr_t value) {
  return reinterpret_cast<HANDLE>(value);  // NOLINT(performance-no-int-to-ptr)
}

std::intptr_t AsValue(HANDLE handle) { return reinterpret_cast<std::intptr_t>(handle); }

}  // namespace

Holdings HoldingsOfProcess() {
  DWORD handles = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &handles) && handles != 0) {
    return {.heap_bytes = {}, .handles = handles};
  }
  // Wine counts none, but gives the lowest free number to the next one.
  const HANDLE next = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  CloseHandle(next);
  return {.heap_bytes = {}, .handles = static_cast<std::uint32_t>(AsValue(next))};
}

std::optional<std::string> Environment(const char* name) {
  const std::wstring wide_name = Wide(name);
  std::wstring value(GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0), L'\0');
  value.resize(
      GetEnvironmentVariableW(wide_name.c_str(), value.data(), static_cast<DWORD>(value.size())));
  if (value.empty()) {
    return std::nullopt;
  }
  return Utf8(value);
}

bool IsTakeoverSuccessor() {
  return std::wstring(GetCommandLineW()).find(L"--takeover-token=") != std::wstring::npos;
}

void EndProcess(int code) {
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  for (;;) {
    Sleep(INFINITE);
  }
}

void CrashProcess() {
  TerminateProcess(GetCurrentProcess(), 0xC0000005);
  for (;;) {
    Sleep(INFINITE);
  }
}

InputSource::InputSource() : handle_(AsValue(GetStdHandle(STD_INPUT_HANDLE))), kind_(Kind::kNone) {
  if (const auto path = Environment("KORVANE_CONSOLE_IN")) {
    handle_ =
        AsValue(CreateFileW(Wide(*path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (AsHandle(handle_) == INVALID_HANDLE_VALUE) {
      kind_ = Kind::kMissing;
      return;
    }
  }
  const HANDLE handle = AsHandle(handle_);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
    return;
  }
  kind_ = GetFileType(handle) == FILE_TYPE_DISK ? Kind::kFile : Kind::kStream;
}

InputSource::~InputSource() {
  const HANDLE handle = AsHandle(handle_);
  if (handle != GetStdHandle(STD_INPUT_HANDLE) && handle != INVALID_HANDLE_VALUE) {
    CloseHandle(handle);
  }
}

std::size_t InputSource::Read(char* buffer, std::size_t size) {
  DWORD count = 0;
  const auto most = static_cast<DWORD>(std::min<std::size_t>(size, 1U << 20));
  return ReadFile(AsHandle(handle_), buffer, most, &count, nullptr) != 0 ? count : 0;
}

void OutputSink::Write(std::string_view bytes) {
  if (!handle_) {
    const auto path = Environment("KORVANE_CONSOLE_OUT");
    handle_ =
        AsValue(path ? CreateFileW(Wide(*path).c_str(), FILE_APPEND_DATA,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                   IsTakeoverSuccessor() ? OPEN_ALWAYS : CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr)
                     : GetStdHandle(STD_OUTPUT_HANDLE));
  }
  while (!bytes.empty()) {
    DWORD count = 0;
    const auto most = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1U << 20));
    if (WriteFile(AsHandle(*handle_), bytes.data(), most, &count, nullptr) == 0) {
      return;
    }
    bytes.remove_prefix(count);
  }
}

}  // namespace korvane::stand_in
