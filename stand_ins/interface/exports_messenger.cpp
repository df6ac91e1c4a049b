// The messenger's functions of the library.
#include <memory>
#include <span>
#include <string>

#include "interface/console.h"
#include "interface/handles.h"
#include "interface/window_thread.h"

namespace {

using korvane::MutexLock;
using korvane::stand_in::Bytes;
using korvane::stand_in::Console;
using korvane::stand_in::DartSide;

bool HoldsLock(const FlutterDesktopMessenger& messenger) {
  return messenger.lock_owner.load() == std::this_thread::get_id();
}

// Off the window thread a call belongs behind the lock.
void CheckThread(const FlutterDesktopMessenger& messenger, const std::string& function) {
  auto& console = Console::Get();
  if (!console.OnWindowThread() && !HoldsLock(messenger)) {
    console.Violation(function + " off the window thread without the lock");
  }
}

}  // namespace

bool FlutterDesktopMessengerSend(FlutterDesktopMessengerRef messenger, const char* channel,
                                 const uint8_t* message, size_t message_size) {
  return FlutterDesktopMessengerSendWithReply(messenger, channel, message, message_size, nullptr,
                                              nullptr);
}

bool FlutterDesktopMessengerSendWithReply(FlutterDesktopMessengerRef messenger, const char* channel,
                                          const uint8_t* message, size_t message_size,
                                          FlutterDesktopBinaryReply reply, void* user_data) {
  if (!messenger->available) {
    return false;
  }
  CheckThread(*messenger, "Send");
  Console::Get().dart().TakeMessage(channel, std::span(message, message_size));
  if (reply == nullptr) {
    return true;
  }
  korvane::stand_in::window_thread::Run([reply, user_data, answer = DartSide::AnswerTo(channel)] {
    reply(answer.data(), answer.size(), user_data);
  });
  return true;
}

void FlutterDesktopMessengerSendResponse(FlutterDesktopMessengerRef messenger,
                                         const FlutterDesktopMessageResponseHandle* handle,
                                         const uint8_t* data, size_t data_length) {
  auto& console = Console::Get();
  CheckThread(*messenger, "SendResponse");
  if (!messenger->available) {
    return console.Violation("SendResponse behind the engine's end");
  }
  if (!console.dart().TakeReply(handle, std::span(data, data_length), console.OnWindowThread())) {
    console.Violation("a response handle that isn't open");
  }
}

void FlutterDesktopMessengerSetCallback(FlutterDesktopMessengerRef messenger, const char* channel,
                                        FlutterDesktopMessageCallback callback, void* user_data) {
  CheckThread(*messenger, "SetCallback");
  MutexLock lock(messenger->receivers_mutex);
  if (callback == nullptr) {
    messenger->receivers.erase(channel);
  } else {
    messenger->receivers[channel] = {callback, user_data};
  }
}

FlutterDesktopMessengerRef FlutterDesktopMessengerAddRef(FlutterDesktopMessengerRef messenger) {
  ++messenger->references;
  return messenger;
}

void FlutterDesktopMessengerRelease(FlutterDesktopMessengerRef messenger) {
  if (--messenger->references == 0) {
    std::unique_ptr<FlutterDesktopMessenger>(messenger).reset();
  }
}

bool FlutterDesktopMessengerIsAvailable(FlutterDesktopMessengerRef messenger) {
  CheckThread(*messenger, "IsAvailable");
  return messenger->available;
}

// The two halves of one section, in two calls of the host's.
FlutterDesktopMessengerRef FlutterDesktopMessengerLock(FlutterDesktopMessengerRef messenger)
    KORVANE_NO_THREAD_SAFETY_ANALYSIS {
  if (HoldsLock(*messenger)) {
    Console::Get().Violation("the messenger's lock taken twice on one thread");
    korvane::stand_in::EndProcess(3);  // it would wait for itself
  }
  messenger->lock.lock();
  messenger->lock_owner = std::this_thread::get_id();
  return messenger;
}

void FlutterDesktopMessengerUnlock(FlutterDesktopMessengerRef messenger)
    KORVANE_NO_THREAD_SAFETY_ANALYSIS {
  if (!HoldsLock(*messenger)) {
    return Console::Get().Violation("an unlock without the lock");
  }
  messenger->lock_owner = std::thread::id();
  messenger->lock.unlock();
}
