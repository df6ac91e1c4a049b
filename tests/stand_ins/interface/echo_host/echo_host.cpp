// echo_host.cpp: a host that does what the console's calls tell it, byte for byte.
//
// It has no codec: it looks at a call's name and at the bytes behind it, so that what the console
// encodes and decodes is seen as bytes by the test. Methods of the channel "vpn":
//
//   hex                      answers with the call's own bytes, in hexadecimal, as a string
//   length                   answers with their number, in decimal, as a string
//   say, say_later           answer with the bytes of the argument {"$bytes":..}, on the window's
//                            thread or on a worker
//   say_twice                answers twice
//   never                    doesn't answer
//   send, emit               send the argument's bytes on the channel "vpn" or "vpn_events"
//   ask                      sends them with a reply; the reply's bytes are the answer
//   adapter                  answers with the description of the graphics adapter
//   frame                    registers a next-frame callback and asks for a frame
//   consumed                 offers the message 536 to the engine; answers "yes" or "no"
//   unlocked                 answers on a worker without the messenger's lock
//   quit                     ends the engine, answers behind its end, and leaves with 7
//
// The channel "core" has no receiver. Exit codes: 0 when the window was closed, 1 when the engine
// or the view controller refused.
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "flutter_boundary/flutter_windows_abi.h"
#include "platform/real_os.h"

namespace {

using korvane::platform::MessageData;
using korvane::platform::MessageParameter;
using korvane::platform::MessageResult;
using korvane::platform::RealWindowSystem;
using korvane::platform::WindowHandle;
using Bytes = std::vector<std::uint8_t>;
using Handle = const FlutterDesktopMessageResponseHandle*;

constexpr char kVpn[] = "com.sundrelak.korvane/vpn";
constexpr char kVpnEvents[] = "com.sundrelak.korvane/vpn_events";

FlutterDesktopEngineRef g_engine = nullptr;
FlutterDesktopViewControllerRef g_controller = nullptr;
WindowHandle g_window = nullptr;

struct Call {
  FlutterDesktopMessengerRef messenger;
  Handle handle;
  std::string name;
  Bytes message;
  Bytes payload;  // of an argument that is a short list of bytes
};

Bytes StringReply(const std::string& text) {
  const auto size = static_cast<std::uint32_t>(text.size());
  Bytes reply{0, 7, 255};
  for (int shift = 0; shift < 32; shift += 8) {
    reply.push_back(static_cast<std::uint8_t>(size >> shift));
  }
  reply.insert(reply.end(), text.begin(), text.end());
  return reply;
}

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const auto byte : bytes) {
    text.push_back("0123456789abcdef"[byte / 16]);
    text.push_back("0123456789abcdef"[byte % 16]);
  }
  return text;
}

void Answer(const Call& call, const Bytes& reply) {
  FlutterDesktopMessengerSendResponse(call.messenger, call.handle, reply.data(), reply.size());
}

void AnswerOnWorker(const Call& call) {
  FlutterDesktopMessengerAddRef(call.messenger);
  std::thread([call] {
    FlutterDesktopMessengerLock(call.messenger);
    if (FlutterDesktopMessengerIsAvailable(call.messenger)) {
      Answer(call, call.payload);
    }
    FlutterDesktopMessengerUnlock(call.messenger);
    FlutterDesktopMessengerRelease(call.messenger);
  }).detach();
}

void AnswerWithoutLock(const Call& call) {
  std::thread([&] { Answer(call, {0, 0}); }).join();
}

void Ask(const Call& call) {
  FlutterDesktopMessengerSendWithReply(
      call.messenger, kVpn, call.payload.data(), call.payload.size(),
      [](const std::uint8_t* data, std::size_t size, void* user_data) {
        const auto* asked = static_cast<const Call*>(user_data);
        Answer(*asked, StringReply(Hex(Bytes(data, data + size))));
        delete asked;  // NOLINT(cppcoreguidelines-owning-memory): it went through the C interface
      },
      new Call(call));  // NOLINT(cppcoreguidelines-owning-memory): likewise
}

