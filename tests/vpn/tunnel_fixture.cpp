#include "vpn/tunnel_fixture.h"

#include <utility>

#include "flutter_boundary/standard_method_codec.h"
#include "vpn/vpn_method_channel.h"

namespace korvane::test {

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

const flutter::StandardMethodCodec& Codec() { return flutter::StandardMethodCodec::GetInstance(); }

// Takes an envelope apart.
class AnswerReader : public flutter::MethodResult<> {
 public:
  Answer answer;

 protected:
  void SuccessInternal(const EncodableValue* result) override {
    answer.kind = "success";
    answer.value = result != nullptr ? *result : EncodableValue();
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    answer.kind = "error";
    answer.code = code;
    answer.message = message;
    answer.has_details = details != nullptr && !details->IsNull();
  }
  void NotImplementedInternal() override { answer.kind = "not implemented"; }
};

std::string TextOf(const EncodableMap& map, const char* key) {
  const auto* text = flutter::FindIf<std::string>(map, key);
  return text != nullptr ? *text : "?";
}

// What a message from the host says, in one line.
std::string Describe(flutter::MessageBytes message) {
  AnswerReader event;
  if (!message.empty() && message[0] <= 1 && Codec().DecodeEnvelope(message, event)) {
    const auto* map = event.answer.value.GetIf<EncodableMap>();
    return map != nullptr ? "event " + TextOf(*map, "status") : "event ?";
  }
  const auto call = Codec().DecodeMethodCall(message);
  if (!call) {
    return "undecodable";
  }
  if (const auto* word = call->arguments().GetIf<std::string>()) {
    return call->method_name() + " " + *word;
  }
  const auto* map = call->arguments().GetIf<EncodableMap>();
  if (map == nullptr) {
    return call->method_name() + " ?";
  }
  return call->method_name() == "onVPNError"
             ? "onVPNError " + TextOf(*map, "code") + ": " + TextOf(*map, "message")
             : call->method_name() + " " + TextOf(*map, "component") + " " +
                   TextOf(*map, "decision");
}

}  // namespace

int DartSide::Deliver(const std::string& channel, const std::string& method,
                      const EncodableValue& arguments) {
  return DeliverBytes(channel, Codec().EncodeMethodCall(flutter::MethodCall<>(method, arguments)));
}

int DartSide::DeliverBytes(const std::string& channel, const std::vector<std::uint8_t>& message) {
  flutter::BinaryMessageHandler handler;
  int delivery = 0;
  {
    const std::lock_guard lock(mutex_);
    handler = handlers_.at(channel);
    delivery = next_delivery_++;
  }
  handler(message, [this, delivery](flutter::MessageBytes reply) {
    const std::lock_guard lock(mutex_);
    Reply& kept = replies_[delivery];
    kept.bytes.assign(reply.begin(), reply.end());
    kept.thread = std::this_thread::get_id();
    ++kept.count;
    replied_.notify_all();
  });
  return delivery;
}

Answer DartSide::Await(int delivery) {
  std::unique_lock lock(mutex_);
  replied_.wait(lock, [&] { return replies_.contains(delivery); });
  const Reply& reply = replies_[delivery];
  AnswerReader reader;
  EXPECT_TRUE(Codec().DecodeEnvelope(reply.bytes, reader));
  reader.answer.on_window_thread = reply.thread == window_thread_;
  return reader.answer;
}

int DartSide::Replies(int delivery) {
  const std::lock_guard lock(mutex_);
  return replies_.contains(delivery) ? replies_[delivery].count : 0;
}

std::vector<std::string> DartSide::Heard() {
  const std::lock_guard lock(mutex_);
  return std::exchange(heard_, {});
}

void DartSide::Send(const std::string& /*channel*/, flutter::MessageBytes message) const {
  std::string line = Describe(message);
  const std::lock_guard lock(mutex_);
  heard_.push_back(std::move(line));
}

void DartSide::SendWithReply(const std::string& channel, flutter::MessageBytes message,
                             flutter::BinaryReply /*reply*/) const {
  Send(channel, message);
}

void DartSide::SetMessageHandler(const std::string& channel,
                                 flutter::BinaryMessageHandler handler) {
  const std::lock_guard lock(mutex_);
  handlers_[channel] = std::move(handler);
}

platform::Status FakeProxySettings::Store(std::uint32_t flags, const std::wstring& server,
                                          const std::wstring& bypass) {
  journal_.Add("proxy " + std::to_string(flags) + " " + Narrow(server));
  if (store_error != 0) {
    return platform::Status::Fail(store_error);
  }
  const MutexLock lock(mutex_);
  current_ = {.flags = flags, .server = server, .bypass = bypass, .auto_config_url = {}};
  return platform::Status::Ok();
}

platform::Result<platform::ConnectionProxy> FakeProxySettings::Query() {
  if (query_fails) {
    return platform::Result<platform::ConnectionProxy>::Fail(12018);
  }
  const MutexLock lock(mutex_);
  return current_;
}

platform::Result<std::uint32_t> FakeScheduledCommand::Run(const std::wstring& command_line) {
  command_lines.push_back(command_line);
  int result = 0;
  if (!results.empty()) {
    result = results.front();
    results.erase(results.begin());
  }
  if (result < 0) {
    return platform::Result<std::uint32_t>::Fail(2);
  }
  return static_cast<std::uint32_t>(result);
}

TunnelTest::TunnelTest() : app_data("APPDATA", folder.path().string()) {
  platform::Os os = platform::RealOs();
  os.clocks = &clock;
  os.loopback_http = &http;
  os.error_stream = &errors;
  os.dynamic_libraries = &libraries;
  os.code_trust = &trust;
  os.proxy_settings = &proxy;
  os.elevation = &elevation;
  os.scheduled_command = &schtasks;
  scoped_os_.emplace(os);
  libraries.present.insert("sing-box.dll");
  FakeEngine::Get().journal = &journal;
}

void TunnelTest::Register() { RegisterVpnChannels(&dart); }

Answer TunnelTest::Call(const std::string& method, const EncodableValue& arguments) {
  const int delivery = dart.Deliver("com.sundrelak.korvane/vpn", method, arguments);
  return dart.Await(delivery);
}

std::vector<std::string> TunnelTest::Lines() {
  std::vector<std::string> lines = errors.lines();
  errors.Clear();
  std::erase(lines, "[VPNManager] Warning: No window handle, attempting direct dispatch");
  return lines;
}

std::string TunnelTest::LinesAsText() {
  std::string text;
  for (const std::string& line : Lines()) {
    text += (text.empty() ? "" : "\n") + line;
  }
  return text;
}

std::filesystem::path TunnelTest::StoredConfig() const {
  return folder / "Korvane" / "vpn_config.dat";
}

std::string ProxyConfig(const std::string& port) {
  return R"({"log":{},"inbounds":[{"type":"mixed","tag":"mixed-in","listen_port":)" + port +
         R"(}],"outbounds":[]})";
}

std::string TunConfig(const std::string& interface_part) {
  return R"({"log":{},"inbounds":[{"type":"tun","tag":"tun-in",)" + interface_part +
         R"("mtu":9000}],"outbounds":[]})";
}

}  // namespace korvane::test
