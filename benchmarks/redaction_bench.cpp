// The redaction beside engines of expressions and beside a bare scan of the same bytes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "allocations.h"
#include "diagnostics_evidence/redaction.h"
#include "expression_redaction.h"
#include "samples.h"

namespace korvane::bench {
namespace {

constexpr std::size_t kLogBytes = 1 << 20;
constexpr std::size_t kTokenBytes = 64 << 20;

struct Ours {
  static std::string Redact(const std::string& text) { return redactDiagnosticText(text); }
};

template <typename Expression>
struct Peer {
  static std::string Redact(const std::string& text) {
    static const ExpressionRedaction<Expression> redaction;
    return redaction.Redact(text);
  }
};

struct Scan {
  static std::ptrdiff_t Redact(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
  }
};

template <typename Subject>
void Measure(benchmark::State& state, const std::string& text) {
  if constexpr (!std::is_same_v<Subject, Scan>) {
    if (Subject::Redact(text) != redactDiagnosticText(text)) {
      state.SkipWithError("gives other bytes");
      return;
    }
  }
  const AllocationCount allocations;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Subject::Redact(text));
  }
  state.counters["allocations"] = allocations.PerIteration(state);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

template <typename Subject>
void MixedLog(benchmark::State& state) {
  Measure<Subject>(state, MixedEngineLog(kLogBytes));
}
BENCHMARK(MixedLog<Ours>)->Name("redact_mixed/ours");
BENCHMARK(MixedLog<Peer<PcreExpression>>)->Name("redact_mixed/pcre2");
BENCHMARK(MixedLog<Peer<Re2Expression>>)->Name("redact_mixed/re2");
BENCHMARK(MixedLog<Peer<StdExpression>>)->Name("redact_mixed/std_regex");
BENCHMARK(MixedLog<Scan>)->Name("redact_mixed/scan");

template <typename Subject>
void CleanLog(benchmark::State& state) {
  Measure<Subject>(state, CleanEngineLog(kLogBytes));
}
BENCHMARK(CleanLog<Ours>)->Name("redact_clean/ours");
BENCHMARK(CleanLog<Peer<PcreExpression>>)->Name("redact_clean/pcre2");
BENCHMARK(CleanLog<Scan>)->Name("redact_clean/scan");

template <typename Subject>
void BreadcrumbLine(benchmark::State& state) {
  Measure<Subject>(state, Breadcrumb());
}
BENCHMARK(BreadcrumbLine<Ours>)->Name("redact_breadcrumb/ours");
BENCHMARK(BreadcrumbLine<Peer<PcreExpression>>)->Name("redact_breadcrumb/pcre2");
BENCHMARK(BreadcrumbLine<Peer<Re2Expression>>)->Name("redact_breadcrumb/re2");
BENCHMARK(BreadcrumbLine<Peer<StdExpression>>)->Name("redact_breadcrumb/std_regex");
BENCHMARK(BreadcrumbLine<Scan>)->Name("redact_breadcrumb/scan");

template <typename Subject>
void LongToken(benchmark::State& state) {
  Measure<Subject>(state, std::string(static_cast<std::size_t>(state.range(0)), 'k'));
}
BENCHMARK(LongToken<Ours>)->Name("redact_token/ours")->Arg(kTokenBytes / 4)->Arg(kTokenBytes);
BENCHMARK(LongToken<Peer<Re2Expression>>)->Name("redact_token/re2")->Arg(kTokenBytes);

}  // namespace
}  // namespace korvane::bench
