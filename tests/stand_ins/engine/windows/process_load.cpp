#include "stand_ins/engine/process_load.h"

#include <windows.h>

#include <tlhelp32.h>

namespace korvane::test {

std::size_t OpenHandles() {
  // A new handle gets the lowest free number, in steps of 4. (Wine counts no handles.)
  const HANDLE newest = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  ::CloseHandle(newest);
  return reinterpret_cast<std::size_t>(newest) / 4;
}

std::size_t RunningThreads() {
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  std::size_t count = 0;
  for (BOOL more = ::Thread32First(snapshot, &entry); more;
       more = ::Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) {
      ++count;
    }
  }
  ::CloseHandle(snapshot);
  return count;
}

}  // namespace korvane::test
