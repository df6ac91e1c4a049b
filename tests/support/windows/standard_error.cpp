#include "support/standard_error.h"

#include <windows.h>

namespace korvane::test {

void WriteAsLoadedLibrary(std::string_view text) {
  DWORD taken = 0;
  ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()),
              &taken, nullptr);
}

}  // namespace korvane::test
