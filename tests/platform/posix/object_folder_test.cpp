#include "platform/posix/object_folder.h"

#include <gtest/gtest.h>

namespace korvane::platform {
namespace {

TEST(ObjectFileNameTest, EveryNameHasAFileNameOfItsOwn) {
  EXPECT_EQ(ObjectFileName(L"Local\\Korvane.Takeover.0A.Request").value(),
            "local.Korvane.Takeover.0A.Request");
  EXPECT_EQ(ObjectFileName(L"Global\\..").value(), "global...");
  EXPECT_EQ(ObjectFileName(L"a/b%\x44F").value(), "local.a%2Fb%25%D1%8F");
  EXPECT_FALSE(ObjectFileName(L"Local\\"));
  EXPECT_FALSE(ObjectFileName(L"Other\\a"));
}

}  // namespace
}  // namespace korvane::platform
