#include "support/flutter/fake_flutter_library.h"

#include <cstdlib>
#include <deque>
#include <map>
#include <utility>

#include "platform/mutex.h"
#include "platform/no_destructor.h"

struct FlutterDesktopMessageResponse {
  int delivery;
};

struct FlutterDesktopPluginRegistrar {
  std::string name;
};

// The other handles have one object each; only their addresses matter.
struct FlutterDesktopMessenger {};
struct FlutterDesktopEngine {};
struct FlutterDesktopViewController {};
struct FlutterDesktopView {};

namespace korvane::test::fake_flutter {

namespace {

struct Receiver {
  FlutterDesktopMessageCallback callback = nullptr;
  void* user_data = nullptr;
};

struct AwaitedReply {
  FlutterDesktopBinaryReply callback = nullptr;
  void* user_data = nullptr;
};

struct Library {
  FlutterDesktopEngine engine;
  FlutterDesktopViewController controller;
  FlutterDesktopView view;
  FlutterDesktopMessenger messenger;
  char window = 0;

  // The messenger's own lock, between Lock and Unlock. Taken before `mutex`.
  std::mutex lock;

  Mutex mutex;
  bool alive KORVANE_GUARDED_BY(mutex) = true;
  int references KORVANE_GUARDED_BY(mutex) = 1;
  int locks KORVANE_GUARDED_BY(mutex) = 0;
  std::thread::id lock_owner KORVANE_GUARDED_BY(mutex);
  std::map<std::string, Receiver> receivers KORVANE_GUARDED_BY(mutex);
  // Deques: handles point into them.
  std::deque<FlutterDesktopMessageResponse> responses KORVANE_GUARDED_BY(mutex);
  std::deque<FlutterDesktopPluginRegistrar> registrars KORVANE_GUARDED_BY(mutex);
  std::map<int, Reply> replies KORVANE_GUARDED_BY(mutex);
  std::vector<SentMessage> sent KORVANE_GUARDED_BY(mutex);
  std::map<std::size_t, AwaitedReply> awaited KORVANE_GUARDED_BY(mutex);
  FlutterDesktopVoidCallback next_frame KORVANE_GUARDED_BY(mutex) = nullptr;
  void* next_frame_data KORVANE_GUARDED_BY(mutex) = nullptr;
  std::map<std::uint32_t, std::intptr_t> consumed KORVANE_GUARDED_BY(mutex);
  std::vector<WindowMessage> window_messages KORVANE_GUARDED_BY(mutex);
  Properties created_with KORVANE_GUARDED_BY(mutex);
  bool adapter_found KORVANE_GUARDED_BY(mutex) = false;
  void* adapter KORVANE_GUARDED_BY(mutex) = nullptr;
  std::uint32_t dpi KORVANE_GUARDED_BY(mutex) = 96;
  bool refuse_sends KORVANE_GUARDED_BY(mutex) = false;
  bool fail_engine KORVANE_GUARDED_BY(mutex) = false;
  bool fail_controller KORVANE_GUARDED_BY(mutex) = false;
  std::vector<std::string> calls KORVANE_GUARDED_BY(mutex);
  std::vector<std::string> faults KORVANE_GUARDED_BY(mutex);

