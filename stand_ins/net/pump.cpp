#include "net/pump.h"

#include <array>
#include <string>

namespace korvane::net {
namespace {

constexpr std::size_t kMostKept = std::size_t{64} * 1024;

// One way of the two.
class Way {
 public:
  Way(Socket& from, Socket& to) : from_(from), to_(to) {}

  bool done() const { return passed_end_on_; }
  bool wants_to_read() const { return !from_ended_ && kept_.size() < kMostKept; }
  bool wants_to_write() const { return !kept_.empty(); }

  // Moves what can be moved without a wait; false when a side has broken.
  bool Move() { return TakeIn() && GiveOut(); }

 private:
  bool TakeIn() {
    if (!wants_to_read()) {
      return true;
    }
    const IoStatus status = from_.ReceiveSome(kept_, kMostKept - kept_.size());
    from_ended_ = status == IoStatus::kEnd;
    return status == IoStatus::kDone || status == IoStatus::kWouldBlock || from_ended_;
  }

  bool GiveOut() {
    std::string_view left = kept_;
    const IoStatus status = left.empty() ? IoStatus::kDone : to_.SendSome(left);
    kept_.erase(0, kept_.size() - left.size());
    if (from_ended_ && kept_.empty() && !passed_end_on_) {
      to_.FinishSending();
      passed_end_on_ = true;
    }
    return status == IoStatus::kDone || status == IoStatus::kWouldBlock;
  }

  Socket& from_;
  Socket& to_;
  std::string kept_;
  bool from_ended_ = false;
  bool passed_end_on_ = false;
};

}  // namespace

void Pump(Socket& first, Socket& second) {
  Way there(first, second);
  Way back(second, first);
  while (there.Move() && back.Move() && !(there.done() && back.done())) {
    const std::array<Interest, 2> interests{
        Interest{first.handle(), there.wants_to_read(), back.wants_to_write()},
        Interest{second.handle(), back.wants_to_read(), there.wants_to_write()}};
    if (Wait(interests, first.stop(), Deadline::Never()) != WaitStatus::kReady) {
      return;
    }
  }
}

}  // namespace korvane::net