// Through the table of functions, as whoever has no header of the system's.
std::string AdapterText() {
  struct Adapter {
    void* const* table;
  };
  void* raw = nullptr;
  if (!FlutterDesktopEngineGetGraphicsAdapter(g_engine, &raw)) {
    return "refused";
  }
  auto* adapter = static_cast<Adapter*>(raw);
  struct {
    char16_t text[128];
    char rest[48];
  } record{};
  const auto get_desc = reinterpret_cast<std::int32_t (*)(Adapter*, void*)>(adapter->table[8]);
  const auto release = reinterpret_cast<std::uint32_t (*)(Adapter*)>(adapter->table[2]);
  const auto result = get_desc(adapter, &record);
  const bool was_last = release(adapter) == 0;
  if (result < 0) {
    return "failed";
  }
  std::string text;
  for (const char16_t* c = record.text; *c != 0; ++c) {
    text.push_back(static_cast<char>(*c));
  }
  return was_last ? text : "leaked";
}

void RequestFrame() {
  FlutterDesktopEngineSetNextFrameCallback(
      g_engine, [](void*) { RealWindowSystem().Show(g_window, korvane::platform::kShowNormal); },
      nullptr);
  FlutterDesktopViewControllerForceRedraw(g_controller);
}

std::string Consumed() {
  std::intptr_t result = -1;
  return FlutterDesktopViewControllerHandleTopLevelWindowProc(g_controller, g_window, 536, 0, 0,
                                                              &result)
             ? "yes"
             : "no";
}

void Quit(const Call& call) {
  FlutterDesktopMessengerAddRef(call.messenger);
  FlutterDesktopViewControllerDestroy(g_controller);
  FlutterDesktopMessengerLock(call.messenger);
  const bool available = FlutterDesktopMessengerIsAvailable(call.messenger);
  FlutterDesktopMessengerUnlock(call.messenger);
  FlutterDesktopMessengerRelease(call.messenger);
  std::_Exit(available ? 8 : 7);
}

const std::map<std::string, std::function<void(const Call&)>, std::less<>>& Methods() {
  static const std::map<std::string, std::function<void(const Call&)>, std::less<>> methods{
      {"hex", [](const Call& call) { Answer(call, StringReply(Hex(call.message))); }},
      {"length",
       [](const Call& call) { Answer(call, StringReply(std::to_string(call.message.size()))); }},
      {"say", [](const Call& call) { Answer(call, call.payload); }},
      {"say_later", AnswerOnWorker},
      {"say_twice",
       [](const Call& call) {
         Answer(call, call.payload);
         Answer(call, call.payload);
       }},
      {"never", [](const Call&) {}},
      {"send",
       [](const Call& call) {
         FlutterDesktopMessengerSend(call.messenger, kVpn, call.payload.data(),
                                     call.payload.size());
         Answer(call, {0, 0});
       }},
      {"emit",
       [](const Call& call) {
         FlutterDesktopMessengerSend(call.messenger, kVpnEvents, call.payload.data(),
                                     call.payload.size());
         Answer(call, {0, 0});
       }},
      {"ask", Ask},
      {"adapter", [](const Call& call) { Answer(call, StringReply(AdapterText())); }},
      {"frame",
       [](const Call& call) {
         RequestFrame();
         Answer(call, {0, 0});
       }},
      {"consumed", [](const Call& call) { Answer(call, StringReply(Consumed())); }},
      {"unlocked", AnswerWithoutLock},
      {"quit", Quit},
  };
  return methods;
}

