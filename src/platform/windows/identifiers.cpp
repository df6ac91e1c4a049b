#include "platform/identifiers.h"

#include <windows.h>

#include <objbase.h>

#include <algorithm>
#include <iterator>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

class WindowsIdentifiers final : public Identifiers {
 public:
  Result<Guid> CreateGuid() override {
    GUID created{};
    if (const HRESULT result = ::CoCreateGuid(&created); FAILED(result)) {
      return Result<Guid>::Fail(static_cast<ErrorCode>(result));
    }
    Guid guid{.data1 = created.Data1, .data2 = created.Data2, .data3 = created.Data3, .data4 = {}};
    std::copy(std::begin(created.Data4), std::end(created.Data4), guid.data4.begin());
    return guid;
  }

  std::uint64_t PerformanceCounter() override {
    LARGE_INTEGER count{};
    ::QueryPerformanceCounter(&count);
    return static_cast<std::uint64_t>(count.QuadPart);
  }
};

}  // namespace

Identifiers& RealIdentifiers() {
  static NoDestructor<WindowsIdentifiers> identifiers;
  return *identifiers;
}

}  // namespace korvane::platform
