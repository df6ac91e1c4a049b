// fake_loopback_http.h: a control API whose answers a test writes down. Any thread may ask; answers
// are written before that.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/loopback_http.h"
#include "platform/mutex.h"

namespace korvane::test {

class FakeLoopbackHttp : public platform::LoopbackHttp {
 public:
  // By path, without the query; nobody answers for the others.
  std::map<std::string, std::string> answers;
  // Called at each request, before it is answered, on its thread.
  std::function<void(const std::string& path)> on_request;

  // "PORT TARGET within TIMEOUT" for each request since the last time, in order.
  std::vector<std::string> TakeRequests() {
    MutexLock lock(mutex_);
    return std::exchange(requests_, {});
  }

  std::unique_ptr<platform::LoopbackHttpSession> Open(int timeout_ms) override {
    return std::make_unique<Session>(*this, timeout_ms);
  }

 private:
  class Session : public platform::LoopbackHttpSession {
   public:
    Session(FakeLoopbackHttp& owner, int timeout_ms) : owner_(owner), timeout_ms_(timeout_ms) {}
    std::optional<std::string> Get(std::uint16_t port, const std::wstring& target) override {
      return owner_.Answer(port, std::string(target.begin(), target.end()), timeout_ms_);
    }

   private:
    FakeLoopbackHttp& owner_;
    const int timeout_ms_;
  };

  std::optional<std::string> Answer(std::uint16_t port, const std::string& target, int timeout_ms) {
    {
      MutexLock lock(mutex_);
      requests_.push_back(std::to_string(port) + " " + target + " within " +
                          std::to_string(timeout_ms));
    }
    const std::string path = target.substr(0, target.find('?'));
    if (on_request) {
      on_request(path);
    }
    const auto found = answers.find(path);
    return found != answers.end() ? std::optional(found->second) : std::nullopt;
  }

  Mutex mutex_;
  std::vector<std::string> requests_ KORVANE_GUARDED_BY(mutex_);
};

}  // namespace korvane::test
