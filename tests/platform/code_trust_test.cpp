#include "platform/code_trust.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/real_os.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using std::filesystem::path;

TEST(CodeTrustTest, HoldsWhatIsThereOnly) {
  const test::TemporaryFolder folder;
  test::WriteBytes(folder / "engine", "bytes");
  EXPECT_TRUE(RealCodeTrust().Hold(folder / "engine"));
  constexpr ErrorCode kFileNotFound = 2;
  EXPECT_EQ(RealCodeTrust().Hold(folder / "absent").error(), kFileNotFound);
}

}  // namespace
}  // namespace korvane::platform
