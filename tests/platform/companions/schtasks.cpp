// Plays schtasks.exe: writes its words, a line for each, to the file KORVANE_TEST_SCHTASKS_LOG and
// ends with the code KORVANE_TEST_SCHTASKS_CODE. Any slip of its own is 99.
#include <cstdio>
#include <cstdlib>

int main(int count, char** words) {
  // NOLINTBEGIN(concurrency-mt-unsafe): one thread
  const char* log = std::getenv("KORVANE_TEST_SCHTASKS_LOG");
  const char* code = std::getenv("KORVANE_TEST_SCHTASKS_CODE");
  // NOLINTEND(concurrency-mt-unsafe)
  FILE* file = log != nullptr ? std::fopen(log, "wb") : nullptr;
  if (file == nullptr || code == nullptr) {
    return 99;
  }
  for (int index = 0; index < count; ++index) {
    std::fprintf(file, "%s\n", words[index]);
  }
  return std::fclose(file) == 0 ? static_cast<int>(std::strtol(code, nullptr, 10)) : 99;
}
