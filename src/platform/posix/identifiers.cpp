#include "platform/identifiers.h"

#include <sys/random.h>

#include <cerrno>
#include <chrono>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

class PosixIdentifiers final : public Identifiers {
 public:
  Result<Guid> CreateGuid() override {
    Guid guid;
    static_assert(sizeof(guid) == 16);
    if (::getrandom(&guid, sizeof(guid), 0) != ssize_t{sizeof(guid)}) {
      return Result<Guid>::Fail(static_cast<ErrorCode>(errno));
    }
    guid.data3 = static_cast<std::uint16_t>(0x4000 | (guid.data3 & 0x0FFF));   // version 4
    guid.data4[0] = static_cast<std::uint8_t>(0x80 | (guid.data4[0] & 0x3F));  // its variant
    return guid;
  }

  std::uint64_t PerformanceCounter() override {
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
};

}  // namespace

Identifiers& RealIdentifiers() {
  static NoDestructor<PosixIdentifiers> identifiers;
  return *identifiers;
}

}  // namespace korvane::platform
