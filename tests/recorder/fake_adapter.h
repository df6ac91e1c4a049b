// fake_adapter.h: a graphics adapter that says what a test wants, and counts its references.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "recorder/graphics_adapter.h"

namespace korvane::test {

class FakeAdapter : public GraphicsAdapter {
 public:
  FakeAdapter() : GraphicsAdapter{} {
    static const GraphicsAdapterTable kTable = [] {
      GraphicsAdapterTable functions{};
      functions.release = &Release;
      functions.get_desc = &GetDesc;
      return functions;
    }();
    table = &kTable;
  }

  std::u16string description = u"Fake Adapter";  // up to 128 units
  std::int32_t hresult = 0;
  int references = 1;

 private:
  static std::uint32_t Release(GraphicsAdapter* adapter) {
    return static_cast<std::uint32_t>(--static_cast<FakeAdapter*>(adapter)->references);
  }
  static std::int32_t GetDesc(GraphicsAdapter* adapter, GraphicsAdapterDescription* description) {
    const auto& fake = *static_cast<FakeAdapter*>(adapter);
    std::copy(fake.description.begin(), fake.description.end(), description->description);
    return fake.hresult;
  }
};

}  // namespace korvane::test
