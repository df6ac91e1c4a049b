#include "stand_ins/interface/played_host.h"

#include <sstream>
#include <stdexcept>

#include "platform/real_os.h"
#include "support/scoped_environment.h"

namespace korvane::test {
namespace {

using platform::RealWindowSystem;
using Bytes = std::vector<std::uint8_t>;

std::string Hex(const std::uint8_t* bytes, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += {"0123456789abcdef"[bytes[i] / 16], "0123456789abcdef"[bytes[i] % 16]};
  }
  return text;
}

Bytes Unhex(const std::string& hex) {
  Bytes bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

void OnMessage(FlutterDesktopMessengerRef messenger, const FlutterDesktopMessage* message,
               void* user_data) {
  PlayedCall call{"", Hex(message->message, message->message_size), messenger,
                  message->response_handle};
  const std::string bytes(message->message, message->message + message->message_size);
  if (bytes.size() >= 2 && bytes[0] == 7) {
    call.name = bytes.substr(2, static_cast<unsigned char>(bytes[1]));
  }
  const auto& host = *static_cast<const PlayedHost*>(user_data);
  host.on_call ? host.on_call(call) : call.Answer("0000");
}

}  // namespace

void PlayedCall::Answer(const std::string& envelope) const {
  const Bytes bytes = Unhex(envelope);
  FlutterDesktopMessengerSendResponse(messenger, handle, bytes.data(), bytes.size());
}

void PlayedCall::Send(const char* channel, const std::string& message) const {
  const Bytes bytes = Unhex(message);
  const std::string whole_name = std::string("com.sundrelak.korvane/") + channel;
  FlutterDesktopMessengerSend(messenger, whole_name.c_str(), bytes.data(), bytes.size());
}

std::vector<Json> PlayedHost::Play(const std::vector<std::string>& script) {
  std::string text;
  for (const std::string& line : script) {
    text += line + "\n";
  }
  WriteBytes(folder_ / "in", text);
  const ScopedEnvironment in("KORVANE_CONSOLE_IN", (folder_ / "in").string());
  const ScopedEnvironment out("KORVANE_CONSOLE_OUT", (folder_ / "out").string());
  Run();
  std::istringstream printed(ReadBytes(folder_ / "out").value());
  std::vector<Json> lines;
  for (std::string line; std::getline(printed, line);) {
    lines.push_back(Json::parse(line));
    lines.back().erase("ms");
  }
  return lines;
}

void PlayedHost::Run() {
  auto& windows = RealWindowSystem();
  FlutterDesktopGetDpiForMonitor(windows.MonitorAt(10, 10));
  static FlutterDesktopViewControllerRef controller;
  const auto procedure = [](platform::WindowHandle window, std::uint32_t message,
                            platform::MessageParameter parameter, platform::MessageData data) {
    if (message == platform::kWmDestroy) {
      FlutterDesktopViewControllerDestroy(controller);
      RealWindowSystem().PostQuit(0);
      return platform::MessageResult{0};
    }
    return RealWindowSystem().DefaultProcedure(window, message, parameter, data);
  };
  if (!windows.RegisterWindowClass({L"PLAYED_HOST", 3, 0, procedure})) {
    throw std::runtime_error("no window class");
  }
  constexpr std::uint32_t kOverlappedWindow = 0xCF0000;
  const auto window =
      windows.Create({L"PLAYED_HOST", L"", kOverlappedWindow, 10, 10, 640, 400, nullptr});
  const FlutterDesktopEngineProperties properties{};
  const auto engine = FlutterDesktopEngineCreate(&properties);
  controller = FlutterDesktopViewControllerCreate(640, 400, engine);
  FlutterDesktopMessengerSetCallback(FlutterDesktopEngineGetMessenger(engine),
                                     "com.sundrelak.korvane/vpn", OnMessage, this);
  windows.SetParent(FlutterDesktopViewGetHWND(FlutterDesktopViewControllerGetView(controller)),
                    window.value());
  if (on_engine) {
    on_engine(engine);
  }
  for (platform::Message message; windows.Next(message) != 0;) {
    windows.Dispatch(message);
  }
}

std::vector<Json> ValuesOf(const std::vector<Json>& lines, const char* key) {
  std::vector<Json> values;
  for (const Json& line : lines) {
    if (line.contains(key)) {
      values.push_back(line[key]);
    }
  }
  return values;
}

}  // namespace korvane::test