  void CheckUsable(const char* call) KORVANE_REQUIRES(mutex) {
    if (references <= 0) {
      faults.push_back(std::string(call) + " on a released messenger");
    }
  }
};

Library& library() {
  static NoDestructor<Library> library;
  return *library;
}

// One member, read or set under the lock.
template <typename Value>
Value Read(Value Library::*member) {
  const MutexLock lock(library().mutex);
  return library().*member;
}

template <typename Value>
void Set(Value Library::*member, Value value) {
  const MutexLock lock(library().mutex);
  library().*member = std::move(value);
}

Bytes Copy(const std::uint8_t* data, std::size_t size) {
  return size == 0 ? Bytes() : Bytes(data, data + size);
}

void Deliver(const std::string& channel, const Bytes& message,
             const FlutterDesktopMessageResponseHandle* response) {
  Receiver receiver;
  {
    const MutexLock lock(library().mutex);
    if (const auto found = library().receivers.find(channel); found != library().receivers.end()) {
      receiver = found->second;
    } else if (response != nullptr) {
      library().replies[response->delivery] = {{}, std::this_thread::get_id()};
    }
  }
  if (receiver.callback != nullptr) {
    // In memory of its own, which is gone when the callback returns.
    const Bytes bytes(message.begin(), message.end());
    const FlutterDesktopMessage record = {sizeof(record), channel.c_str(), bytes.data(),
                                          bytes.size(), response};
    receiver.callback(messenger(), &record, receiver.user_data);
  }
}

bool Take(const char* channel, const std::uint8_t* message, std::size_t size,
          std::optional<AwaitedReply> reply) {
  const MutexLock lock(library().mutex);
  library().CheckUsable("Send");
  if (library().refuse_sends || !library().alive) {
    return false;
  }
  if (reply) {
    library().awaited[library().sent.size()] = *reply;
  }
  library().sent.push_back(
      {channel, Copy(message, size), reply.has_value(), std::this_thread::get_id()});
  return true;
}

void EndEngine(const char* how) {
  const std::scoped_lock engine_lock(library().lock);
  const MutexLock lock(library().mutex);
  library().calls.emplace_back(how);
  if (!library().alive) {
    library().faults.push_back(std::string(how) + " on an engine that is gone");
    return;
  }
  library().alive = false;
  library().receivers.clear();
  library().next_frame = nullptr;
  --library().references;
}

}  // namespace

int DeliverMessage(const std::string& channel, const Bytes& message) {
  const FlutterDesktopMessageResponse* response = nullptr;
  {
    const MutexLock lock(library().mutex);
    response = &library().responses.emplace_back(
        FlutterDesktopMessageResponse{static_cast<int>(library().responses.size())});
  }
  Deliver(channel, message, response);
  return response->delivery;
}

void DeliverOneWay(const std::string& channel, const Bytes& message) {
  Deliver(channel, message, nullptr);
}

std::optional<Reply> ReplyOf(int delivery) {
  const MutexLock lock(library().mutex);
  const auto found = library().replies.find(delivery);
  return found != library().replies.end() ? std::optional(found->second) : std::nullopt;
}

bool HasReceiver(const std::string& channel) {
  const MutexLock lock(library().mutex);
  return library().receivers.contains(channel);
}

std::vector<SentMessage> Sent() { return Read(&Library::sent); }

void ReplyToSent(std::size_t place, const Bytes& reply) {
  AwaitedReply awaited;
  {
    const MutexLock lock(library().mutex);
    awaited = std::exchange(library().awaited[place], {});
  }
  awaited.callback(reply.data(), reply.size(), awaited.user_data);
}

FlutterDesktopEngineRef engine() { return &library().engine; }
FlutterDesktopMessengerRef messenger() { return &library().messenger; }

void DestroyEngine() { EndEngine("DestroyEngine"); }

bool DrawFrame() {
  FlutterDesktopVoidCallback callback = nullptr;
  void* user_data = nullptr;
  {
    const MutexLock lock(library().mutex);
    callback = std::exchange(library().next_frame, nullptr);
    user_data = library().next_frame_data;
  }
  if (callback != nullptr) {
    callback(user_data);
  }
  return callback != nullptr;
}

void Consume(std::uint32_t message, std::intptr_t result) {
  const MutexLock lock(library().mutex);
  library().consumed[message] = result;
}

std::vector<WindowMessage> WindowMessages() { return Read(&Library::window_messages); }

Properties CreatedWith() { return Read(&Library::created_with); }

void SetGraphicsAdapter(bool found, void* adapter) {
  Set(&Library::adapter_found, found);
  Set(&Library::adapter, adapter);
}

void SetMonitorDpi(std::uint32_t dpi) { Set(&Library::dpi, dpi); }

void* ViewWindow() { return &library().window; }

void RefuseSends() { Set(&Library::refuse_sends, true); }

void FailEngineCreate() { Set(&Library::fail_engine, true); }

void FailViewControllerCreate() { Set(&Library::fail_controller, true); }

std::vector<std::string> Calls() { return Read(&Library::calls); }

int MessengerReferences() {
  const MutexLock lock(library().mutex);
  return library().references - (library().alive ? 1 : 0);
}

int MessengerLocks() { return Read(&Library::locks); }

std::vector<std::string> Faults() { return Read(&Library::faults); }

void NoteCall(std::string call) {
  const MutexLock lock(library().mutex);
  library().calls.push_back(std::move(call));
}

std::string RegistrarName(FlutterDesktopPluginRegistrarRef registrar) {
  return registrar != nullptr ? registrar->name : "null";
}

}  // namespace korvane::test::fake_flutter

