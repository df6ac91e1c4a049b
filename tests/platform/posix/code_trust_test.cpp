#include "platform/code_trust.h"

#include <gtest/gtest.h>

#include "platform/real_os.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

TEST(CodeTrustTest, SaysThatThereIsNoSignatureTest) {
  EXPECT_FALSE(RealCodeTrust().Available());
  const test::TemporaryFolder folder;
  test::WriteBytes(folder / "engine", "bytes");
  const auto held = RealCodeTrust().Hold(folder / "engine");
  ASSERT_TRUE(held);
  EXPECT_EQ(RealCodeTrust().VerifySignature(folder / "engine", *held.value()), 0U);
  const SignerLookup found = RealCodeTrust().FindSigner(folder / "engine");
  EXPECT_FALSE(found.query_failed);
  EXPECT_EQ(found.certificate, nullptr);
}

}  // namespace
}  // namespace korvane::platform
