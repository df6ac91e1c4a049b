#include "support/links.h"

#include <windows.h>

#include <stdexcept>
#include <string>

namespace korvane::test {
namespace {

using std::filesystem::path;

// Wine makes and removes no links, but shows those of the system below it as reparse points. So
// under Wine that system's own programs do it.
using UnixNameOf = char*(CDECL*)(const wchar_t* name);

// Null on Windows itself.
UnixNameOf FindUnixNameOf() {
  const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
  return reinterpret_cast<UnixNameOf>(
      reinterpret_cast<void*>(::GetProcAddress(kernel, "wine_get_unix_file_name")));
}

std::string UnixName(const path& name) {
  char* const text = FindUnixNameOf()(name.c_str());
  std::string copy = text != nullptr ? text : "";
  ::HeapFree(::GetProcessHeap(), 0, text);
  return copy;
}

std::string QuotedLink(const path& link) {
  return " \"" + UnixName(link.parent_path()) + "/" + link.filename().string() + "\"";
}

void StartUnixProgram(const char* program, std::string command_line) {
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};  // stays empty: there is no Windows process to wait for
  ::CreateProcessA(program, command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                   &startup, &process);
}

void WaitUntil(const path& link, bool there) {
  for (int waits = 0; waits < 5000; ++waits) {
    if ((::GetFileAttributesW(link.c_str()) != INVALID_FILE_ATTRIBUTES) == there) {
      return;
    }
    ::Sleep(1);
  }
  throw std::runtime_error("the link was not made or removed in time");
}

}  // namespace

FolderLink::FolderLink(const path& target, const path& link) : link_(link) {
  if (FindUnixNameOf() == nullptr) {
    std::filesystem::create_directory_symlink(target, link);
    return;
  }
  StartUnixProgram("Z:\\bin\\ln", "ln -s \"" + UnixName(target) + "\"" + QuotedLink(link));
  WaitUntil(link, true);
}

FolderLink::~FolderLink() {
  if (FindUnixNameOf() == nullptr) {
    ::RemoveDirectoryW(link_.c_str());
    return;
  }
  StartUnixProgram("Z:\\bin\\rm", "rm -f" + QuotedLink(link_));
  try {
    WaitUntil(link_, false);
  } catch (const std::runtime_error&) {  // a leftover in the temporary folder harms nobody
  }
}

}  // namespace korvane::test
