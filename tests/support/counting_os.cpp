#include "support/counting_os.h"

#include <utility>

#include "support/counting_plain.h"
#include "support/counting_watched.h"

namespace korvane::test {

bool AnyOperation(const Operation& /*operation*/) { return true; }
bool ChangingOperation(const Operation& operation) { return operation.changes; }
bool FallibleOperation(const Operation& operation) { return operation.fallible; }

CountingPlan FailOnce(std::size_t at, OperationFilter counted) {
  CountingPlan plan;
  plan.action = CountingPlan::Action::kFailOnce;
  plan.at = at;
  plan.counted = std::move(counted);
  return plan;
}

CountingPlan FailFrom(std::size_t at, OperationFilter counted) {
  CountingPlan plan = FailOnce(at, std::move(counted));
  plan.action = CountingPlan::Action::kFailFrom;
  return plan;
}

CountingPlan StopAt(std::size_t at, std::function<void()> stop, OperationFilter counted) {
  CountingPlan plan = FailOnce(at, std::move(counted));
  plan.action = CountingPlan::Action::kStop;
  plan.stop = std::move(stop);
  return plan;
}

CountingPlan PauseAtEach(std::function<void()> pause) {
  CountingPlan plan = StopAt(0, std::move(pause));
  plan.action = CountingPlan::Action::kPauseAtEach;
  return plan;
}

std::optional<ErrorCode> OperationCounter::Begin(const Operation& operation) {
  std::size_t number = 0;  // 0: the filter has not taken it
  {
    MutexLock lock(mutex_);
    if (plan_.traced) {
      trace_.emplace_back(operation.name);
    }
    number = plan_.counted(operation) ? ++count_ : 0;
  }
  using Action = CountingPlan::Action;
  const bool here = number != 0 && number == plan_.at;
  const bool behind = number != 0 && number > plan_.at;
  if ((plan_.action == Action::kStop && here) ||
      (plan_.action == Action::kPauseAtEach && number != 0)) {
    plan_.stop();
  }
  const bool fails = (plan_.action == Action::kFailOnce && here) ||
                     (plan_.action == Action::kFailFrom && (here || behind));
  return fails && operation.fallible ? std::optional(plan_.error) : std::nullopt;
}

void OperationCounter::End(std::string_view name) const {
  if (plan_.ended) {
    plan_.ended(name);
  }
}

std::size_t OperationCounter::count() const {
  MutexLock lock(mutex_);
  return count_;
}

std::vector<std::string> OperationCounter::trace() const {
  MutexLock lock(mutex_);
  return trace_;
}

struct CountingOs::Sides {
  Sides(const Os& inner_os, CountingPlan plan)
      : inner(inner_os), counter(std::move(plan), *inner.files) {}

  const Os inner;
  OperationCounter counter;
  CountingAppearance appearance{*inner.appearance, counter};
  CountingClocks clocks{*inner.clocks, counter};
  CountingCodeTrust code_trust{*inner.code_trust, counter};
  CountingDynamicLibraries dynamic_libraries{*inner.dynamic_libraries, counter};
  CountingErrorStream error_stream{*inner.error_stream, counter};
  CountingFiles files{*inner.files, counter};
  CountingIdentifiers identifiers{*inner.identifiers, counter};
  CountingKernelObjects kernel_objects{*inner.kernel_objects, counter};
  CountingElevation elevation{*inner.elevation, counter, kernel_objects};
  CountingLoopbackHttp loopback_http{*inner.loopback_http, counter};
  CountingNetwork network{*inner.network, counter};
  CountingProcess process{*inner.process, counter};
  CountingProxySettings proxy_settings{*inner.proxy_settings, counter};
  CountingRegistry registry{*inner.registry, counter};
  CountingScheduledCommand scheduled_command{*inner.scheduled_command, counter};
  CountingTextEncoding text{*inner.text, counter};
  CountingWindowSystem windows{*inner.windows, counter};
  Os os{
      .appearance = &appearance,
      .clocks = &clocks,
      .code_trust = &code_trust,
      .dynamic_libraries = &dynamic_libraries,
      .elevation = &elevation,
      .error_stream = &error_stream,
      .files = &files,
      .identifiers = &identifiers,
      .kernel_objects = &kernel_objects,
      .loopback_http = &loopback_http,
      .network = &network,
      .process = &process,
      .proxy_settings = &proxy_settings,
      .registry = &registry,
      .scheduled_command = &scheduled_command,
      .text = &text,
      .windows = &windows,
  };
};

CountingOs::CountingOs(const Os& inner, CountingPlan plan)
    : sides_(std::make_unique<Sides>(inner, std::move(plan))) {}

CountingOs::~CountingOs() = default;

const Os& CountingOs::os() const { return sides_->os; }
std::size_t CountingOs::count() const { return sides_->counter.count(); }
std::vector<std::string> CountingOs::trace() const { return sides_->counter.trace(); }

}  // namespace korvane::test
