// The JSON document beside two libraries that give a tree as well, on configurations of two sizes.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "allocations.h"
#include "egress/json_document.h"
#include "samples.h"

namespace korvane::bench {
namespace {

constexpr std::int64_t kSmall = 200'000;
constexpr std::int64_t kLarge = 5'000'000;

struct Ours {
  static auto Parse(const std::string& text) { return ParseJsonDocument(text); }
  static bool Succeeded(const std::optional<JsonDocument>& document) {
    return document.has_value();
  }
};

struct Nlohmann {
  static auto Parse(const std::string& text) {
    return nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  }
  static bool Succeeded(const nlohmann::json& document) { return !document.is_discarded(); }
};

struct RapidJson {
  static auto Parse(const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    return document;
  }
  static bool Succeeded(const rapidjson::Document& document) { return !document.HasParseError(); }
};

// The time holds the destruction of the tree.
template <typename Subject>
void ParseConfiguration(benchmark::State& state) {
  const std::string text = Configuration(static_cast<std::size_t>(state.range(0)));
  {
    const AllocationCount allocations;
    const auto document = Subject::Parse(text);
    if (!Subject::Succeeded(document)) {
      state.SkipWithError("does not parse");
      return;
    }
    state.counters["heap_per_byte"] =
        static_cast<double>(allocations.PeakBytes()) / static_cast<double>(text.size());
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(Subject::Parse(text));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(ParseConfiguration<Ours>)->Name("json/ours")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(ParseConfiguration<Nlohmann>)->Name("json/nlohmann")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(ParseConfiguration<RapidJson>)->Name("json/rapidjson")->Arg(kSmall)->Arg(kLarge);

}  // namespace
}  // namespace korvane::bench
