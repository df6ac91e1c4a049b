#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

namespace {

class CountingSession final : public LoopbackHttpSession {
 public:
  CountingSession(std::unique_ptr<LoopbackHttpSession> inner, OperationCounter& counter)
      : inner_(std::move(inner)), counter_(counter) {}

  std::optional<std::string> Get(std::uint16_t port, const std::wstring& target) override {
    const auto error = counter_.Begin({"LoopbackHttpSession.Get", false, true});
    return error ? std::nullopt : inner_->Get(port, target);
  }

 private:
  std::unique_ptr<LoopbackHttpSession> inner_;
  OperationCounter& counter_;
};

class CountingLoopbackHttp final : public Counted<LoopbackHttp> {
 public:
  using Counted::Counted;

  std::unique_ptr<LoopbackHttpSession> Open(int timeout_ms) override {
    auto session = MakeOr(std::unique_ptr<LoopbackHttpSession>(), Effect::kLooks,
                          "LoopbackHttp.Open", &LoopbackHttp::Open, timeout_ms);
    if (session == nullptr) {
      return nullptr;
    }
    return std::make_unique<CountingSession>(std::move(session), counter_);
  }
};

}  // namespace

std::unique_ptr<LoopbackHttp> Count(LoopbackHttp& inner, OperationCounter& counter) {
  return std::make_unique<CountingLoopbackHttp>(inner, counter);
}

}  // namespace korvane::test
