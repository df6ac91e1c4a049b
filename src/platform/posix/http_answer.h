// http_answer.h: reads one HTTP/1.x answer from the bytes of a connection as they come.
//
// Interim answers (1xx) are passed over. The body comes by length, in chunks, or up to the end of
// the connection, and is kept as far as it came. Linear in the bytes, constant in stack; what isn't
// body is bounded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::platform {

class HttpAnswer {
 public:
  // Takes the next bytes; false when no more are wanted: the answer is whole, or what came isn't
  // one. Bytes behind the answer's end are ignored.
  bool Take(std::string_view bytes);

  // The status once the head is whole; 0 before.
  int status() const { return head_whole_ ? status_ : 0; }
  // The body as far as it has come.
  std::string TakeBody() { return std::move(body_); }

 private:
  enum class Await {
    kStatusLine,
    kField,
    kCounted,    // so many bytes of the body, or of a chunk
    kToEnd,      // the body is all that comes
    kChunkSize,  // the line before a chunk
    kChunkEnd,   // the empty line behind one
    kNothing,
  };

  bool AwaitsLine() const;
  // Takes one line, or what there is of it, off the front of the bytes.
  void TakeLine(std::string_view& bytes);
  void TakeBodyBytes(std::string_view& bytes);

  void ReadLine();
  void ReadStatusLine();
  void ReadField();
  void EndHead();
  void ReadChunkSize();

  Await await_ = Await::kStatusLine;
  std::string line_;            // as far as it has come
  std::size_t line_bytes_ = 0;  // of all lines since the last byte of the body
  int status_ = 0;
  bool head_whole_ = false;
  bool chunked_ = false;
  std::optional<std::uint64_t> length_;  // that the head told
  std::uint64_t counted_ = 0;            // what is to come of the body, or of the chunk
  std::string body_;
};

}  // namespace korvane::platform
