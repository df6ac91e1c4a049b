#include "platform/os.h"

#include <atomic>

namespace korvane::platform {

namespace {
std::atomic<const Os*> in_force{nullptr};
}  // namespace

const Os& os() {
  const Os* current = in_force.load(std::memory_order_acquire);
  return current != nullptr ? *current : RealOs();
}

ScopedOs::ScopedOs(const Os& os) : current_(os), previous_(in_force.exchange(&current_)) {}

ScopedOs::~ScopedOs() { in_force.store(previous_); }

void WriteErrorLine(std::string_view utf8) { os().error_stream->WriteLine(utf8); }

void WriteErrorLine(std::wstring_view wide) {
  os().error_stream->WriteLine(os().text->WideToUtf8Lossy(wide));
}

}  // namespace korvane::platform
