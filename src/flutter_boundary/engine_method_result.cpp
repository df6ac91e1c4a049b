#include "flutter_boundary/engine_method_result.h"

#include "platform/os.h"

namespace flutter {

ReplyManager::~ReplyManager() {
  if (reply_) {
    korvane::platform::WriteErrorLine(
        "Warning: Failed to respond to a message. This is a memory leak.");
  }
}

void ReplyManager::Send(MessageBytes reply) {
  if (!reply_) {
    korvane::platform::WriteErrorLine(
        "Error: Only one of Success, Error, or NotImplemented can be called, "
        "and it can be called exactly once. Ignoring duplicate result.");
    return;
  }
  std::exchange(reply_, nullptr)(reply);
}

}  // namespace flutter
