// tunnel_fixture.h: tunnel control between a Dart side of plain bytes and a fake engine.
//
// Calls go in as encoded messages and replies come out as bytes; the engine, the proxy settings and
// the error stream write what happens into one journal, in order. Files are real, in a temporary
// folder. Worker threads are real; the test's own thread plays the window thread.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/encodable_value.h"
#include "platform/mutex.h"
#include "platform/os.h"
#include "support/call_journal.h"
#include "support/fake_clock.h"
#include "support/fake_loopback_http.h"
#include "support/recording_error_stream.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "support/user_settings.h"
#include "vpn/fake_engine.h"

namespace korvane::test {

// One answer, decoded: "success", "error" or "not implemented".
struct Answer {
  std::string kind;
  flutter::EncodableValue value;  // of a success
  std::string code;
  std::string message;
  bool has_details = false;
  bool on_window_thread = false;
};

// The Dart side. Any thread may answer or send.
class DartSide : public flutter::BinaryMessenger {
 public:
  // Delivers a call on the calling thread and gives the number of its reply.
  int Deliver(const std::string& channel, const std::string& method,
              const flutter::EncodableValue& arguments);
  int DeliverBytes(const std::string& channel, const std::vector<std::uint8_t>& message);
  // Waits for the reply.
  Answer Await(int delivery);
  // How often a delivery was replied to.
  int Replies(int delivery);

  // What the host said since the last time: "onVPNStateChanged vpn_connected", "event
  // vpn_connected", "onVPNError CODE: message", "onVPNDiagnostic component decision".
  std::vector<std::string> Heard();

  void Send(const std::string& channel, flutter::MessageBytes message) const override;
  void SendWithReply(const std::string& channel, flutter::MessageBytes message,
                     flutter::BinaryReply reply) const override;
  void SetMessageHandler(const std::string& channel,
                         flutter::BinaryMessageHandler handler) override;

 private:
  struct Reply {
    std::vector<std::uint8_t> bytes;
    std::thread::id thread;
    int count = 0;
  };

  mutable std::mutex mutex_;
  std::condition_variable replied_;
  std::map<std::string, flutter::BinaryMessageHandler> handlers_;
  std::map<int, Reply> replies_;
  int next_delivery_ = 1;
  mutable std::vector<std::string> heard_;
  const std::thread::id window_thread_ = std::this_thread::get_id();
};

// Proxy settings in memory; each change is written down. Any thread.
class FakeProxySettings : public platform::ProxySettings {
 public:
  explicit FakeProxySettings(CallJournal& journal) : journal_(journal) {}
  std::atomic<platform::ErrorCode> store_error{0};
  std::atomic<bool> query_fails{false};

  platform::Status Store(std::uint32_t flags, const std::wstring& server,
                         const std::wstring& bypass) override;
  void AnnounceChange() override { journal_.Add("proxy announced"); }
  platform::Result<platform::ConnectionProxy> Query() override;

 private:
  CallJournal& journal_;
  Mutex mutex_;
  platform::ConnectionProxy current_ KORVANE_GUARDED_BY(mutex_);
};

class FakeElevation : public platform::Elevation {
 public:
  std::atomic<bool> administrator{false};
  // Of a launch: its error, or 0 and what the child will have ended with.
  platform::ErrorCode launch_error = platform::kErrorCancelled;
  std::uint32_t exit_code = 0;

  bool IsAdministrator() override { return administrator; }
  std::wstring UserSid() override { return L"S-1-5-21-1"; }
  platform::Result<platform::KernelHandle> LaunchElevated(const std::wstring&,
                                                          const std::wstring&) override {
    if (launch_error != 0) {
      return platform::Result<platform::KernelHandle>::Fail(launch_error);
    }
    return platform::KernelHandle();
  }
  platform::Result<std::uint32_t> ExitCode(const platform::KernelHandle&) override {
    return exit_code;
  }
};

class FakeScheduledCommand : public platform::ScheduledCommand {
 public:
  // Exit codes of the next runs, then 0; a negative one is a command that can't be started.
  std::vector<int> results;
  std::vector<std::wstring> command_lines;
  platform::Result<std::uint32_t> Run(const std::wstring& command_line) override;
};

class TunnelTest : public ::testing::Test {
 protected:
  TunnelTest();

  // Registers the channels on the Dart side, with the fake engine beside the executable.
  void Register();
  // Calls a method on the channel "vpn" and waits for its answer.
  Answer Call(const std::string& method, const flutter::EncodableValue& arguments = {});
  // Error-stream lines since the last time, less the warning that no window is known.
  std::vector<std::string> Lines();
  // The same as one text, a line feed between two lines.
  std::string LinesAsText();
  // Path of the stored configuration.
  std::filesystem::path StoredConfig() const;

  CallJournal journal;
  FakeClock clock;
  FakeLoopbackHttp http;
  RecordingErrorStream errors;
  FakeLibraries libraries;
  FakeCodeTrust trust{libraries};
  FakeProxySettings proxy{journal};
  FakeElevation elevation;
  FakeScheduledCommand schtasks;
  TemporaryFolder folder;
  ScopedEnvironment app_data;
  ScopedUserSettings settings;
  DartSide dart;

 private:
  std::optional<platform::ScopedOs> scoped_os_;
};

// Configurations of the shapes that tunnel control tells apart.
std::string ProxyConfig(const std::string& port = "2080");
std::string TunConfig(const std::string& interface_part = "\"interface_name\": \"tun0\",");

}  // namespace korvane::test
