#include "platform/registry.h"

#include <gtest/gtest.h>

#include "platform/real_os.h"
#include "support/user_settings.h"

namespace korvane::platform {
namespace {

constexpr RegistryHive kUser = RegistryHive::kCurrentUser;
constexpr RegistryHive kMachine = RegistryHive::kLocalMachine;
constexpr ErrorCode kUnsupportedType = 1630;
const std::wstring kKey = L"Software\\Korvane";
const std::wstring kValue = L"WindowsDiagnosticsEnabled";

class RegistryTest : public testing::Test {
 protected:
  test::ScopedUserSettings settings_;
  Registry& registry_ = RealRegistry();
};

TEST_F(RegistryTest, WhatIsMissingIsNotFoundInEveryOperation) {
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, kValue).error(), kRegistryNotFound);
  EXPECT_EQ(registry_.DeleteValue(kUser, kKey, kValue).error(), kRegistryNotFound);
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, L"Other", 1));
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, kValue).error(), kRegistryNotFound);
  EXPECT_EQ(registry_.DeleteValue(kUser, kKey, kValue).error(), kRegistryNotFound);
  EXPECT_EQ(registry_.ReadDword(kMachine, kKey, L"Other").error(), kRegistryNotFound);
}

TEST_F(RegistryTest, NumbersAreKeptByHiveKeyAndValue) {
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, kValue, 1));
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, L"AdminBatShimSeen", 0xFFFFFFFF));
  ASSERT_TRUE(registry_.WriteDword(kUser, L"Software\\Other", kValue, 7));
  ASSERT_TRUE(registry_.WriteDword(kMachine, kKey, kValue, 9));
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, kValue, 0));
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, kValue).value(), 0U);
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, L"AdminBatShimSeen").value(), 0xFFFFFFFF);
  EXPECT_EQ(registry_.ReadDword(kUser, L"Software\\Other", kValue).value(), 7U);
  EXPECT_EQ(registry_.ReadDword(kMachine, kKey, kValue).value(), 9U);

  ASSERT_TRUE(registry_.DeleteValue(kUser, kKey, kValue));
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, kValue).error(), kRegistryNotFound);
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, L"AdminBatShimSeen").value(), 0xFFFFFFFF);
  EXPECT_EQ(registry_.ReadDword(kUser, L"Software\\Other", kValue).value(), 7U);
}

TEST_F(RegistryTest, ValueOfAnotherTypeIsAnErrorAndCanBeReplacedAndRemoved) {
  settings_.WriteText(kUser, kKey, kValue, L"1");
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, kValue).error(), kUnsupportedType);
  ASSERT_TRUE(registry_.WriteDword(kUser, kKey, kValue, 1));
  EXPECT_EQ(registry_.ReadDword(kUser, kKey, kValue).value(), 1U);

  settings_.WriteText(kMachine, kKey, L"Korvane", L"C:\\korvane.exe = x");
  ASSERT_TRUE(registry_.DeleteValue(kMachine, kKey, L"Korvane"));
  EXPECT_EQ(registry_.DeleteValue(kMachine, kKey, L"Korvane").error(), kRegistryNotFound);
}

TEST_F(RegistryTest, DeniedKeyIsAFailureOtherThanAbsence) {
  settings_.Deny(kUser, kKey);
  const auto read = registry_.ReadDword(kUser, kKey, kValue);
  EXPECT_FALSE(read.ok());
  EXPECT_NE(read.error(), kRegistryNotFound);
  EXPECT_FALSE(registry_.WriteDword(kUser, kKey, kValue, 1));
  const Status deleted = registry_.DeleteValue(kUser, kKey, kValue);
  EXPECT_FALSE(deleted.ok());
  EXPECT_NE(deleted.error(), kRegistryNotFound);
}

}  // namespace
}  // namespace korvane::platform
