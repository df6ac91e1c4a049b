#include "flutter_boundary/channel_reports.h"

#include "platform/os.h"

namespace flutter {

namespace {

struct DetailsText {
  std::string operator()(std::monostate) const { return "null"; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(std::int32_t value) const { return std::to_string(value); }
  std::string operator()(std::int64_t value) const { return std::to_string(value); }
  std::string operator()(double value) const { return std::to_string(value); }
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(const EncodableMap&) const { return "(map)"; }
  std::string operator()(const CustomEncodableValue&) const { return "(custom)"; }
  template <typename Element>
  std::string operator()(const std::vector<Element>&) const {
    return "(list)";
  }
};

}  // namespace

void ReportUndecodableCall(const std::string& channel) {
  korvane::platform::WriteErrorLine("Unable to construct method call from message on channel " +
                                    channel);
}

void ReportFailedCancel(const std::string& code, const std::string& message,
                        const EncodableValue* details) {
  const std::string text =
      details != nullptr ? std::visit(DetailsText(), details->content()) : "null";
  korvane::platform::WriteErrorLine("Failed to cancel existing stream: " + code + ", " + message +
                                    ", " + text);
}

}  // namespace flutter