using namespace korvane;
using namespace korvane::test::fake_flutter;

extern "C" {

FlutterDesktopEngineRef FlutterDesktopEngineCreate(
    const FlutterDesktopEngineProperties* properties) {
  Properties copy = {properties->assets_path,
                     properties->icu_data_path,
                     properties->aot_library_path,
                     properties->dart_entrypoint,
                     {},
                     {},
                     properties->impeller_mode,
                     properties->engine_flag};
  for (int i = 0; i < properties->dart_entrypoint_argc; ++i) {
    copy.arguments.emplace_back(properties->dart_entrypoint_argv[i]);
  }
  copy.engine_words.assign(std::begin(properties->engine_words),
                           std::end(properties->engine_words));
  const MutexLock lock(library().mutex);
  library().calls.emplace_back("EngineCreate");
  library().created_with = std::move(copy);
  return library().fail_engine ? nullptr : engine();
}

bool FlutterDesktopEngineDestroy(FlutterDesktopEngineRef) {
  EndEngine("EngineDestroy");
  return true;
}

FlutterDesktopMessengerRef FlutterDesktopEngineGetMessenger(FlutterDesktopEngineRef) {
  return messenger();
}

FlutterDesktopPluginRegistrarRef FlutterDesktopEngineGetPluginRegistrar(FlutterDesktopEngineRef,
                                                                        const char* plugin_name) {
  NoteCall(std::string("EngineGetPluginRegistrar ") + plugin_name);
  const MutexLock lock(library().mutex);
  return &library().registrars.emplace_back(FlutterDesktopPluginRegistrar{plugin_name});
}

void FlutterDesktopEngineReloadSystemFonts(FlutterDesktopEngineRef) {
  NoteCall("EngineReloadSystemFonts");
}

void FlutterDesktopEngineSetNextFrameCallback(FlutterDesktopEngineRef,
                                              FlutterDesktopVoidCallback callback,
                                              void* user_data) {
  NoteCall("EngineSetNextFrameCallback");
  const MutexLock lock(library().mutex);
  library().next_frame = callback;
  library().next_frame_data = user_data;
}

bool FlutterDesktopEngineGetGraphicsAdapter(FlutterDesktopEngineRef, void** adapter) {
  NoteCall("EngineGetGraphicsAdapter");
  const MutexLock lock(library().mutex);
  *adapter = library().adapter;
  return library().adapter_found;
}

FlutterDesktopViewControllerRef FlutterDesktopViewControllerCreate(int, int,
                                                                   FlutterDesktopEngineRef) {
  NoteCall("ViewControllerCreate");
  if (Read(&Library::fail_controller)) {
    EndEngine("(engine destroyed)");
    return nullptr;
  }
  return &library().controller;
}

void FlutterDesktopViewControllerDestroy(FlutterDesktopViewControllerRef) {
  EndEngine("ViewControllerDestroy");
}

FlutterDesktopViewRef FlutterDesktopViewControllerGetView(FlutterDesktopViewControllerRef) {
  return &library().view;
}

void FlutterDesktopViewControllerForceRedraw(FlutterDesktopViewControllerRef) {
  NoteCall("ViewControllerForceRedraw");
}

bool FlutterDesktopViewControllerHandleTopLevelWindowProc(FlutterDesktopViewControllerRef,
                                                          void* window, std::uint32_t message,
                                                          std::uintptr_t wparam,
                                                          std::intptr_t lparam,
                                                          std::intptr_t* result) {
  const MutexLock lock(library().mutex);
  library().window_messages.push_back({window, message, wparam, lparam});
  const auto found = library().consumed.find(message);
  if (found == library().consumed.end()) {
    return false;
  }
  *result = found->second;
  return true;
}

void* FlutterDesktopViewGetHWND(FlutterDesktopViewRef) { return ViewWindow(); }

bool FlutterDesktopMessengerSend(FlutterDesktopMessengerRef, const char* channel,
                                 const std::uint8_t* message, std::size_t message_size) {
  return Take(channel, message, message_size, std::nullopt);
}

bool FlutterDesktopMessengerSendWithReply(FlutterDesktopMessengerRef, const char* channel,
                                          const std::uint8_t* message, std::size_t message_size,
                                          FlutterDesktopBinaryReply reply, void* user_data) {
  return Take(channel, message, message_size, AwaitedReply{reply, user_data});
}

void FlutterDesktopMessengerSendResponse(FlutterDesktopMessengerRef,
                                         const FlutterDesktopMessageResponseHandle* handle,
                                         const std::uint8_t* data, std::size_t data_length) {
  const MutexLock lock(library().mutex);
  if (library().lock_owner != std::this_thread::get_id()) {
    library().faults.emplace_back("SendResponse without the lock");
  }
  if (!library().alive) {
    library().faults.emplace_back("SendResponse by an engine that is gone");
  }
  if (!library()
           .replies
           .emplace(handle->delivery, Reply{Copy(data, data_length), std::this_thread::get_id()})
           .second) {
    library().faults.emplace_back("SendResponse on a dead handle");
  }
}

void FlutterDesktopMessengerSetCallback(FlutterDesktopMessengerRef, const char* channel,
                                        FlutterDesktopMessageCallback callback, void* user_data) {
  const MutexLock lock(library().mutex);
  library().CheckUsable("SetCallback");
  if (callback == nullptr) {
    library().receivers.erase(channel);
  } else {
    library().receivers[channel] = {callback, user_data};
  }
}

FlutterDesktopMessengerRef FlutterDesktopMessengerAddRef(FlutterDesktopMessengerRef handle) {
  const MutexLock lock(library().mutex);
  library().CheckUsable("AddRef");
  ++library().references;
  return handle;
}

void FlutterDesktopMessengerRelease(FlutterDesktopMessengerRef) {
  const MutexLock lock(library().mutex);
  library().CheckUsable("Release");
  --library().references;
}

bool FlutterDesktopMessengerIsAvailable(FlutterDesktopMessengerRef) {
  const MutexLock lock(library().mutex);
  library().CheckUsable("IsAvailable");
  return library().alive;
}

FlutterDesktopMessengerRef FlutterDesktopMessengerLock(FlutterDesktopMessengerRef handle) {
  {
    const MutexLock lock(library().mutex);
    library().CheckUsable("Lock");
    if (library().lock_owner == std::this_thread::get_id()) {
      std::abort();  // the lock doesn't nest; going on would hang
    }
  }
  library().lock.lock();
  const MutexLock lock(library().mutex);
  library().lock_owner = std::this_thread::get_id();
  ++library().locks;
  return handle;
}

void FlutterDesktopMessengerUnlock(FlutterDesktopMessengerRef) {
  Set(&Library::lock_owner, std::thread::id());
  library().lock.unlock();
}

std::uint32_t FlutterDesktopGetDpiForMonitor(void*) { return Read(&Library::dpi); }

void FlutterDesktopResyncOutputStreams() { NoteCall("ResyncOutputStreams"); }

}  // extern "C"
