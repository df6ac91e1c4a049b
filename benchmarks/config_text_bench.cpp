// The searches over the configuration text beside a bare search for a byte sequence and beside
// engines of expressions. The text has no match, so that each search goes over all of it.
#include <benchmark/benchmark.h>
#include <string.h>

#include <cstdint>
#include <string>

#include "expression_engines.h"
#include "samples.h"
#include "vpn/config_text.h"

namespace korvane::bench {
namespace {

constexpr std::int64_t kSmall = 200'000;
constexpr std::int64_t kLarge = 5'000'000;

std::string WithoutInterfaceName(std::int64_t bytes) {
  std::string text = Configuration(static_cast<std::size_t>(bytes));
  text.replace(text.find("interface_name"), 14, "interface_mark");
  return text;
}

struct Ours {
  std::size_t Search(const std::string& text) const {
    return RewriteInterfaceName(text, "Korvane-TUN-1-1").size();
  }
};

// With the copy of the text that the rewriting gives.
struct Memmem {
  std::size_t Search(const std::string& text) const {
    constexpr std::string_view kKey = "\"interface_name\"";
    const void* const found = memmem(text.data(), text.size(), kKey.data(), kKey.size());
    return found == nullptr ? std::string(text).size() : 0;
  }
};

template <typename Expression>
struct Engine {
  std::size_t Search(const std::string& text) const {
    return expression.Find(text, 0) ? 0 : std::string(text).size();
  }
  Expression expression{R"("interface_name"\s*:\s*"[^"]*")"};
};

template <typename Subject>
void Rewrite(benchmark::State& state) {
  const std::string text = WithoutInterfaceName(state.range(0));
  const Subject subject;
  for (auto _ : state) {
    benchmark::DoNotOptimize(subject.Search(text));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(Rewrite<Ours>)->Name("config_scan/ours")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(Rewrite<Memmem>)->Name("config_scan/memmem")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(Rewrite<Engine<Re2Expression>>)->Name("config_scan/re2")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(Rewrite<Engine<StdExpression>>)->Name("config_scan/std_regex")->Arg(kSmall)->Arg(kLarge);

}  // namespace
}  // namespace korvane::bench
