// http_message.h: heads and bodies of HTTP/1.x messages on a connection.
//
// Strict about nothing but bounds: a head has at most 64 KiB. Bodies come by length, in chunks, or
// up to the end of the connection.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "net/socket.h"

namespace korvane::net {

// The first line and the fields of a message, in the order in which they came.
struct HttpHead {
  std::string first_line;
  std::vector<std::pair<std::string, std::string>> fields;

  // The first field of the name, in any case of letters; null when there is none.
  const std::string* Find(std::string_view name) const;
  // True when a list-valued field holds the word, in any case of letters.
  bool Says(std::string_view name, std::string_view word) const;

  // The n-th word of the first line ("GET", "/x", "HTTP/1.1"); empty when there are fewer.
  std::string_view Word(std::size_t n) const;
  // The status of an answer's first line; 0 when it is none.
  int Status() const;

  // The head as bytes, its blank line included.
  std::string Text() const;
};

bool EqualIgnoringCase(std::string_view a, std::string_view b);

// Reads messages from one connection and keeps what came behind one for the next.
class HttpReader {
 public:
  explicit HttpReader(Socket& socket) : socket_(socket) {}

  // kEnd when the peer ended before the first byte, kFailed when it broke off or sent no head.
  IoStatus ReadHead(HttpHead& head, Deadline deadline);

  // The body that belongs to the head; kFailed when it breaks off or is longer than `most`, and
  // then `body` holds what came. Without a length a request has no body, and an answer one to the
  // end.
  IoStatus ReadRequestBody(const HttpHead& head, std::string& body, std::size_t most,
                           Deadline deadline);
  IoStatus ReadAnswerBody(const HttpHead& head, std::string& body, std::size_t most,
                          Deadline deadline);

  // What was received behind the last message; the reader forgets it.
  std::string TakeRest() { return std::exchange(buffer_, {}); }

 private:
  IoStatus ReadChunks(std::string& body, std::size_t most, Deadline deadline);
  IoStatus ReadExactly(std::string& body, std::size_t count, Deadline deadline);
  IoStatus ReadToEnd(std::string& body, std::size_t most, Deadline deadline);
  IoStatus ReadLine(std::string& line, Deadline deadline);

  Socket& socket_;
  std::string buffer_;
};

// An answer with a length: "HTTP/1.1 200 OK", the extra fields, Content-Length, and the body.
std::string HttpAnswer(int status, const std::vector<std::pair<std::string, std::string>>& fields,
                       std::string_view body);
std::string_view ReasonOf(int status);

}  // namespace korvane::net
