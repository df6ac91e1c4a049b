#include "platform/identifiers.h"

#include <gtest/gtest.h>

#include <set>

#include "platform/real_os.h"

namespace korvane::platform {
namespace {

TEST(Identifiers, GuidsAreRandomVersion4AndNeverTheSame) {
  std::set<std::string> texts;
  for (int count = 0; count < 100; ++count) {
    const Result<Guid> guid = RealIdentifiers().CreateGuid();
    ASSERT_TRUE(guid) << guid.error();
    EXPECT_EQ(guid.value().data3 >> 12, 4);
    EXPECT_EQ(guid.value().data4[0] >> 6, 2);
    texts.insert(RealIdentifiers().FormatGuid(guid.value()).value());
  }
  EXPECT_EQ(texts.size(), 100U);
}

TEST(Identifiers, GuidIsWrittenWithBracesAndUpperCaseDigits) {
  const Guid guid{.data1 = 0x1f2e3d,
                  .data2 = 0xab,
                  .data3 = 0x4c3b,
                  .data4 = {0x8e, 0x07, 0x1d, 0x2f, 0x3a, 0x4b, 0x5c, 0xfd}};
  EXPECT_EQ(RealIdentifiers().FormatGuid(guid), "{001F2E3D-00AB-4C3B-8E07-1D2F3A4B5CFD}");
}

}  // namespace
}  // namespace korvane::platform
