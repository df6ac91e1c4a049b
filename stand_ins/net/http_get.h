// http_get.h: one GET of a plain http URL, directly or through an HTTP proxy.
#pragma once

#include <optional>
#include <string>

#include "net/http_message.h"
#include "net/url.h"

namespace korvane::net {

struct HttpGot {
  HttpHead head;
  std::string body;
};

// Sends the request on a connection that leads to the server (or, with `through_proxy`, to a proxy)
// and reads the answer's head.
IoStatus GetHead(Socket& socket, HttpReader& reader, const Url& url, bool through_proxy,
                 HttpHead& head, Deadline deadline);

// The whole answer; nothing when there is none, and then `error` says why. `most` bounds the body.
std::optional<HttpGot> HttpGet(const Url& url, const std::optional<Authority>& proxy,
                               std::size_t most, Deadline deadline, std::string& error);

}  // namespace korvane::net
