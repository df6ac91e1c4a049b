#include "launch/core_channel.h"

#include <array>
#include <cstddef>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "flutter_boundary/standard_method_codec.h"
#include "flutter_boundary/utf8.h"
#include "recorder/startup_recorder.h"
#include "vpn/vpn_manager.h"

namespace korvane {

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr char kCoreChannelName[] = "com.sundrelak.korvane/core";

constexpr std::size_t kMaxBreadcrumbName = 128;  // bytes
constexpr std::size_t kMaxUpdateResult = 128;
constexpr std::string_view kBreadcrumbCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.:-";
constexpr std::string_view kUpdateResultCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_().";

constexpr std::string_view kLastResult = "last_result";
constexpr std::array<std::string_view, 3> kUpdateKeys = {"last_attempt_at",
                                                         "last_successful_check_at", kLastResult};

// Why a call was refused; empty when it was not.
using Reason = std::string;

bool IsInteger(const EncodableValue& value) {
  return value.GetIf<std::int32_t>() != nullptr || value.GetIf<std::int64_t>() != nullptr;
}

bool IsTextOf(const EncodableValue& value, std::size_t max_bytes, std::string_view characters) {
  const auto* const text = value.GetIf<std::string>();
  return text != nullptr && text->size() <= max_bytes &&
         text->find_first_not_of(characters) == std::string::npos;
}

bool IsBreadcrumbName(const EncodableValue& value) {
  return IsTextOf(value, kMaxBreadcrumbName, kBreadcrumbCharacters) &&
         !value.GetIf<std::string>()->empty();
}

Reason RecordBreadcrumb(const EncodableMap& arguments) {
  const EncodableValue* const name = flutter::Find(arguments, "name");
  const EncodableValue* const dart_ms = flutter::Find(arguments, "dartMs");
  if (name == nullptr || dart_ms == nullptr) {
    return "breadcrumb_fields_missing";
  }
  if (!IsBreadcrumbName(*name)) {
    return "breadcrumb_name_invalid";
  }
  if (!IsInteger(*dart_ms)) {
    return "breadcrumb_time_invalid";
  }
  StartupRecorder::instance().Event("dart_breadcrumb", {{"name", *name}, {"dartMs", *dart_ms}});
  return {};
}

Reason CheckUpdateField(std::string_view key, const EncodableValue* value) {
  if (value == nullptr) {
    return "update_field_missing_" + std::string(key);
  }
  if (value->IsNull()) {
    return {};
  }
  if (key == kLastResult) {
    return IsTextOf(*value, kMaxUpdateResult, kUpdateResultCharacters) ? ""
                                                                       : "update_result_invalid";
  }
  return IsInteger(*value) ? "" : "update_timestamp_invalid_" + std::string(key);
}

// Copies the three fields alone: what else the map holds doesn't reach the log.
Reason RecordUpdate(const EncodableMap& arguments) {
  EncodableMap update;
  for (const std::string_view key : kUpdateKeys) {
    const EncodableValue* const value = flutter::Find(arguments, key);
    if (Reason reason = CheckUpdateField(key, value); !reason.empty()) {
      return reason;
    }
    update.emplace(EncodableValue(std::string(key)), *value);
  }
  StartupRecorder::instance().RecordUpdateResult(std::move(update));
  return {};
}

void AnswerRecording(const flutter::MethodCall<>& call, Reason (*record)(const EncodableMap&),
                     flutter::MethodResult<>& result) {
  const auto* const arguments = call.arguments().GetIf<EncodableMap>();
  const Reason reason = arguments != nullptr ? record(*arguments) : "arguments_not_map";
  if (reason.empty()) {
    result.Success();
    return;
  }
  StartupRecorder::instance().Event("startup_channel_invalid_arguments", {{"reason", reason}});
  result.Error("STARTUP_INVALID_ARGUMENTS", reason);
}

void AnswerCoreVersion(flutter::MethodResult<>& result) {
  std::string version;
  try {
    version = VPNManager::ReadCoreVersion();
  } catch (const std::exception& error) {
    result.Error("CORE_VERSION_ERROR", EnsureUtf8(error.what()));
    return;
  }
  result.Success(EncodableValue(version));
}

}  // namespace

void HandleCoreCall(const flutter::MethodCall<>& call,
                    std::unique_ptr<flutter::MethodResult<>> result) {
  const std::string& method = call.method_name();
  if (method == "getCoreVersion") {
    AnswerCoreVersion(*result);
  } else if (method == "startupBreadcrumb") {
    AnswerRecording(call, RecordBreadcrumb, *result);
  } else if (method == "startupUpdate") {
    AnswerRecording(call, RecordUpdate, *result);
  } else {
    result->NotImplemented();
  }
}

std::unique_ptr<flutter::MethodChannel<>> OpenCoreChannel(flutter::BinaryMessenger* messenger) {
  auto channel = std::make_unique<flutter::MethodChannel<>>(
      messenger, kCoreChannelName, &flutter::StandardMethodCodec::GetInstance());
  channel->SetMethodCallHandler(HandleCoreCall);
  return channel;
}

}  // namespace korvane
