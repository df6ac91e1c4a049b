#include "platform/posix/window_service.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "platform/posix/window_meeting_place.h"

namespace korvane::platform {

namespace {

// Connections that have not spoken yet; the oldest goes when there are more.
constexpr std::size_t kSilentPeerLimit = 64;
// After a failed accept, for want of descriptors for instance.
constexpr int kAcceptRetryMs = 100;

bool SameUser(const FileDescriptor& peer) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  return getsockopt(peer.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 &&
         credentials.uid == geteuid();
}

// A thread without signals: they are for the threads that the program knows of.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t former_{};
};

}  // namespace

// One run of the service: from the first window to the last.
class WindowServer {
 public:
  static Result<std::unique_ptr<WindowServer>> Start(const WindowService::Answer& answer) {
    using Started = Result<std::unique_ptr<WindowServer>>;
    Result<WindowMeetingPlace> place = WindowMeetingPlace::Open();
    if (!place) {
      return Started::Fail(place.error());
    }
    FileDescriptor stop(eventfd(0, EFD_CLOEXEC));
    if (!stop) {
      return Started::Fail(static_cast<ErrorCode>(errno));
    }
    Result<FileDescriptor> listener = place.value().Listen();
    if (!listener) {
      return Started::Fail(listener.error());
    }
    auto server =
        std::make_unique<WindowServer>(answer, place.take(), listener.take(), std::move(stop));
    const Status running = server->Run();
    return running ? Started(std::move(server)) : Started::Fail(running.error());
  }

  WindowServer(const WindowService::Answer& answer, WindowMeetingPlace place,
               FileDescriptor listener, FileDescriptor stop)
      : answer_(answer),
        place_(std::move(place)),
        listener_(std::move(listener)),
        stop_(std::move(stop)) {}

  ~WindowServer() {
    place_.Remove();
    if (thread_.joinable()) {
      const std::uint64_t one = 1;
      while (write(stop_.get(), &one, sizeof(one)) < 0 && errno == EINTR) {
      }
      thread_.join();
    }
  }

  WindowServer(const WindowServer&) = delete;
  WindowServer& operator=(const WindowServer&) = delete;

 private:
  Status Run() {
    const SignalsBlocked blocked;
    try {
      thread_ = std::thread([this] { Serve(); });
    } catch (const std::system_error& error) {  // no thread to be had
      return Status::Fail(static_cast<ErrorCode>(error.code().value()));
    }
    return Status::Ok();
  }

  void Serve() {
    for (;;) {
      std::vector<pollfd> waiting = {{stop_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
      for (const FileDescriptor& peer : peers_) {
        waiting.push_back({peer.get(), POLLIN, 0});
      }
      if (poll(waiting.data(), waiting.size(), -1) < 0) {
        continue;
      }
      if (waiting[0].revents != 0) {
        return;
      }
      ServePeers(waiting.data() + 2);
      if (waiting[1].revents != 0) {
        Accept();
      }
    }
  }

  // `ready` has one record for each peer, in their order. A peer that spoke is answered and let go.
  void ServePeers(const pollfd* ready) {
    std::deque<FileDescriptor> silent;
    for (FileDescriptor& peer : peers_) {
      if (ready->revents == 0) {
        silent.push_back(std::move(peer));
      } else {
        Serve(peer);
      }
      ++ready;
    }
    peers_ = std::move(silent);
  }

  void Serve(const FileDescriptor& peer) {
    WindowRequest request;
    const ssize_t length = recv(peer.get(), &request, sizeof(request), MSG_DONTWAIT | MSG_TRUNC);
    if (length != static_cast<ssize_t>(sizeof(request)) || request.mark != kWindowWireMark) {
      return;
    }
    const WindowReply reply = answer_(request);
    send(peer.get(), &reply, sizeof(reply), MSG_DONTWAIT | MSG_NOSIGNAL);
  }

  void Accept() {
    FileDescriptor peer(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!peer) {
      pollfd stop = {stop_.get(), POLLIN, 0};
      poll(&stop, 1, kAcceptRetryMs);
      return;
    }
    if (!SameUser(peer)) {
      return;
    }
    peers_.push_back(std::move(peer));
    if (peers_.size() > kSilentPeerLimit) {
      peers_.pop_front();
    }
  }

  const WindowService::Answer& answer_;
  WindowMeetingPlace place_;
  FileDescriptor listener_;
  FileDescriptor stop_;
  std::deque<FileDescriptor> peers_;  // of the thread alone
  std::thread thread_;
};

WindowService::WindowService(Answer answer) : answer_(std::move(answer)) {}
WindowService::~WindowService() = default;

Status WindowService::Enter() {
  const MutexLock lock(mutex_);
  ++windows_;
  if (server_ != nullptr) {
    return Status::Ok();
  }
  Result<std::unique_ptr<WindowServer>> started = WindowServer::Start(answer_);
  if (!started) {
    return Status::Fail(started.error());
  }
  server_ = started.take();
  return Status::Ok();
}

void WindowService::Leave() {
  const MutexLock lock(mutex_);
  if (--windows_ == 0) {
    server_.reset();
  }
}

}  // namespace korvane::platform
