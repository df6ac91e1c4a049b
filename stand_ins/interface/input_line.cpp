#include "interface/input_line.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "interface/channel_value.h"
#include "interface/dart_message.h"

namespace korvane::stand_in {
namespace {

constexpr std::int64_t kLongestMs = 24LL * 60 * 60 * 1000;

// One object of a line. Takes fields by name and type; the first thing that is wrong stays as the
// error, a field that nobody took included.
class Fields {
 public:
  explicit Fields(const Json& object) : object_(object) {}

  const Json* Take(const char* name) {
    taken_.insert(name);
    const auto found = object_.find(name);
    return found == object_.end() ? nullptr : &*found;
  }

  std::string Text(const char* name, const std::string& absent) {
    const auto* value = Take(name);
    if (value == nullptr) {
      return absent;
    }
    if (value->is_string()) {
      return value->get<std::string>();
    }
    Fail(std::string("\"") + name + "\" wants a text");
    return absent;
  }

  std::int64_t Integer(const char* name, std::int64_t least, std::int64_t most,
                       std::int64_t absent) {
    const auto* value = Take(name);
    if (value == nullptr) {
      return absent;
    }
    if (value->is_number_integer() &&
        !(value->is_number_unsigned() && value->get<std::uint64_t>() > INT64_MAX) &&
        value->get<std::int64_t>() >= least && value->get<std::int64_t>() <= most) {
      return value->get<std::int64_t>();
    }
    Fail(std::string("\"") + name + "\" wants an integer from " + std::to_string(least) + " to " +
         std::to_string(most));
    return absent;
  }

  void WantTrue(const char* name) {
    const auto* value = Take(name);
    if (value == nullptr || *value != true) {
      Fail(std::string("\"") + name + "\" wants true");
    }
  }

  void Fail(std::string why) {
    if (error_.empty()) {
      error_ = std::move(why);
    }
  }

  // The error, once all fields that belong to the line were taken.
  std::string Finish() {
    for (const auto& item : object_.items()) {
      if (!taken_.contains(item.key())) {
        Fail("\"" + item.key() + "\" doesn't belong here");
      }
    }
    return error_;
  }

 private:
  const Json& object_;
  std::set<std::string> taken_;
  std::string error_;
};

ParsedLine Finish(Fields& fields, InputLine line) {
  auto error = fields.Finish();
  if (!error.empty()) {
    return {std::nullopt, std::move(error)};
  }
  return {std::move(line), {}};
}

Json TakeId(Fields& fields) {
  const auto* id = fields.Take("id");
  if (id == nullptr) {
    return nullptr;
  }
  if (!id->is_number_integer() && !id->is_string()) {
    fields.Fail("\"id\" wants an integer or a text");
  }
  return *id;
}

std::string TakeChannel(Fields& fields, const char* name, const std::string& absent) {
  const auto given = fields.Text(name, absent);
  auto channel = ChannelName(given);
  if (channel.empty()) {
    fields.Fail("there is no channel \"" + given + "\"");
  }
  return channel;
}

ParsedLine ParseCall(Fields& fields) {
  SendLine line;
  const auto method = fields.Text("call", "");
  const auto* arguments = fields.Take("args");
  line.channel = TakeChannel(fields, "channel", "vpn");
  line.id = TakeId(fields);
  std::string error;
  line.message = EncodeCall(method, arguments == nullptr ? Json() : *arguments, error);
  if (!error.empty()) {
    fields.Fail("\"args\": " + error);
  }
  return Finish(fields, std::move(line));
}

ParsedLine ParseRaw(Fields& fields) {
  SendLine line;
  if (!BytesFromHex(fields.Text("raw", ""), line.message)) {
    fields.Fail("\"raw\" wants hexadecimal digits, two for each byte");
  }
  line.channel = TakeChannel(fields, "channel", "vpn");
  line.id = TakeId(fields);
  return Finish(fields, std::move(line));
}

// Without an id the reply carries the line's own word, so that calls alone are counted.
ParsedLine ParseStream(Fields& fields, const char* method) {
  SendLine line;
  line.channel = TakeChannel(fields, method, "");
  line.id = TakeId(fields);
  if (line.id.is_null()) {
    line.id = method;
  }
  const auto* arguments = fields.Take("args");
  std::string error;
  line.message = EncodeCall(method, arguments == nullptr ? Json() : *arguments, error);
  if (!error.empty()) {
    fields.Fail("\"args\": " + error);
  }
  return Finish(fields, std::move(line));
}

ParsedLine ParseWait(Fields& fields) {
  static constexpr std::array<std::pair<const char*, WaitLine::Kind>, 5> kKinds{{
      {"state", WaitLine::Kind::kState},
      {"method", WaitLine::Kind::kMethod},
      {"window", WaitLine::Kind::kWindow},
      {"reply", WaitLine::Kind::kReply},
      {"idle_ms", WaitLine::Kind::kIdle},
  }};
  const auto& what = *fields.Take("wait");
  const auto timeout = fields.Integer("timeout_ms", 0, kLongestMs, kDefaultWaitMs.count());
  if (!what.is_object() || what.size() != 1) {
    return {std::nullopt, "\"wait\" wants an object with one key"};
  }
  for (const auto& [name, kind] : kKinds) {
    if (!what.contains(name)) {
      continue;
    }
    Fields inner(what);
    Json operand = *inner.Take(name);
    if (kind == WaitLine::Kind::kIdle) {
      inner.Integer(name, 0, kLongestMs, 0);
    } else if (kind == WaitLine::Kind::kReply) {
      if (!operand.is_number_integer() && !operand.is_string()) {
        inner.Fail("\"reply\" wants an id");
      }
    } else {
      inner.Text(name, "");
    }
    fields.Fail(inner.Finish());
    return Finish(fields,
                  WaitLine{kind, what, std::move(operand), std::chrono::milliseconds(timeout)});
  }
  return {std::nullopt, "\"" + what.begin().key() + "\" can't be waited for"};
}

std::optional<std::array<std::int32_t, 4>> TakeRectangle(Fields& fields) {
  const auto* value = fields.Take("rect");
  if (value == nullptr) {
    return std::nullopt;
  }
  std::array<std::int32_t, 4> rectangle{};
  const bool fits = value->is_array() && value->size() == rectangle.size() &&
                    std::all_of(value->begin(), value->end(), [](const Json& number) {
                      return number.is_number_integer() &&
                             std::in_range<std::int32_t>(number.get<std::int64_t>());
                    });
  if (!fits) {
    fields.Fail("\"rect\" wants [left,top,right,bottom]");
    return std::nullopt;
  }
  std::transform(value->begin(), value->end(), rectangle.begin(),
                 [](const Json& number) { return number.get<std::int32_t>(); });
  return rectangle;
}

std::optional<std::wstring> TakeWideText(Fields& fields) {
  if (fields.Take("text") == nullptr) {
    return std::nullopt;
  }
  const auto text = fields.Text("text", "");
  if (std::any_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; })) {
    fields.Fail("\"text\" wants ASCII");
  }
  return std::wstring(text.begin(), text.end());
}

