#include "platform/clocks.h"

#include <chrono>
#include <thread>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

// The C++ library's clocks are the system's own on both sides.
class StandardClocks final : public Clocks {
 public:
  std::int64_t SteadyNanoseconds() override {
    return Since<std::chrono::nanoseconds>(std::chrono::steady_clock::now());
  }

  std::int64_t UnixMilliseconds() override {
    return Since<std::chrono::milliseconds>(std::chrono::system_clock::now());
  }

  void SleepMilliseconds(std::uint32_t milliseconds) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }

 private:
  template <typename Unit, typename Point>
  static std::int64_t Since(Point point) {
    return std::chrono::floor<Unit>(point.time_since_epoch()).count();
  }
};

}  // namespace

Clocks& RealClocks() {
  static NoDestructor<StandardClocks> clocks;
  return *clocks;
}

}  // namespace korvane::platform
