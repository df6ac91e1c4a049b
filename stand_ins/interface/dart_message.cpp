#include "interface/dart_message.h"

#include <array>
#include <utility>

#include "interface/channel_value.h"

namespace korvane::stand_in {
namespace {

struct ShortName {
  std::string_view short_name;
  std::string_view name;
};

constexpr std::array kChannels{ShortName{"vpn", kVpnChannel}, ShortName{"core", kCoreChannel},
                               ShortName{"vpn_events", kVpnEventsChannel}};

struct EnvelopeKeys {
  const char* success;
  const char* error;
  const char* empty;
};

Json Malformed(const std::string& why, std::span<const std::uint8_t> bytes) {
  Json line;
  line["malformed"] = why;
  line["hex"] = HexFromBytes(bytes);
  return line;
}

Json ReadError(ValueReader& reader) {
  Json error;
  error["code"] = reader.Read();
  error["message"] = reader.Read();
  error["details"] = reader.Read();
  return error;
}

// Dart insists on a text as code, and on a text or nothing as message.
bool IsError(const Json& error) {
  return error["code"].is_string() && (error["message"].is_string() || error["message"].is_null());
}

Json DescribeEnvelope(std::span<const std::uint8_t> envelope, const EnvelopeKeys& keys) {
  if (envelope.empty()) {
    return Json{{keys.empty, true}};
  }
  ValueReader reader(envelope);
  const auto kind = reader.ReadByte();
  Json content = kind == 0 ? reader.Read() : ReadError(reader);
  if (kind > 1) {
    return Malformed("no envelope", envelope);
  }
  if (!reader.error().empty()) {
    return Malformed(reader.error(), envelope);
  }
  if (!reader.AtEnd()) {
    return Malformed("bytes left over", envelope);
  }
  if (kind == 1 && !IsError(content)) {
    return Malformed("no error envelope", envelope);
  }
  Json line;
  line[kind == 0 ? keys.success : keys.error] = std::move(content);
  return line;
}

}  // namespace

std::string ChannelName(std::string_view short_name) {
  for (const auto& channel : kChannels) {
    if (channel.short_name == short_name) {
      return std::string(channel.name);
    }
  }
  return short_name.find('/') == std::string_view::npos ? std::string() : std::string(short_name);
}

std::string ShortChannelName(std::string_view name) {
  for (const auto& channel : kChannels) {
    if (channel.name == name) {
      return std::string(channel.short_name);
    }
  }
  return std::string(name);
}

Bytes EncodeCall(std::string_view method, const Json& arguments, std::string& error) {
  Bytes message;
  ValueWriter writer(message);
  writer.WriteString(method);
  writer.Write(arguments);
  error = writer.error();
  return message;
}

Bytes EncodeNullReply() { return {0, 0}; }

Json DescribeReply(std::span<const std::uint8_t> envelope) {
  return DescribeEnvelope(envelope, {"success", "error", "not_implemented"});
}

Json DescribeEvent(std::span<const std::uint8_t> envelope) {
  return DescribeEnvelope(envelope, {"event", "event_error", "event_end"});
}

Json DescribeCall(std::span<const std::uint8_t> message) {
  ValueReader reader(message);
  Json line;
  line["method"] = reader.Read();
  line["args"] = reader.Read();
  if (!reader.error().empty()) {
    return Malformed(reader.error(), message);
  }
  if (!reader.AtEnd()) {
    return Malformed("bytes left over", message);
  }
  if (!line["method"].is_string()) {
    return Malformed("the method's name is no text", message);
  }
  return line;
}

}  // namespace korvane::stand_in
