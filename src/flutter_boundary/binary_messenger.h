// binary_messenger.h: messages of bytes by channel name, with replies.
//
// The lowest thing that the channels know. Behind it stands the engine's messenger
// (BinaryMessengerImpl) or anything else that carries bytes. Channels hold the messenger without
// owning it: whoever uses one after its messenger is gone breaks the contract; answering a reply
// function is allowed at any time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace flutter {

// Bytes, valid for the call only.
using MessageBytes = std::span<const std::uint8_t>;

// Takes the reply to a message; no bytes mean "not implemented". Called at most once; the one that
// a handler is given may be called on any thread, and also after the engine is gone.
using BinaryReply = std::function<void(MessageBytes reply)>;

// Receives the messages of a channel. `reply` is never empty and may be kept.
using BinaryMessageHandler = std::function<void(MessageBytes message, BinaryReply reply)>;

class BinaryMessenger {
 public:
  BinaryMessenger() = default;
  virtual ~BinaryMessenger() = default;
  BinaryMessenger(const BinaryMessenger&) = delete;
  BinaryMessenger& operator=(const BinaryMessenger&) = delete;

  // Sends a message to which no reply is expected.
  virtual void Send(const std::string& channel, MessageBytes message) const = 0;

  // Sends a message; `reply` runs when the reply comes, and is destroyed unused when none will.
  virtual void SendWithReply(const std::string& channel, MessageBytes message,
                             BinaryReply reply) const = 0;

  // Sets the receiver of a channel in place of the one before; an empty function removes it.
  virtual void SetMessageHandler(const std::string& channel, BinaryMessageHandler handler) = 0;
};

}  // namespace flutter
