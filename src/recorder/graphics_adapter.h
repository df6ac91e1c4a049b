// graphics_adapter.h: the name of the graphics adapter that the engine draws with.
//
// The engine hands out a COM object of the system's graphics library. Its documented layout is
// declared here by ourselves, since the same one serves on Linux, where a stand-in engine makes the
// object. Only two of its functions are called; the description is UTF-16 on both systems.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane {

inline constexpr std::size_t kDescriptionUnits = 128;

// DXGI_ADAPTER_DESC. Only the description is looked at.
struct GraphicsAdapterDescription {
  char16_t description[kDescriptionUnits];  // zero-terminated when it is shorter
  std::uint32_t vendor_id;
  std::uint32_t device_id;
  std::uint32_t subsystem_id;
  std::uint32_t revision;
  std::uint64_t dedicated_video_memory;
  std::uint64_t dedicated_system_memory;
  std::uint64_t shared_system_memory;
  std::uint32_t luid_low;
  std::int32_t luid_high;
};
static_assert(sizeof(GraphicsAdapterDescription) == 304);

struct GraphicsAdapter;

// The functions of IDXGIAdapter in the order of their slots; those that nobody calls are nameless
// pointers.
struct GraphicsAdapterTable {
  void* query_interface;
  void* add_ref;
  std::uint32_t (*release)(GraphicsAdapter* adapter);
  void* set_private_data;
  void* set_private_data_interface;
  void* get_private_data;
  void* get_parent;
  void* enum_outputs;
  std::int32_t (*get_desc)(GraphicsAdapter* adapter, GraphicsAdapterDescription* description);
};
static_assert(offsetof(GraphicsAdapterTable, get_desc) == 8 * sizeof(void*));

struct GraphicsAdapter {
  const GraphicsAdapterTable* table;
};

enum class AdapterOutcome {
  kNamed,
  kDescriptionFailed,  // GetDesc failed
  kEncodingFailed,     // the description is no UTF-16
};

struct AdapterName {
  AdapterOutcome outcome = AdapterOutcome::kNamed;
  std::string utf8;          // of kNamed; may be empty
  std::int32_t hresult = 0;  // of kDescriptionFailed
};

// Asks the adapter for its name. The adapter stays the caller's.
AdapterName NameOfAdapter(GraphicsAdapter& adapter);

}  // namespace korvane
