#include "support/counting_os.h"

#include <utility>

#include "support/counted_subject.h"

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

std::optional<platform::ErrorCode> OperationCounter::Begin(const Operation& operation) {
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
  Sides(const platform::Os& inner, CountingPlan plan)
      : counter(std::move(plan), *inner.files),
        appearance(Count(*inner.appearance, counter)),
        clocks(Count(*inner.clocks, counter)),
        code_trust(Count(*inner.code_trust, counter)),
        dynamic_libraries(Count(*inner.dynamic_libraries, counter)),
        error_stream(Count(*inner.error_stream, counter)),
        files(Count(*inner.files, counter)),
        identifiers(Count(*inner.identifiers, counter)),
        kernel_objects(Count(*inner.kernel_objects, counter)),
        elevation(Count(*inner.elevation, *kernel_objects, counter)),
        loopback_http(Count(*inner.loopback_http, counter)),
        network(Count(*inner.network, counter)),
        process(Count(*inner.process, counter)),
        proxy_settings(Count(*inner.proxy_settings, counter)),
        registry(Count(*inner.registry, counter)),
        scheduled_command(Count(*inner.scheduled_command, counter)),
        text(Count(*inner.text, counter)),
        windows(Count(*inner.windows, counter)) {}

  OperationCounter counter;
  std::unique_ptr<platform::Appearance> appearance;
  std::unique_ptr<platform::Clocks> clocks;
  std::unique_ptr<platform::CodeTrust> code_trust;
  std::unique_ptr<platform::DynamicLibraries> dynamic_libraries;
  std::unique_ptr<platform::ErrorStream> error_stream;
  std::unique_ptr<platform::Files> files;
  std::unique_ptr<platform::Identifiers> identifiers;
  std::unique_ptr<platform::KernelObjects> kernel_objects;
  std::unique_ptr<platform::Elevation> elevation;
  std::unique_ptr<platform::LoopbackHttp> loopback_http;
  std::unique_ptr<platform::Network> network;
  std::unique_ptr<platform::Process> process;
  std::unique_ptr<platform::ProxySettings> proxy_settings;
  std::unique_ptr<platform::Registry> registry;
  std::unique_ptr<platform::ScheduledCommand> scheduled_command;
  std::unique_ptr<platform::TextEncoding> text;
  std::unique_ptr<platform::WindowSystem> windows;
  platform::Os os{
      .appearance = appearance.get(),
      .clocks = clocks.get(),
      .code_trust = code_trust.get(),
      .dynamic_libraries = dynamic_libraries.get(),
      .elevation = elevation.get(),
      .error_stream = error_stream.get(),
      .files = files.get(),
      .identifiers = identifiers.get(),
      .kernel_objects = kernel_objects.get(),
      .loopback_http = loopback_http.get(),
      .network = network.get(),
      .process = process.get(),
      .proxy_settings = proxy_settings.get(),
      .registry = registry.get(),
      .scheduled_command = scheduled_command.get(),
      .text = text.get(),
      .windows = windows.get(),
  };
};

CountingOs::CountingOs(const platform::Os& inner, CountingPlan plan)
    : sides_(std::make_unique<Sides>(inner, std::move(plan))) {}

CountingOs::~CountingOs() = default;

const platform::Os& CountingOs::os() const { return sides_->os; }
std::size_t CountingOs::count() const { return sides_->counter.count(); }
std::vector<std::string> CountingOs::trace() const { return sides_->counter.trace(); }

}  // namespace korvane::test
