// Redacts the log named by the first argument, "mixed" or "clean", once, and prints its bytes: a
// program to count instructions in. With "token", redacts one token of 64 MiB and prints how many
// bytes of the stack that took, which was painted before.
#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "diagnostics_evidence/redaction.h"
#include "samples.h"

namespace {

constexpr std::size_t kTokenBytes = std::size_t{64} << 20;
constexpr std::size_t kStackBytes = std::size_t{1} << 20;
constexpr unsigned char kPaint = 0xA5;

alignas(4096) unsigned char stack[kStackBytes];

// Runs a function on the painted stack; the bytes from its top to the lowest that was written.
std::size_t StackOf(void* (*run)(void*), void* data) {
  std::fill(std::begin(stack), std::end(stack), kPaint);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, sizeof(stack));
  pthread_t thread{};
  if (pthread_create(&thread, &attributes, run, data) != 0) {
    return kStackBytes;
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const auto* const lowest = std::find_if(std::begin(stack), std::end(stack),
                                          [](unsigned char byte) { return byte != kPaint; });
  return static_cast<std::size_t>(std::end(stack) - lowest);
}

int PrintStackOfToken() {
  const std::string token(kTokenBytes, 'k');
  const std::size_t idle = StackOf([](void*) -> void* { return nullptr; }, nullptr);
  std::string redacted;
  std::pair<const std::string&, std::string&> job{token, redacted};
  const std::size_t used = StackOf(
      [](void* data) -> void* {
        auto& [from, to] = *static_cast<std::pair<const std::string&, std::string&>*>(data);
        to = korvane::redactDiagnosticText(from);
        return nullptr;
      },
      &job);
  std::printf("%zu\n", used - idle);
  return redacted.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr std::size_t kLogBytes = 1 << 20;
  const std::string_view kind = argc == 2 ? argv[1] : "";
  if (kind == "token") {
    return PrintStackOfToken();
  }
  if (kind != "mixed" && kind != "clean") {
    std::fputs("usage: redact_once mixed|clean|token\n", stderr);
    return 2;
  }
  const std::string log = kind == "mixed" ? korvane::bench::MixedEngineLog(kLogBytes)
                                          : korvane::bench::CleanEngineLog(kLogBytes);
  const std::string redacted = korvane::redactDiagnosticText(log);
  std::printf("%zu\n", log.size());
  return redacted.empty() ? 1 : 0;
}
