// stream_handler.h: what an event channel asks when Dart begins and ends to listen.
//
// Called on the thread that delivers the channel's messages (the window's thread).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/event_sink.h"

namespace flutter {

// Why a stream could not begin or end.
template <typename T = EncodableValue>
struct StreamHandlerError {
  std::string error_code;
  std::string error_message;
  std::optional<T> error_details;
};

template <typename T = EncodableValue>
class StreamHandler {
 public:
  StreamHandler() = default;
  virtual ~StreamHandler() = default;
  StreamHandler(const StreamHandler&) = delete;
  StreamHandler& operator=(const StreamHandler&) = delete;

  // Dart listens. `arguments` are the listener's, null when there are none; `sink` is the handler's
  // own. Nothing means that the stream has begun.
  std::optional<StreamHandlerError<T>> OnListen(const T* arguments,
                                                std::unique_ptr<EventSink<T>> sink) {
    return OnListenInternal(arguments, std::move(sink));
  }

  // Dart listens no more. `arguments` as above.
  std::optional<StreamHandlerError<T>> OnCancel(const T* arguments) {
    return OnCancelInternal(arguments);
  }

 protected:
  virtual std::optional<StreamHandlerError<T>> OnListenInternal(
      const T* arguments, std::unique_ptr<EventSink<T>> sink) = 0;
  virtual std::optional<StreamHandlerError<T>> OnCancelInternal(const T* arguments) = 0;
};

}  // namespace flutter
