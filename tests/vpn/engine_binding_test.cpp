#include "vpn/engine_binding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/os.h"
#include "support/fake_process.h"
#include "vpn/engine_signature.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The executable's folder as the host spells it.
std::string Folder() {
  const std::wstring path = platform::os().process->Executable().value().path;
  const std::wstring folder = path.substr(0, path.find_last_of(L"\\/"));
  return platform::os().text->WideToUtf8Lossy(folder);
}

std::string Joined(const std::string& folder, const std::string& name) {
  return folder + platform::os().text->PathSeparator() + name;
}

class EngineBindingTest : public TunnelTest {};

TEST_F(EngineBindingTest, LibraryBesideTheProgramComesFirst) {
  libraries.present.insert("dll/sing-box.dll");
  vpn_state().core_integrity_failed = true;
  EXPECT_TRUE(LoadEngine());
  EXPECT_THAT(libraries.loads, ElementsAre("sing-box.dll"));
  EXPECT_FALSE(vpn_state().core_integrity_failed);
  EXPECT_THAT(Lines(), IsEmpty());
  EXPECT_EQ(errors.silence_calls(), 1);
  EXPECT_TRUE(LoadEngine());
  EXPECT_EQ(errors.silence_calls(), 1) << "once in the process's life";
}

TEST_F(EngineBindingTest, LibraryInTheFolderBelowIsTheSecondChoice) {
  libraries.present = {"dll/sing-box.dll"};
  EXPECT_TRUE(LoadEngine());
  EXPECT_THAT(libraries.loads, ElementsAre("dll/sing-box.dll"));
}

TEST_F(EngineBindingTest, MissingLibraryNamesBothPlacesAndTheHostRunsOn) {
  libraries.present.clear();
  Register();
  const std::string first = Joined(Folder(), "sing-box.dll");
  const std::string second = Joined(Joined(Folder(), "dll"), "sing-box.dll");
  EXPECT_THAT(Lines(), ElementsAre("Failed to load sing-box.dll from: " + first + " (error 2), " +
                                       second + " (error 2)",
                                   "Failed to load libbox DLL"));
  EXPECT_EQ(Call("getCoreVersion").value, flutter::EncodableValue("sing-box DLL not loaded"));
  const Answer answer = Call("connectForNodeSwitching", flutter::EncodableValue(ProxyConfig()));
  EXPECT_EQ(answer.message, "DLL functions not loaded");
}

TEST_F(EngineBindingTest, StandardErrorThatCantBeSilencedMeansNoEngine) {
  errors.SetSilenceResult(platform::Status::Fail(6));
  EXPECT_FALSE(LoadEngine());
  EXPECT_THAT(Lines(),
              ElementsAre("[SECURITY] Runtime stderr privacy setup failed; core unavailable"));
  EXPECT_THAT(libraries.loads, IsEmpty());
}

TEST_F(EngineBindingTest, MissingExportsAreToldAndTheRestStaysBound) {
  EngineTable& engine = vpn_state().engine;
  for (const std::string missing :
       {"singbox_new_service", "singbox_start_service", "singbox_close_service",
        "singbox_get_version", "singbox_get_last_error", "singbox_free_string"}) {
    libraries.missing_exports = {missing};
    EXPECT_FALSE(LoadEngine()) << missing;
    EXPECT_THAT(Lines(),
                ElementsAre("[ERROR] Failed to get all required function pointers from DLL"));
    EXPECT_NE(engine.module, nullptr) << missing;
    EXPECT_EQ(engine.singbox_new_service == nullptr, missing == "singbox_new_service");
    EXPECT_EQ(engine.singbox_start_service == nullptr, missing == "singbox_start_service");
  }
  // Without a way to free, a text is read all the same and stays the engine's.
  engine.singbox_get_version = engine.singbox_get_last_error = [] {
    static char text[] = "1.11.0";
    return text;
  };
  EXPECT_EQ(ReadCoreVersion(), "1.11.0");
  EXPECT_THAT(Lines(), ElementsAre("[WARNING] singbox_free_string crashed while freeing core "
                                   "version buffer"));
  EXPECT_EQ(ReadEngineError(engine), "1.11.0");
  libraries.missing_exports = {"singbox_get_last_error"};
  EXPECT_FALSE(LoadEngine());
  EXPECT_EQ(ReadEngineError(engine), std::nullopt);
  Lines();
  libraries.missing_exports = {"singbox_set_crash_output"};
  EXPECT_TRUE(LoadEngine());
  EXPECT_THAT(Lines(), ElementsAre("[DIAG] singbox_set_crash_output not exported by this core "
                                   "\u2014 crash output unsupported (continuing)"));
}

TEST_F(EngineBindingTest, PathThatTellsNoFolderMeansNoEngine) {
  CallJournal calls;
  FakeProcess process(calls);
  platform::Os os = platform::os();
  os.process = &process;
  const platform::ScopedOs in_force(os);
  using Path = platform::Result<platform::ExecutablePath>;
  const struct {
    Path path;
    const char* line;
  } rows[] = {
      {Path::Fail(8), "Failed to resolve korvane.exe path. Error: 8"},
      {Path({.path = L"C:\\a\\korvane.exe", .truncated = true, .error = 122}),
       "Failed to resolve korvane.exe path. Error: 122"},
      {Path({.path = L"korvane.exe"}), "Failed to resolve korvane.exe directory from: korvane.exe"},
  };
  for (const auto& row : rows) {
    process.executable = row.path;
    EXPECT_FALSE(LoadEngine());
    EXPECT_THAT(Lines(), ElementsAre(row.line));
  }
  EXPECT_THAT(libraries.loads, IsEmpty());
}

