// Signed and tampered copies of the test library lie beside this program (companions/). Wine tells
// an intact signature from a broken one, but accepts any chain: an untrusted signer can't be had
// here.
#include "platform/code_trust.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/real_os.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using std::filesystem::path;

path Beside(const char* name) {
  return path(RealProcess().Executable().value().path).parent_path() / name;
}

std::uint32_t Verify(const char* name) {
  const auto held = RealCodeTrust().Hold(Beside(name));
  EXPECT_TRUE(held) << name << ' ' << held.error();
  return held ? RealCodeTrust().VerifySignature(Beside(name), *held.value()) : 1;
}

std::string Hexadecimal(const std::array<std::uint8_t, 20>& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += "0123456789ABCDEF"[byte >> 4];
    text += "0123456789ABCDEF"[byte & 0xF];
  }
  return text;
}

TEST(CodeTrustTest, IsAvailable) { EXPECT_TRUE(RealCodeTrust().Available()); }

TEST(CodeTrustTest, IntactUnsignedAndTamperedFilesAreToldApart) {
  constexpr std::uint32_t kNoSignature = 0x800B0100;
  constexpr std::uint32_t kBadDigest = 0x80096010;
  EXPECT_EQ(Verify("signed_library.dll"), 0U);
  EXPECT_EQ(Verify("platform_test_library.dll"), kNoSignature);
  EXPECT_EQ(Verify("tampered_library.dll"), kBadDigest);
}

TEST(CodeTrustTest, SignerIsTheOneThatSigned) {
  const SignerLookup found = RealCodeTrust().FindSigner(Beside("signed_library.dll"));
  EXPECT_FALSE(found.query_failed);
  ASSERT_NE(found.certificate, nullptr);
  const auto thumbprint = found.certificate->Sha1Thumbprint();
  ASSERT_TRUE(thumbprint);
  EXPECT_EQ(Hexadecimal(*thumbprint), test::ReadBytes(Beside("signer_thumbprint.txt")));
  EXPECT_EQ(found.certificate->SimpleDisplayName(), L"Korvane Test Signer");
}

TEST(CodeTrustTest, FileWithoutASignatureFailsTheQuery) {
  for (const char* name : {"platform_test_library.dll", "absent.dll"}) {
    const SignerLookup found = RealCodeTrust().FindSigner(Beside(name));
    EXPECT_TRUE(found.query_failed) << name;
    EXPECT_NE(found.error, 0U) << name;
    EXPECT_EQ(found.certificate, nullptr) << name;
  }
}

TEST(CodeTrustTest, HeldFileCanBeReadAndLoadedButNotChanged) {
  const test::TemporaryFolder folder;
  const path file = folder / "engine.dll";
  test::WriteBytes(file, test::ReadBytes(Beside("platform_test_library.dll")).value());
  {
    const auto held = RealCodeTrust().Hold(file);
    ASSERT_TRUE(held) << held.error();
    EXPECT_EQ(::DeleteFileW(file.c_str()), 0);
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_EQ(::CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_TRUE(RealDynamicLibraries().Load(file));
  }
}

}  // namespace
}  // namespace korvane::platform
