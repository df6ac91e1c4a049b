#include "flutter_boundary/encodable_value.h"

#include <gtest/gtest.h>

namespace flutter {
namespace {

template <typename T>
constexpr bool kMakesAValue = std::is_constructible_v<EncodableValue, T>;

// Each would become another alternative on another platform, or a bool.
static_assert(!kMakesAValue<unsigned> && !kMakesAValue<short> && !kMakesAValue<char>);
static_assert(!kMakesAValue<std::size_t> && !kMakesAValue<float> && !kMakesAValue<void*>);
static_assert(!kMakesAValue<std::nullptr_t>);
// std::int64_t is one of the two; the other has the same width and no place here.
static_assert(kMakesAValue<long> != kMakesAValue<long long>);

TEST(EncodableValueTest, EachContentLandsOnItsIndex) {
  const EncodableValue values[] = {
      EncodableValue(),
      true,
      std::int32_t{1},
      std::int64_t{1},
      1.0,
      "text",
      std::vector<std::uint8_t>{1},
      std::vector<std::int32_t>{1},
      std::vector<std::int64_t>{1},
      std::vector<double>{1},
      EncodableList{1},
      EncodableMap{{1, 1}},
      CustomEncodableValue(),
      std::vector<float>{1},
  };
  for (std::size_t index = 0; index < std::size(values); ++index) {
    EXPECT_EQ(values[index].index(), index);
    EXPECT_EQ(EncodableValue(values[index]), values[index]);
    EXPECT_TRUE(index == 0 || values[index - 1] < values[index]);
  }
  EXPECT_TRUE(values[0].IsNull());
  EXPECT_EQ(*values[5].GetIf<std::string>(), "text");
  EXPECT_EQ(values[2].GetIf<std::int64_t>(), nullptr);
}

TEST(EncodableValueTest, ContentsAreOrderedAsTheirTypesAre) {
  const std::pair<EncodableValue, EncodableValue> ascending[] = {
      {false, true},
      {std::int32_t{-1}, std::int32_t{0}},
      {-1.5, 1.5},
      {"", "a"},
      {"a", "aa"},
      {"z", "\x80"},  // bytes are unsigned
      {std::vector<std::uint8_t>{0x7F}, std::vector<std::uint8_t>{0x80}},
      {EncodableList{"a"}, EncodableList{"a", EncodableValue()}},
      {EncodableList{"a", EncodableList{1}}, EncodableList{"a", EncodableList{2}}},
      {EncodableMap{{"a", 1}}, EncodableMap{{"a", 2}}},
      {EncodableMap{{"a", 2}}, EncodableMap{{"b", 1}}},
  };
  for (const auto& [less, greater] : ascending) {
    EXPECT_TRUE(less < greater);
    EXPECT_FALSE(greater < less);
    EXPECT_FALSE(less < less);
    EXPECT_FALSE(less == greater);
  }
}

// A comparison that looks at each level twice takes 2 to the power of the depth.
TEST(EncodableValueTest, EqualNestedKeysAreComparedInOnePass) {
  EncodableValue nested = "core";
  for (int depth = 0; depth < 100; ++depth) {
    nested = EncodableList{EncodableMap{{std::move(nested), true}}, "behind"};
  }
  const EncodableMap map = {{nested, 1}, {nested, 2}};
  EXPECT_EQ(map.size(), 1U);
}

TEST(EncodableValueTest, FindIfTakesTheExactTypeOnly) {
  const EncodableMap map = {{"n", std::int32_t{7}}, {"s", "x"}};
  EXPECT_EQ(*FindIf<std::int32_t>(map, "n"), 7);
  EXPECT_EQ(FindIf<std::int64_t>(map, "n"), nullptr);
  EXPECT_EQ(FindIf<std::int32_t>(map, "absent"), nullptr);
  EXPECT_EQ(*Find(map, "s"), EncodableValue("x"));
}

}  // namespace
}  // namespace flutter
