// fake_flutter_library.h: the interface engine's library inside the test program.
//
// Defines the 24 functions of flutter_windows_abi.h (and the plug-ins' registration functions, see
// fake_plugins.cpp) and plays the Dart side of the channels with plain bytes. One engine per
// process, there from the start: messenger() works before the host has created it. The thread that
// calls DeliverMessage, ReplyToSent, DrawFrame and DestroyEngine plays the platform thread; the
// rest, and the C functions, may be called on any thread.
//
// What no host may do is noted as a fault: a response twice, without the lock or by an engine that
// is gone; a handle used after its last release; an engine that is destroyed twice. A nested lock
// aborts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "flutter_boundary/flutter_windows_abi.h"

namespace korvane::test::fake_flutter {

using Bytes = std::vector<std::uint8_t>;

struct SentMessage {
  std::string channel;
  Bytes message;
  bool awaits_reply = false;
  std::thread::id thread;
};

struct Reply {
  Bytes bytes;
  std::thread::id thread;
};

// A copy of the record that the engine was created from.
struct Properties {
  std::wstring assets_path;
  std::wstring icu_data_path;
  std::wstring aot_library_path;
  std::string dart_entrypoint;
  std::vector<std::string> arguments;
  std::vector<std::int32_t> engine_words;
  std::int32_t impeller_mode = 0;
  std::uint8_t engine_flag = 0;
};

struct WindowMessage {
  void* window = nullptr;
  std::uint32_t message = 0;
  std::uintptr_t wparam = 0;
  std::intptr_t lparam = 0;
};

// Hands a message to the channel's receiver; the number names its reply. A channel without a
// receiver gets the empty reply at once.
int DeliverMessage(const std::string& channel, const Bytes& message);
// The same with nobody waiting for a reply.
void DeliverOneWay(const std::string& channel, const Bytes& message);
// Nothing as long as the message is unanswered.
std::optional<Reply> ReplyOf(int delivery);
bool HasReceiver(const std::string& channel);

// What the host has sent towards Dart, in order.
std::vector<SentMessage> Sent();
// Replies to the message at that place of Sent(). Each at most once.
void ReplyToSent(std::size_t place, const Bytes& reply);

FlutterDesktopEngineRef engine();
FlutterDesktopMessengerRef messenger();
// The end of the engine as the end of its view controller brings it about. Waits for the lock.
void DestroyEngine();
// Runs the next-frame callback; false when none is registered.
bool DrawFrame();
// The engine consumes this window message, with this result.
void Consume(std::uint32_t message, std::intptr_t result);
std::vector<WindowMessage> WindowMessages();
// The record of the last EngineCreate.
Properties CreatedWith();
// What FlutterDesktopEngineGetGraphicsAdapter, GetDpiForMonitor and ViewGetHWND give from now on:
// false, 96 and some window at first.
void SetGraphicsAdapter(bool found, void* adapter);
void SetMonitorDpi(std::uint32_t dpi);
void* ViewWindow();

// Every send is refused from now on; EngineCreate, ViewControllerCreate give null.
void RefuseSends();
void FailEngineCreate();
void FailViewControllerCreate();

// The calls about engine, view, output streams and plug-ins in order, by the name behind
// "FlutterDesktop", with the plug-in's name where there is one: "EngineGetPluginRegistrar X". The
// plug-ins' own functions join in (fake_plugins.h).
std::vector<std::string> Calls();
// References to the messenger beyond the engine's own, and how often it was locked.
int MessengerReferences();
int MessengerLocks();
std::vector<std::string> Faults();

// For the fake's own files.
void NoteCall(std::string call);
std::string RegistrarName(FlutterDesktopPluginRegistrarRef registrar);

}  // namespace korvane::test::fake_flutter
