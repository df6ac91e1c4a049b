#include <cstring>
#include <limits>

#include "boundary_test.h"
#include "codec_examples.h"
#include "flutter_boundary/standard_method_codec.h"
#include "gmock/gmock.h"
#include "support/small_stack.h"

namespace flutter {
namespace {

using StandardCodecTest = BoundaryTest;
using testing::ElementsAre;
using testing::IsEmpty;

const StandardMethodCodec& Codec() { return StandardMethodCodec::GetInstance(); }

TEST_F(StandardCodecTest, ValuesHaveTheirPublishedBytesBothWays) {
  for (const ValueExample& example : ValueExamples()) {
    EXPECT_EQ(EncodeValue(example.value), Hex(example.bytes)) << example.bytes;
    EXPECT_EQ(DecodeValue(Hex(example.bytes)), example.value) << example.bytes;
  }
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(StandardCodecTest, SizesTakeOneThreeOrFiveBytes) {
  const struct {
    std::size_t length;
    const char* prefix;
  } rows[] = {{0, "07 00"},         {253, "07 fd"},         {254, "07 fe fe 00"},
              {255, "07 fe ff 00"}, {65535, "07 fe ff ff"}, {65536, "07 ff 00 00 01 00"}};
  for (const auto& row : rows) {
    const EncodableValue value = std::string(row.length, 'a');
    Bytes expected = Hex(row.prefix);
    expected.insert(expected.end(), row.length, 'a');
    EXPECT_EQ(EncodeValue(value), expected) << row.length;
    EXPECT_EQ(DecodeValue(expected), value) << row.length;
    // The elements of a list are counted, not their bytes.
    const EncodableValue list = std::vector<std::int64_t>(row.length, 7);
    EXPECT_EQ(DecodeValue(EncodeValue(list)), list) << row.length;
  }
}

TEST_F(StandardCodecTest, CallsHaveTheirPublishedBytesBothWays) {
  for (const CallExample& example : CallExamples()) {
    const MethodCall<> call(example.method, example.arguments);
    EXPECT_EQ(Codec().EncodeMethodCall(call), Hex(example.bytes)) << example.bytes;
    const auto decoded = Codec().DecodeMethodCall(Hex(example.bytes));
    ASSERT_TRUE(decoded) << example.bytes;
    EXPECT_EQ(decoded->method_name(), example.method);
    EXPECT_EQ(decoded->arguments(), example.arguments);
  }
}

TEST_F(StandardCodecTest, EnvelopesHaveTheirPublishedBytesBothWays) {
  for (const EnvelopeExample& example : EnvelopeExamples()) {
    const EncodableValue* value = example.value.IsNull() ? nullptr : &example.value;
    EXPECT_EQ(example.code.empty()
                  ? Codec().EncodeSuccessEnvelope(value)
                  : Codec().EncodeErrorEnvelope(example.code, example.message, value),
              Hex(example.bytes))
        << example.bytes;
    EncodableList notes;
    NotedResult result(&notes);
    EXPECT_TRUE(Codec().DecodeEnvelope(Hex(example.bytes), result)) << example.bytes;
    EXPECT_EQ(notes, example.code.empty()
                         ? (EncodableList{"success", example.value})
                         : (EncodableList{"error", example.code, example.message, example.value}))
        << example.bytes;
  }
}

TEST_F(StandardCodecTest, WhatIsNoEnvelopeAnswersNothing) {
  for (const char* bytes :
       {"02", "00", "00 03 05", "01 03 01 00 00 00 00 00", "01 07 01 58 01 00", "01 07 01 58 00"}) {
    EncodableList notes;
    NotedResult result(&notes);
    EXPECT_FALSE(Codec().DecodeEnvelope(Hex(bytes), result)) << bytes;
    EXPECT_THAT(notes, IsEmpty()) << bytes;
  }
}

TEST_F(StandardCodecTest, OddButWellFormedValuesAreRead) {
  const ValueExample rows[] = {
      {"05 03 2d 66 66", "-ff"},  // a large integer as its digits
      {"07 fe 01 00 61", "a"},    // a longer size than needed
      {"0d 02 07 01 62 01 07 01 61 02", EncodableMap{{"a", false}, {"b", true}}},
      {"0d 02 07 01 61 01 07 01 61 02", EncodableMap{{"a", false}}},  // the last of equal keys
      {"07 01 ff", "\xff"},                                           // kept, valid or not
      {"01 55", true},                                                // left over bytes
  };
  for (const ValueExample& row : rows) {
    EXPECT_EQ(DecodeValue(Hex(row.bytes)), row.value) << row.bytes;
  }
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(StandardCodecTest, CustomValueLeavesANullAndItsLine) {
  const EncodableValue list = EncodableList{CustomEncodableValue(), true};
  EXPECT_EQ(EncodeValue(list), Hex("0c 02 00 01"));
  EXPECT_THAT(errors_.lines(),
              ElementsAre("Unhandled custom type in StandardCodecSerializer::WriteValue. "
                          "Custom types require codec extensions."));
}

TEST_F(StandardCodecTest, UnknownTypeBytesAreNullAndHaveNoContent) {
  for (int type = 15; type <= 255; ++type) {
    errors_.Clear();
    const Bytes list = {12, 2, static_cast<std::uint8_t>(type), 3, 5, 0, 0, 0};
    EXPECT_EQ(DecodeValue(list), EncodableValue(EncodableList{EncodableValue(), 5}));
    EXPECT_THAT(errors_.lines(), ElementsAre(UnknownType(type)));
  }
}

TEST_F(StandardCodecTest, InvalidReadsYieldZerosAndOneLine) {
  const ValueExample rows[] = {
      {"", {}},
      {"03 05 00", 0},
      {"04 01 02 03 04 05 06 07", std::int64_t{0}},
      {"06 00 00 00 00 00 00 00", 0.0},  // ends with the padding
      {"06", 0.0},                       // padding past the end
      {"07 05 61", ""},
      {"07 fe 01", ""},  // cut in its size
      {"07 ff ff ff ff ff", ""},
      {"08 02 01", Bytes()},
      {"09 ff ff ff ff 7f 00 00", std::vector<std::int32_t>()},
      {"0b 00", std::vector<double>()},  // empty, without its padding
      {"0a ff 00 00 00 20 00 00 00 00", std::vector<std::int64_t>()},
      {"0e 01 00 00 00", std::vector<float>()},
      {"0c ff ff ff ff ff", EncodableList()},
      {"0d ff ff ff ff ff", EncodableMap()},
      {"0d 02 00 00 00", EncodableMap()},  // three bytes can't hold two pairs
      {"0c 02 03 05 00 00 00", EncodableList{5, {}}},
      {"0c 05 0c 05 07 05 00 00 00", EncodableList{EncodableValue(EncodableList{""})}},
      {"0d 01 07 02 61", EncodableMap{{"", {}}}},
  };
  for (const ValueExample& row : rows) {
    errors_.Clear();
    EXPECT_EQ(DecodeValue(Hex(row.bytes)), row.value) << row.bytes;
    EXPECT_THAT(errors_.lines(), ElementsAre(kInvalidRead)) << row.bytes;
  }
}

TEST_F(StandardCodecTest, EveryCutOfAValueIsOneInvalidRead) {
  for (const ValueExample& example : ValueExamples()) {
    const Bytes whole = Hex(example.bytes);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      errors_.Clear();
      DecodeValue({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
      EXPECT_THAT(errors_.lines(), ElementsAre(kInvalidRead)) << example.bytes << " at " << length;
    }
  }
}

TEST_F(StandardCodecTest, EveryCutOfACallIsNoCall) {
  for (const CallExample& example : CallExamples()) {
    const Bytes whole = Hex(example.bytes);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      errors_.Clear();
      EXPECT_FALSE(Codec().DecodeMethodCall(std::span(whole).first(length)));
      EXPECT_EQ(errors_.lines(),
                length == 0 ? (Lines{kInvalidRead, kNameIsNoString}) : Lines{kInvalidRead})
          << example.bytes << " at " << length;
    }
  }
}

TEST_F(StandardCodecTest, NameThatIsNoStringIsNoCall) {
  for (const char* bytes : {"03 05 00 00 00 00", "00 00", "08 01 61 00"}) {
    errors_.Clear();
    EXPECT_FALSE(Codec().DecodeMethodCall(Hex(bytes))) << bytes;
    EXPECT_THAT(errors_.lines(), ElementsAre(kNameIsNoString)) << bytes;
  }
}

// Whatever a changed byte makes of a message: what is read can be written, and reads the same
// again.
TEST_F(StandardCodecTest, EveryChangedByteLeavesAReadableValue) {
  for (const ValueExample& example : ValueExamples()) {
    const Bytes whole = Hex(example.bytes);
    for (std::size_t place = 0; place < whole.size(); ++place) {
      for (int byte = 0; byte < 256; ++byte) {
        Bytes changed = whole;
        changed[place] = static_cast<std::uint8_t>(byte);
        const EncodableValue value = DecodeValue(changed);
        const Bytes again = EncodeValue(value);
        EXPECT_EQ(EncodeValue(DecodeValue(again)), again) << example.bytes << " at " << place;
      }
    }
  }
}

// `depth` lists or maps inside one another, around a null.
Bytes Nested(const char* opening, std::size_t depth) {
  Bytes bytes;
  for (std::size_t i = 0; i < depth; ++i) {
    const Bytes one = Hex(opening);
    bytes.insert(bytes.end(), one.begin(), one.end());
  }
  bytes.insert(bytes.end(), depth + 1, 0);
  return bytes;
}

int DepthOf(const EncodableValue& value) {
  if (const auto* list = value.GetIf<EncodableList>()) {
    return 1 + (list->empty() ? 0 : DepthOf(list->front()));
  }
  if (const auto* map = value.GetIf<EncodableMap>()) {
    return 1 + (map->empty()
                    ? 0
                    : std::max(DepthOf(map->begin()->first), DepthOf(map->begin()->second)));
  }
  return 0;
}

TEST_F(StandardCodecTest, DeepNestingEndsAtTheLimitOnASmallStack) {
  // A list of one, a map with the nested value as its value, and as its key.
  for (const char* opening : {"0c 01", "0d 01 00", "0d 01"}) {
    korvane::test::RunOnSmallStack([&] {
      const Bytes bytes = Nested(opening, 100000);
      const EncodableValue value = DecodeValue(bytes);
      EXPECT_EQ(DepthOf(value), StandardCodecSerializer::kMaximumNesting) << opening;
      EXPECT_EQ(errors_.lines().front(), UnknownType(bytes.front())) << opening;
      // Copies, compares, orders, and destroys as deep.
      const EncodableMap map = {{value, value}, {DecodeValue(bytes), true}};
      EXPECT_EQ(map.size(), 1U);
      EXPECT_EQ(DecodeValue(EncodeValue(value)), value);
    });
    errors_.Clear();
  }
}

// 256 lists, each of which claims all that follows, around a text that uses it up.
TEST_F(StandardCodecTest, NestedClaimsDontMultiply) {
  constexpr std::uint32_t kText = 1 << 20;
  const Bytes claim = {0x0c, 0xff, kText & 0xff, kText >> 8 & 0xff, kText >> 16 & 0xff, 0};
  Bytes bytes;
  for (int i = 0; i < 250; ++i) {
    bytes.insert(bytes.end(), claim.begin(), claim.end());
  }
  Bytes text = claim;
  text[0] = 0x07;
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.insert(bytes.end(), kText, 'a');
  EXPECT_EQ(DepthOf(DecodeValue(bytes)), 250);
  EXPECT_THAT(errors_.lines(), ElementsAre(kInvalidRead));
}

}  // namespace
}  // namespace flutter
