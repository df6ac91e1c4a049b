// event_sink.h: where the events of a stream go, towards Dart.
//
// Given to the stream handler when Dart begins to listen, and owned by it from then on. A sink
// holds nothing that changes, so it may be used from any thread that its messenger takes messages
// from; never after the messenger is gone.
#pragma once

#include <string>

#include "flutter_boundary/encodable_value.h"

namespace flutter {

template <typename T = EncodableValue>
class EventSink {
 public:
  EventSink() = default;
  virtual ~EventSink() = default;
  EventSink(const EventSink&) = delete;
  EventSink& operator=(const EventSink&) = delete;

  void Success() { SuccessInternal(nullptr); }
  void Success(const T& event) { SuccessInternal(&event); }

  void Error(const std::string& code, const std::string& message = "") {
    ErrorInternal(code, message, nullptr);
  }
  void Error(const std::string& code, const std::string& message, const T& details) {
    ErrorInternal(code, message, &details);
  }

  void EndOfStream() { EndOfStreamInternal(); }

 protected:
  // A null event stands for the null value, null details for none.
  virtual void SuccessInternal(const T* event) = 0;
  virtual void ErrorInternal(const std::string& code, const std::string& message,
                             const T* details) = 0;
  virtual void EndOfStreamInternal() = 0;
};

}  // namespace flutter
