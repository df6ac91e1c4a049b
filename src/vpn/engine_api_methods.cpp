#include <exception>
#include <string>
#include <variant>

#include "engine_api/url_test.h"
#include "vpn/method_arguments.h"
#include "vpn/vpn_methods.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr std::int32_t kDefaultTestTimeoutMs = 5000;

std::string SelectorTag(const Arguments& arguments) {
  const std::string tag = StringArgument(arguments, "selectorTag");
  return tag.empty() ? kDefaultSelectorTag : tag;
}

// Nobody can say where a test stands from outside, so the stage's name has no further use.
bool CheckUrlTestStillConnected(const char* /*stage*/) { return IsVpnConnected(); }

EncodableValue ChannelValue(int latency) { return EncodableValue(std::int32_t{latency}); }

EncodableValue ChannelValue(const AutoSelectorInfo& info) {
  return EncodableValue(EncodableMap{{"selectedTag", TextValue(info.selected_tag)},
                                     {"selectedLatency", std::int32_t{info.selected_latency}},
                                     {"allLatencies", TextValue(info.all_latencies)}});
}

// The one place at which a question that came to an end is answered.
template <typename T>
void AnswerWith(const OwnedResult& result, const std::variant<T, EngineApiError>& answer) {
  if (const auto* error = std::get_if<EngineApiError>(&answer)) {
    result->Error(error->code, error->message);
  } else {
    result->Success(ChannelValue(std::get<T>(answer)));
  }
}

// Runs the whole question, and tells the exception that ended it; numbers beyond an int, in the
// configuration or in an answer of the engine, end it so.
template <typename Question>
void AnswerOrTell(const OwnedResult& result, const char* exception_code, Question question) {
  try {
    AnswerWith(result, question());
  } catch (const std::exception& error) {
    result->Error(exception_code, EnsureUtf8(error.what()));
  } catch (...) {
    result->Error(exception_code, "Unknown error occurred");
  }
}

void GetAutoSelectorInfoWorker(const OwnedResult& result, const std::string& config,
                               const std::string& selector_tag) {
  AnswerOrTell(result, "EXCEPTION",
               [&] { return GetAutoSelectorInfo(config, selector_tag, IsVpnConnected); });
}

void PerformUrlTestWorker(const OwnedResult& result, std::int32_t timeout_ms,
                          const std::string& selector_tag) {
  AnswerOrTell(result, "URL_TEST_EXCEPTION", [&] {
    return PerformUrlTest(CopyConfigText(), selector_tag, timeout_ms, CheckUrlTestStillConnected);
  });
}

}  // namespace

void MethodGetAutoSelectorInfo(const Arguments& arguments, OwnedResult result) {
  if (!IsVpnConnected()) {
    result->Error("VPN_NOT_CONNECTED", "VPN must be connected to get auto selector info");
    return;
  }
  HandOver(std::move(result), GetAutoSelectorInfoWorker, CopyConfigText(), SelectorTag(arguments));
}

// Kept on purpose: `nodeConfig` and `testUrl` are part of the call and have no effect. Every test
// goes through the selected outbound to the one probe URL.
void MethodPerformUrlTest(const Arguments& arguments, OwnedResult result) {
  if (arguments.GetIf<EncodableMap>() == nullptr) {
    result->Error("INVALID_ARGUMENTS", "Arguments required for performUrlTest");
    return;
  }
  if (!IsVpnConnected()) {
    result->Error("VPN_NOT_CONNECTED", "VPN must be connected to perform URL test");
    return;
  }
  const auto* timeout_ms = FindArgument<std::int32_t>(arguments, "timeout");
  HandOver(std::move(result), PerformUrlTestWorker,
           timeout_ms != nullptr ? *timeout_ms : kDefaultTestTimeoutMs, SelectorTag(arguments));
}

}  // namespace korvane
