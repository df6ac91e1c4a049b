#include "launch/session_messages.h"

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "recorder/startup_recorder.h"

namespace korvane {

namespace {

std::int32_t LowWord(std::uintptr_t value) { return static_cast<std::int32_t>(value & 0xFFFF); }

std::int32_t HighWord(std::uintptr_t value) {
  return static_cast<std::int32_t>((value >> 16) & 0xFFFF);
}

}  // namespace

void RecordSystemMessage(std::uint32_t message, platform::MessageParameter parameter,
                         platform::MessageData data) {
  StartupRecorder& recorder = StartupRecorder::instance();
  const auto code = static_cast<std::int64_t>(parameter);
  const auto size = static_cast<std::uintptr_t>(data);
  switch (message) {
    case platform::kWmPowerBroadcast:
      recorder.Event("WM_POWERBROADCAST", {{"code", code}});
      break;
    case platform::kWmDisplayChange:
      recorder.RecordDisplayEvent(
          "WM_DISPLAYCHANGE",
          {{"code", code}, {"width", LowWord(size)}, {"height", HighWord(size)}});
      break;
    case platform::kWmDpiChanged:
      recorder.RecordDisplayEvent(
          "WM_DPICHANGED",
          {{"code", code}, {"dpi_x", LowWord(parameter)}, {"dpi_y", HighWord(parameter)}});
      break;
    case platform::kWmWtsSessionChange:
      recorder.RecordDisplayEvent("WM_WTSSESSION_CHANGE", {{"code", code}});
      break;
    default:
      break;
  }
}

void KeepShutdownEvidence(std::uint32_t message, platform::MessageParameter parameter) {
  const bool ends = message == platform::kWmQueryEndSession ||
                    (message == platform::kWmEndSession && parameter != 0);
  if (ends) {
    LibboxLogBuffer::instance().writeOsShutdownMarker();
    LibboxLogBuffer::instance().recordShutdownIntent("os_shutdown");
  } else if (message == platform::kWmEndSession) {
    LibboxLogBuffer::instance().clearOsShutdownMarker();
    LibboxLogBuffer::instance().clearShutdownIntent("os_shutdown");
  }
}

}  // namespace korvane
