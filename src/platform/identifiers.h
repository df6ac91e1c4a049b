// identifiers.h: values that no two runs share.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/result.h"

namespace korvane::platform {

// The fields of a GUID in their usual order.
struct Guid {
  std::uint32_t data1 = 0;
  std::uint16_t data2 = 0;
  std::uint16_t data3 = 0;
  std::array<std::uint8_t, 8> data4{};
};

class Identifiers {
 public:
  virtual ~Identifiers() = default;

  // CoCreateGuid; the error is the HRESULT. Linux: a random version 4 GUID.
  virtual Result<Guid> CreateGuid() = 0;

  // The GUID as StringFromGUID2 writes it: 38 characters, braces included, upper-case digits. The
  // same on both systems, and it doesn't fail there.
  virtual std::optional<std::string> FormatGuid(const Guid& guid);

  // QueryPerformanceCounter; its unit is the system's own business.
  virtual std::uint64_t PerformanceCounter() = 0;
};

}  // namespace korvane::platform