// A call's name and the content of a list of up to 253 bytes behind it. Other messages have no
// name.
Call Split(FlutterDesktopMessengerRef messenger, const FlutterDesktopMessage& message) {
  Call call{messenger, message.response_handle, "", {}, {}};
  call.message.assign(message.message, message.message + message.message_size);
  const auto& bytes = call.message;
  if (bytes.size() < 2 || bytes[0] != 7 || bytes.size() < 2U + bytes[1]) {
    return call;
  }
  const std::size_t end = 2U + bytes[1];
  call.name.assign(bytes.begin() + 2, bytes.begin() + static_cast<std::ptrdiff_t>(end));
  if (bytes.size() >= end + 2 && bytes[end] == 8) {
    call.payload.assign(bytes.begin() + static_cast<std::ptrdiff_t>(end + 2), bytes.end());
  }
  return call;
}

void OnCall(FlutterDesktopMessengerRef messenger, const FlutterDesktopMessage* message,
            void* /*user_data*/) {
  const auto call = Split(messenger, *message);
  const auto method = Methods().find(call.name);
  if (method == Methods().end()) {
    return Answer(call, {});
  }
  method->second(call);
}

// Answers "listen" with null and anything else with an error envelope.
void OnEventCall(FlutterDesktopMessengerRef messenger, const FlutterDesktopMessage* message,
                 void* /*user_data*/) {
  const auto call = Split(messenger, *message);
  Answer(call, call.name == "listen" ? Bytes{0, 0} : Bytes{1, 7, 1, 'E', 0, 0});
}

MessageResult Procedure(WindowHandle window, std::uint32_t message, MessageParameter parameter,
                        MessageData data) {
  if (message == korvane::platform::kWmDestroy) {
    FlutterDesktopViewControllerDestroy(g_controller);
    RealWindowSystem().PostQuit(0);
    return 0;
  }
  return RealWindowSystem().DefaultProcedure(window, message, parameter, data);
}

bool MakeWindow() {
  auto& windows = RealWindowSystem();
  FlutterDesktopGetDpiForMonitor(windows.MonitorAt(10, 10));
  if (!windows.RegisterWindowClass({L"ECHO_HOST", 3, 0, Procedure}).ok()) {
    return false;
  }
  constexpr std::uint32_t kOverlappedWindow = 0xCF0000;
  const auto window =
      windows.Create({L"ECHO_HOST", L"Echo host", kOverlappedWindow, 10, 10, 640, 400, nullptr});
  if (!window.ok()) {
    return false;
  }
  g_window = window.value();
  return true;
}

bool StartEngine(std::vector<const char*> arguments) {
  FlutterDesktopEngineProperties properties{};
  properties.assets_path = L"data\\flutter_assets";
  properties.icu_data_path = L"data\\icudtl.dat";
  properties.aot_library_path = L"data\\app.so";
  properties.dart_entrypoint = "";
  properties.dart_entrypoint_argc = static_cast<int>(arguments.size());
  properties.dart_entrypoint_argv = arguments.data();
  properties.impeller_mode = 2;
  g_engine = FlutterDesktopEngineCreate(&properties);
  if (g_engine == nullptr) {
    return false;
  }
  g_controller = FlutterDesktopViewControllerCreate(640, 400, g_engine);
  return g_controller != nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (!MakeWindow() || !StartEngine({argv + 1, argv + argc})) {
    return 1;
  }
  const auto view = FlutterDesktopViewControllerGetView(g_controller);
  auto& windows = RealWindowSystem();
  windows.SetParent(FlutterDesktopViewGetHWND(view), g_window);
  windows.Move(FlutterDesktopViewGetHWND(view), windows.ClientRectangle(g_window));
  const auto messenger = FlutterDesktopEngineGetMessenger(g_engine);
  FlutterDesktopMessengerSetCallback(messenger, kVpn, OnCall, nullptr);
  FlutterDesktopMessengerSetCallback(messenger, kVpnEvents, OnEventCall, nullptr);
  RequestFrame();
  korvane::platform::Message message;
  while (windows.Next(message) != 0) {
    windows.Dispatch(message);
  }
  return 0;
}
