#include "interface/graphics_adapter.h"

#include <atomic>
#include <memory>
#include <string_view>

namespace korvane::stand_in {
namespace {

constexpr std::int32_t kOk = 0;
constexpr auto kNotImplemented = static_cast<std::int32_t>(0x80004001);
constexpr auto kInvalidCall = static_cast<std::int32_t>(0x887A0001);

struct Adapter;

struct AdapterTable {
  std::int32_t (*query_interface)(Adapter*, const void* id, void** object);
  std::uint32_t (*add_ref)(Adapter*);
  std::uint32_t (*release)(Adapter*);
  std::int32_t (*set_private_data)(Adapter*, const void* id, std::uint32_t size, const void* data);
  std::int32_t (*set_private_data_interface)(Adapter*, const void* id, const void* object);
  std::int32_t (*get_private_data)(Adapter*, const void* id, std::uint32_t* size, void* data);
  std::int32_t (*get_parent)(Adapter*, const void* id, void** parent);
  std::int32_t (*enum_outputs)(Adapter*, std::uint32_t index, void** output);
  std::int32_t (*get_desc)(Adapter*, AdapterDescription* description);
  std::int32_t (*check_interface_support)(Adapter*, const void* id, std::int64_t* version);
};

struct Adapter {
  explicit Adapter(AdapterKind of_kind) : kind(of_kind) {}

  const AdapterTable* table = nullptr;  // first, as in every object of this kind of interface
  AdapterKind kind;
  std::atomic<std::uint32_t> references{1};
};

std::uint32_t Release(Adapter* adapter) {
  const auto left = --adapter->references;
  if (left == 0) {
    std::unique_ptr<Adapter>(adapter).reset();
  }
  return left;
}

std::int32_t Describe(Adapter* adapter, AdapterDescription* description) {
  if (adapter->kind == AdapterKind::kUndescribed) {
    return kInvalidCall;
  }
  static constexpr char16_t kHalf[] = {u'S', 0xD800, u'A', 0};
  const std::u16string_view text =
      adapter->kind == AdapterKind::kNotEncodable ? kHalf : u"Stand-in Adapter";
  *description = {};
  text.copy(description->description, text.size());
  return kOk;
}

constexpr AdapterTable kTable{
    .query_interface = [](Adapter*, const void*, void**) { return kNotImplemented; },
    .add_ref = [](Adapter* adapter) -> std::uint32_t { return ++adapter->references; },
    .release = Release,
    .set_private_data = [](Adapter*, const void*, std::uint32_t,
                           const void*) { return kNotImplemented; },
    .set_private_data_interface = [](Adapter*, const void*,
                                     const void*) { return kNotImplemented; },
    .get_private_data = [](Adapter*, const void*, std::uint32_t*,
                           void*) { return kNotImplemented; },
    .get_parent = [](Adapter*, const void*, void**) { return kNotImplemented; },
    .enum_outputs = [](Adapter*, std::uint32_t, void**) { return kNotImplemented; },
    .get_desc = Describe,
    .check_interface_support = [](Adapter*, const void*, std::int64_t*) { return kNotImplemented; },
};

}  // namespace

void* MakeGraphicsAdapter(AdapterKind kind) {
  auto adapter = std::make_unique<Adapter>(kind);
  adapter->table = &kTable;
  return adapter.release();
}

}  // namespace korvane::stand_in
