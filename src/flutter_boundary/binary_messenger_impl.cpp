#include "flutter_boundary/binary_messenger_impl.h"

#include <utility>

#include "platform/os.h"

namespace flutter {

namespace {

// Between Lock and Unlock the engine can't go away.
class MessengerLock {
 public:
  explicit MessengerLock(FlutterDesktopMessengerRef messenger)
      : messenger_(FlutterDesktopMessengerLock(messenger)) {}
  ~MessengerLock() { FlutterDesktopMessengerUnlock(messenger_); }
  MessengerLock(const MessengerLock&) = delete;
  MessengerLock& operator=(const MessengerLock&) = delete;

 private:
  FlutterDesktopMessengerRef messenger_;
};

// A message to which Dart awaits the reply. Shared by all copies of its reply function.
class PendingReply {
 public:
  PendingReply(FlutterDesktopMessengerRef messenger,
               const FlutterDesktopMessageResponseHandle* response)
      : messenger_(FlutterDesktopMessengerAddRef(messenger)), response_(response) {}
  ~PendingReply() { FlutterDesktopMessengerRelease(messenger_); }
  PendingReply(const PendingReply&) = delete;
  PendingReply& operator=(const PendingReply&) = delete;

  // Any thread, also after the end of the engine.
  void Send(MessageBytes reply) {
    const MessengerLock lock(messenger_);
    if (!FlutterDesktopMessengerIsAvailable(messenger_)) {
      return;
    }
    if (response_ == nullptr) {
      korvane::platform::WriteErrorLine(
          "Error: Response can be set only once. Ignoring duplicate response.");
      return;
    }
    FlutterDesktopMessengerSendResponse(messenger_, std::exchange(response_, nullptr), reply.data(),
                                        reply.size());
  }

 private:
  FlutterDesktopMessengerRef messenger_;
  // Touched under the messenger's lock only; null once it is used.
  const FlutterDesktopMessageResponseHandle* response_;
};

BinaryReply ReplyTo(FlutterDesktopMessengerRef messenger,
                    const FlutterDesktopMessageResponseHandle* response) {
  if (response == nullptr) {
    return [](MessageBytes) {};
  }
  return [pending = std::make_shared<PendingReply>(messenger, response)](MessageBytes reply) {
    pending->Send(reply);
  };
}

// Runs what came in from the engine; no exception may go back into it.
template <typename Work>
void RunGuarded(const Work& work) noexcept {
  try {
    work();
  } catch (...) {  // told in the header
  }
}

// The reply to a message of ours; owns the reply function.
void ForwardReply(const std::uint8_t* data, std::size_t data_size, void* user_data) {
  const std::unique_ptr<BinaryReply> reply(static_cast<BinaryReply*>(user_data));
  RunGuarded([&] { (*reply)({data, data_size}); });
}

}  // namespace

void BinaryMessengerImpl::Send(const std::string& channel, MessageBytes message) const {
  FlutterDesktopMessengerSend(messenger_, channel.c_str(), message.data(), message.size());
}

void BinaryMessengerImpl::SendWithReply(const std::string& channel, MessageBytes message,
                                        BinaryReply reply) const {
  auto held = std::make_unique<BinaryReply>(std::move(reply));
  if (FlutterDesktopMessengerSendWithReply(messenger_, channel.c_str(), message.data(),
                                           message.size(), ForwardReply, held.get())) {
    // ForwardReply owns it now, and may have destroyed it already.
    static_cast<void>(held.release());
  }
}

void BinaryMessengerImpl::SetMessageHandler(const std::string& channel,
                                            BinaryMessageHandler handler) {
  if (!handler) {
    handlers_.erase(channel);
    FlutterDesktopMessengerSetCallback(messenger_, channel.c_str(), nullptr, nullptr);
    return;
  }
  handlers_[channel] = std::make_shared<const BinaryMessageHandler>(std::move(handler));
  FlutterDesktopMessengerSetCallback(messenger_, channel.c_str(), ForwardToHandler, this);
}

void BinaryMessengerImpl::ForwardToHandler(FlutterDesktopMessengerRef messenger,
                                           const FlutterDesktopMessage* message, void* user_data) {
  // coverage: the library of the tests is as new as the interface
  if (message->struct_size < sizeof(FlutterDesktopMessage)) {
    return;  // a library older than the interface: the fields aren't there
  }
  const auto& handlers = static_cast<const BinaryMessengerImpl*>(user_data)->handlers_;
  RunGuarded([&] {
    BinaryReply reply = ReplyTo(messenger, message->response_handle);
    const auto found = handlers.find(message->channel);
    if (found == handlers.end()) {  // coverage: a channel without a handler has no callback
      reply({});
      return;
    }
    const std::shared_ptr<const BinaryMessageHandler> handler = found->second;
    (*handler)({message->message, message->message_size}, std::move(reply));
  });
}

}  // namespace flutter