TEST_F(EngineBindingTest, VersionIsAWordWhateverTheEngineDoes) {
  const struct {
    const char* why;
    const char* version;
    bool version_crashes, free_crashes;
    const char *expected, *line;
  } rows[] = {
      {"a version", "1.11.0", false, false, "1.11.0", ""},
      {"bytes of the code page", "1.11-\xE9", false, false, "1.11-\u00E9", ""},
      {"none", nullptr, false, false, "Unknown", ""},
      {"empty", "", false, false, "Unknown", ""},
      {"a crash", "1.11.0", true, false, "Unavailable",
       "[ERROR] singbox_get_version crashed during startup/version query"},
      {"a crash behind it", "1.11.0", false, true, "1.11.0",
       "[WARNING] singbox_free_string crashed while freeing core version buffer"},
  };
  for (const auto& row : rows) {
    libraries.RestartGuards(row.version_crashes, row.free_crashes);
    ASSERT_TRUE(LoadEngine());
    FakeEngine::Get().version = row.version;
    FakeEngine::Get().open_strings = 0;
    EXPECT_EQ(ReadCoreVersion(), row.expected) << row.why;
    EXPECT_EQ(LinesAsText(), row.line) << row.why;
    EXPECT_EQ(FakeEngine::Get().open_strings, 0) << row.why;
  }
}

constexpr std::array<std::uint8_t, 20> kThumbprint = {0x0A, 0xBC, 1,  2,  3,  4,  5,  6,  7,  8,
                                                      9,    10,   11, 12, 13, 14, 15, 16, 17, 0xFF};
constexpr char kThumbprintText[] = "0ABC0102030405060708090A0B0C0D0E0F1011FF";

// Three characters stand where a dash is meant, and stay.
constexpr char kAudit[] =
    "[SECURITY][AUDIT] sing-box.dll FAILED verification; loading anyway (audit-only default "
    "\u00E2\u20AC\u201D would be refused under KORVANE_CORE_VERIFY_ENFORCE): ";

TEST_F(EngineBindingTest, SignatureIsAuditedAndTheFileIsLoadedAllTheSame) {
  trust.available = true;
  trust.thumbprint = kThumbprint;
  trust.display_name = L"Someone Else Ltd";
  const std::wstring path = L"sing-box.dll";
  const std::string audit = kAudit + std::string("sing-box.dll");
  const std::wstring right(kThumbprintText, kThumbprintText + sizeof(kThumbprintText) - 1);
  const std::wstring wrong = L"0abc" + right.substr(4);
  const SignerPin none, by_print = {right, L"never looked at"},
                        by_other_print = {wrong, L"Someone"};
  const SignerPin by_name = {L"", L"Else"}, by_other_name = {L"", L"else"};
  const struct {
    const char* why;
    std::uint32_t status;
    SignerPin pin;
    bool query_fails, has_certificate;
    std::string lines;
  } rows[] = {
      {"unsigned", 0x800B0100, none, false, true,
       "[SECURITY] Authenticode verification failed for sing-box.dll (status 0x800b0100)\n" +
           audit},
      {"valid, nothing pinned", 0, none, false, true,
       "[SECURITY][WARN] core signer pinning not configured (thumbprint/subject empty); relying "
       "on Authenticode validity only for sing-box.dll"},
      {"thumbprint", 0, by_print, false, true, ""},
      {"thumbprint in lower case", 0, by_other_print, false, true,
       std::string("[SECURITY] core signer thumbprint mismatch (expected 0abc") +
           (kThumbprintText + 4) + ", got " + kThumbprintText + ")\n" + audit},
      {"subject", 0, by_name, false, true, ""},
      {"another subject", 0, by_other_name, false, true,
       "[SECURITY] core signer subject mismatch (expected substring 'else', got 'Someone Else "
       "Ltd')\n" +
           audit},
      {"no signature to be read", 0, by_print, true, true,
       "[SECURITY] CryptQueryObject failed for sing-box.dll (error 2148081673)\n" + audit},
      {"no certificate", 0, by_print, false, false, audit},
      {"a certificate that tells no thumbprint", 0, by_print, false, true, audit},
      {"a certificate that tells no name", 0, by_name, false, true, audit},
  };
  for (const auto& row : rows) {
    trust.status = row.status;
    trust.query_fails = row.query_fails;
    trust.has_certificate = row.has_certificate;
    if (std::string_view(row.why).starts_with("a certificate")) {
      trust.thumbprint.reset();
      trust.display_name.reset();
    }
    libraries.loads.clear();
    EXPECT_TRUE(VerifyAndLoadEngineFile(path, row.pin)) << row.why;
    EXPECT_EQ(LinesAsText(), row.lines) << row.why;
    EXPECT_THAT(libraries.loads, ElementsAre("sing-box.dll")) << row.why;
  }
}

TEST_F(EngineBindingTest, NoSignatureTestMeansNoSecurityLines) {
  trust.status = 0x800B0100;
  EXPECT_TRUE(VerifyAndLoadEngineFile(L"sing-box.dll"));
  EXPECT_EQ(VerifyAndLoadEngineFile(L"absent.dll").error(), 2U);
  EXPECT_THAT(Lines(), IsEmpty());
}

}  // namespace
}  // namespace korvane::test
