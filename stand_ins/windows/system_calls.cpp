#include "system_calls.h"

#include <windows.h>

#include <cstdlib>
#include <string_view>
#include <vector>

namespace korvane::stand_in {

namespace {

// The folder of this library, with the separator.
std::wstring OwnFolder() {
  HMODULE library = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(&OwnFolder), &library);
  std::vector<wchar_t> path(32768);
  const DWORD length = GetModuleFileNameW(library, path.data(), static_cast<DWORD>(path.size()));
  const std::wstring_view text(path.data(), length);
  return std::wstring(text.substr(0, text.find_last_of(L'\\') + 1));
}

std::wstring FileOf(const wchar_t* variable, const wchar_t* name) {
  std::vector<wchar_t> value(32768);
  const DWORD length =
      GetEnvironmentVariableW(variable, value.data(), static_cast<DWORD>(value.size()));
  return length != 0 ? std::wstring(value.data(), length) : OwnFolder() + name;
}

// The whole file; empty when there is none.
std::string ReadAll(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  std::string text;
  if (file == INVALID_HANDLE_VALUE) {
    return text;
  }
  char block[4096];
  DWORD got = 0;
  while (ReadFile(file, block, sizeof(block), &got, nullptr) && got != 0) {
    text.append(block, got);
  }
  CloseHandle(file);
  return text;
}

std::wstring ToWide(std::string_view text) {
  const int size = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), size);
  wide.resize(static_cast<std::size_t>(length));
  return wide;
}

}  // namespace

std::optional<std::wstring> Setting(const char* key) {
  const std::string text = ReadAll(FileOf(L"KORVANE_SYSTEM_STAND_INS", L"system_stand_ins.txt"));
  const std::string wanted = std::string(key) + "=";
  std::string_view rest = text;
  while (!rest.empty()) {
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : rest.size());
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    if (line.substr(0, wanted.size()) == wanted) {
      return ToWide(line.substr(wanted.size()));
    }
  }
  return std::nullopt;
}

std::optional<std::uint32_t> NumberSetting(const char* key) {
  const std::optional<std::wstring> text = Setting(key);
  if (!text || text->empty()) {
    return std::nullopt;
  }
  wchar_t* end = nullptr;
  const auto number = std::wcstoull(text->c_str(), &end, 0);
  return *end == L'\0' ? std::optional(static_cast<std::uint32_t>(number)) : std::nullopt;
}

void RecordCall(const char* library, const char* call, const Json& arguments) {
  const DWORD callers_error = GetLastError();
  Json line = {{"library", library}, {"call", call}};
  line.update(arguments);
  const std::string text = line.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
  const std::wstring path = FileOf(L"KORVANE_SYSTEM_CALLS", L"system_calls.jsonl");
  const HANDLE file =
      CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
  }
  SetLastError(callers_error);
}

Json TextOrNull(const wchar_t* text) {
  if (text == nullptr) {
    return nullptr;
  }
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
  utf8.resize(static_cast<std::size_t>(size) - 1);
  return utf8;
}

}  // namespace korvane::stand_in
