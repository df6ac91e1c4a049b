// binary_messenger_impl.h: the messenger over the engine's own.
//
// Holds the engine's messenger handle without counting it: it lives no longer than the engine that
// it came from. What may outlive the engine is a reply function: each holds a counted handle of its
// own, asks under the messenger's lock whether the engine is still there, and may be called on any
// thread. Everything else: window's thread.
//
// An exception that leaves a message handler ends here; the reply function that the handler owned
// is gone by then, so a method result has written its own line about that.
//
// To the error stream: "Error: Response can be set only once. Ignoring duplicate response." for the
// second reply to one message. A reply after the end of the engine is dropped in silence, and so is
// one that Dart doesn't await.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/flutter_windows_abi.h"

namespace flutter {

class BinaryMessengerImpl : public BinaryMessenger {
 public:
  explicit BinaryMessengerImpl(FlutterDesktopMessengerRef messenger) : messenger_(messenger) {}

  void Send(const std::string& channel, MessageBytes message) const override;
  void SendWithReply(const std::string& channel, MessageBytes message,
                     BinaryReply reply) const override;
  void SetMessageHandler(const std::string& channel, BinaryMessageHandler handler) override;

 private:
  // The receiver of every channel, as the engine calls it; user_data is this object.
  static void ForwardToHandler(FlutterDesktopMessengerRef messenger,
                               const FlutterDesktopMessage* message, void* user_data);

  FlutterDesktopMessengerRef messenger_;
  // Shared, so that a handler that replaces itself lives to its own end.
  std::map<std::string, std::shared_ptr<const BinaryMessageHandler>> handlers_;
};

}  // namespace flutter