ParsedLine ParseWindow(Fields& fields) {
  const auto& what = *fields.Take("window");
  if (!what.is_object()) {
    return {std::nullopt, "\"window\" wants an object"};
  }
  Fields inner(what);
  WindowLine line;
  if (!what.contains("message")) {
    inner.Fail("\"message\" is missing");
  }
  line.message = static_cast<std::uint32_t>(inner.Integer("message", 0, UINT32_MAX, 0));
  line.wparam = static_cast<std::uintptr_t>(inner.Integer("wparam", INT64_MIN, INT64_MAX, 0));
  line.lparam = inner.Integer("lparam", INT64_MIN, INT64_MAX, 0);
  line.text = TakeWideText(inner);
  line.rectangle = TakeRectangle(inner);
  fields.Fail(inner.Finish());
  return Finish(fields, std::move(line));
}

ParsedLine ParseEngine(Fields& fields) {
  const auto& what = *fields.Take("engine");
  const auto is_message = [](const Json& number) {
    return number.is_number_integer() && std::in_range<std::uint32_t>(number.get<std::int64_t>());
  };
  if (!what.is_object() || what.size() != 1 || !what.contains("consume") ||
      !what["consume"].is_array() ||
      !std::all_of(what["consume"].begin(), what["consume"].end(), is_message)) {
    return {std::nullopt, "\"engine\" wants {\"consume\":[..]} with the numbers of messages"};
  }
  ConsumeLine line;
  for (const auto& number : what["consume"]) {
    line.messages.insert(number.get<std::uint32_t>());
  }
  return Finish(fields, std::move(line));
}

template <typename Line>
ParsedLine ParseTrue(Fields& fields, const char* name) {
  fields.WantTrue(name);
  return Finish(fields, Line{});
}

ParsedLine ParseObject(const Json& object) {
  Fields fields(object);
  if (object.contains("call")) {
    return ParseCall(fields);
  }
  if (object.contains("raw")) {
    return ParseRaw(fields);
  }
  if (object.contains("listen")) {
    return ParseStream(fields, "listen");
  }
  if (object.contains("cancel")) {
    return ParseStream(fields, "cancel");
  }
  if (object.contains("wait")) {
    return ParseWait(fields);
  }
  if (object.contains("frame")) {
    return ParseTrue<FrameLine>(fields, "frame");
  }
  if (object.contains("window")) {
    return ParseWindow(fields);
  }
  if (object.contains("engine")) {
    return ParseEngine(fields);
  }
  if (object.contains("fail")) {
    return Finish(fields, FailLine{fields.Text("fail", "")});
  }
  if (object.contains("sleep_ms")) {
    const auto time = fields.Integer("sleep_ms", 0, kLongestMs, 0);
    return Finish(fields, SleepLine{std::chrono::milliseconds(time)});
  }
  if (object.contains("close")) {
    return ParseTrue<CloseLine>(fields, "close");
  }
  if (object.contains("measure")) {
    return ParseTrue<MeasureLine>(fields, "measure");
  }
  if (object.contains("abort")) {
    return ParseTrue<AbortLine>(fields, "abort");
  }
  return {std::nullopt, "no such line"};
}

}  // namespace

ParsedLine ParseInputLine(std::string_view text) {
  try {
    const auto object = Json::parse(text);
    if (!object.is_object()) {
      return {std::nullopt, "a line is one JSON object"};
    }
    return ParseObject(object);
  } catch (const Json::exception& error) {  // the parser's only way to say where it stopped
    return {std::nullopt, error.what()};
  }
}

bool IsBlank(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r");
  return first == std::string_view::npos || text[first] == '#';
}

}  // namespace korvane::stand_in
