#include "net/http_get.h"

namespace korvane::net {
namespace {

std::string Request(const Url& url, bool through_proxy) {
  const std::string host = url.authority.Text();
  HttpHead head;
  head.first_line = "GET " + (through_proxy ? url.scheme + "://" + host : std::string()) +
                    url.target + " HTTP/1.1";
  head.fields = {{"Host", host}, {"Connection", "close"}};
  return head.Text();
}

}  // namespace

IoStatus GetHead(Socket& socket, HttpReader& reader, const Url& url, bool through_proxy,
                 HttpHead& head, Deadline deadline) {
  const IoStatus sent = socket.Send(Request(url, through_proxy), deadline);
  if (sent != IoStatus::kDone) {
    return sent;
  }
  const IoStatus status = reader.ReadHead(head, deadline);
  return status == IoStatus::kDone && head.Status() == 0 ? IoStatus::kFailed : status;
}

std::optional<HttpGot> HttpGet(const Url& url, const std::optional<Authority>& proxy,
                               std::size_t most, Deadline deadline, std::string& error) {
  const Authority& peer = proxy ? *proxy : url.authority;
  Dialled dialled = Dial(peer.host, peer.port, nullptr, deadline);
  if (dialled.status != DialStatus::kDone) {
    error = "dial " + peer.Text() + ": " + dialled.error;
    return std::nullopt;
  }
  HttpReader reader(dialled.socket);
  HttpGot got;
  if (GetHead(dialled.socket, reader, url, proxy.has_value(), got.head, deadline) !=
      IoStatus::kDone) {
    error = "no HTTP answer from " + peer.Text();
    return std::nullopt;
  }
  if (reader.ReadAnswerBody(got.head, got.body, most, deadline) != IoStatus::kDone) {
    error = "the answer broke off after " + std::to_string(got.body.size()) + " bytes";
    return std::nullopt;
  }
  return got;
}

}  // namespace korvane::net
