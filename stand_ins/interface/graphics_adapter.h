// graphics_adapter.h: an adapter to be described, in the binary form of an IDXGIAdapter.
//
// An object is a pointer to a table of ten functions, each of which takes the object first, in the
// platform's plain C calling convention:
//
//   0 QueryInterface   1 AddRef    2 Release   3 SetPrivateData   4 SetPrivateDataInterface
//   5 GetPrivateData   6 GetParent 7 EnumOutputs   8 GetDesc      9 CheckInterfaceSupport
//
// AddRef and Release give back the new count; GetDesc takes a record of 304 bytes. The rest answer
// E_NOTIMPL. Linux has the same table and record, characters of 16 bits included.
#pragma once

#include <cstdint>

namespace korvane::stand_in {

struct AdapterDescription {
  char16_t description[128];
  std::uint32_t vendor_id;
  std::uint32_t device_id;
  std::uint32_t sub_system_id;
  std::uint32_t revision;
  std::uint64_t dedicated_video_memory;
  std::uint64_t dedicated_system_memory;
  std::uint64_t shared_system_memory;
  std::uint64_t adapter_luid;
};
static_assert(sizeof(AdapterDescription) == 304, "layout");

enum class AdapterKind {
  kDescribed,     // GetDesc gives "Stand-in Adapter"
  kUndescribed,   // GetDesc fails with 0x887A0001
  kNotEncodable,  // GetDesc gives a text with half a character
};

// A new adapter with one reference. It ends with its last one. Any thread.
void* MakeGraphicsAdapter(AdapterKind kind);

}  // namespace korvane::stand_in
