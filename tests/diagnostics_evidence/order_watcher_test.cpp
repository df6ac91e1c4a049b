// Each watched order, broken: the watcher must say so, or it would watch nothing.
#include "support/order_watcher.h"

#include <gtest/gtest.h>

#include <gtest/gtest-spi.h>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_world.h"
#include "support/call_journal.h"

namespace korvane::test {
namespace {

constexpr char kRoot[] = "/roaming/Korvane/";
constexpr wchar_t kKey[] = L"Software\\Korvane";
constexpr wchar_t kSwitch[] = L"WindowsDiagnosticsEnabled";

void Remove(const std::string& name) {
  static_cast<void>(platform::os().files->RemoveFile(EvidencePath(kRoot + name)));
}

void Switch(std::uint32_t data) {
  static_cast<void>(platform::os().registry->WriteDword(platform::RegistryHive::kCurrentUser, kKey,
                                                        kSwitch, data));
}

void CommitManifest(const std::string& session) {
  EXPECT_TRUE(commitFile(std::string(kRoot) + "incidents/i/manifest.json",
                         R"({"session_id":")" + session + R"("})"));
}

void ReadManifest() {
  std::string text;
  EXPECT_TRUE(readBounded(std::string(kRoot) + "incidents/i/manifest.json", 100, text));
}

struct BrokenOrder {
  const char* what;
  void (*make)();
  const char* told;
};

const BrokenOrder kBrokenOrders[] = {
    {"a marker goes with no manifest", [] { Remove("libbox_session_active"); },
     "libbox_session_active"},
    {"a marker goes behind a manifest that was not read back",
     [] {
       CommitManifest("s1");
       Remove("libbox_session_active");
     },
     "libbox_session_active"},
    {"a marker goes behind the manifest of another session",
     [] {
       CommitManifest("s2");
       ReadManifest();
       Remove("libbox_clean_shutdown");
     },
     "libbox_clean_shutdown"},
    {"a manifest is written anew and not read back",
     [] {
       CommitManifest("s1");
       ReadManifest();
       CommitManifest("s1");
       Remove("libbox_session_active");
     },
     "libbox_session_active"},
    {"a record of a result goes", [] { Remove("libbox_shutdown_record.json"); },
     "libbox_shutdown_record.json"},
    {"the switch is set without a revocation", [] { Switch(1); }, "no revocation stands"},
    {"the revocation goes before the switch is set",
     [] {
       EXPECT_TRUE(commitFile(std::string(kRoot) + "windows_diagnostics_revoked", "revoked\n"));
       Switch(0);
       Remove("windows_diagnostics_revoked");
     },
     "before the registry said 1"},
    {"a file takes its name before it is flushed",
     [] {
       auto& files = *platform::os().files;
       auto file = files.Open(EvidencePath(std::string(kRoot) + "a.tmp"),
                              platform::OpenMode::kWriteExclusive);
       EXPECT_TRUE(files.Write(file.value(), "bytes"));
       EXPECT_TRUE(files.Rename(EvidencePath(std::string(kRoot) + "a.tmp"),
                                EvidencePath(std::string(kRoot) + "a")));
     },
     "renamed before it was flushed: a.tmp"},
    {"the proxy is cleared before the engine is closed",
     [] {
       CallJournal calls;
       for (const char* call : {"new", "start 1", "proxy 3 127.0.0.1:1", "proxy 1 ", "close 1"}) {
         calls.Add(call);
       }
     },
     "before the engine was closed"},
    {"the process exits with the instance mutex",
     [] {
       CallJournal calls;
       for (const char* call :
            {"CreateNamedMutex(mutex, owned)", "ReleaseMutex(mutex)", "Exit(0)"}) {
         calls.Add(call);
       }
     },
     "before its instance mutex is given up"},
    {"the process exits and owns a mutex",
     [] {
       CallJournal calls;
       FakeKernelObjects objects(calls);
       FakeProcess process(calls);
       platform::Os os = platform::os();
       os.kernel_objects = &objects;
       os.process = &process;
       const CountingOs counting(os);
       const auto made = counting.os().kernel_objects->CreateNamedMutex(L"Local\\other", true);
       EXPECT_THROW(counting.os().process->Exit(0), ProcessExit);
     },
     "still owns a mutex"},
};

TEST(OrderWatcher, TellsEachBrokenOrder) {
  for (const BrokenOrder& order : kBrokenOrders) {
    SCOPED_TRACE(order.what);
    EvidenceWorld world;
    world.Put("libbox_session_active", MarkerText("s1"));
    world.Put("libbox_clean_shutdown", MarkerText("s1"));
    world.Put("libbox_shutdown_record.json",
              RecordText({{"session_id", "s1"}, {"state", "completed"}}));
    world.Start();
    testing::TestPartResultArray told;
    {
      const testing::ScopedFakeTestPartResultReporter reporter(
          testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &told);
      order.make();
    }
    ASSERT_GE(told.size(), 1);
    EXPECT_NE(std::string(told.GetTestPartResult(0).message()).find(order.told), std::string::npos)
        << told.GetTestPartResult(0).message();
  }
}

}  // namespace
}  // namespace korvane::test
