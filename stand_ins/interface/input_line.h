// input_line.h: what a line of the console's input asks for.
//
// Parsing decides everything that can be decided without the host, the bytes of a message included,
// so that a bad line is told with its reason before anything happened.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>

#include "interface/json.h"

namespace korvane::stand_in {

inline constexpr std::chrono::milliseconds kDefaultWaitMs{30'000};

// {"call"}, {"raw"}, {"listen"}, {"cancel"}: bytes for a channel, answered by a reply.
struct SendLine {
  std::string channel;  // the whole name
  Json id;              // null: the console gives the next number
  Bytes message;
};

// {"wait":{..}}; `what` is the object that stands behind "wait", checked.
struct WaitLine {
  enum class Kind { kState, kMethod, kWindow, kReply, kIdle };
  Kind kind;
  Json what;
  Json operand;
  std::chrono::milliseconds timeout = kDefaultWaitMs;
};

struct FrameLine {};

// {"window":{"message":536,"wparam":4,"lparam":0}}. Messages whose last parameter points at
// something take "text" or "rect":[left,top,right,bottom] in place of "lparam"; they are sent from
// within the window's thread, since the system refuses to queue them.
struct WindowLine {
  std::uint32_t message = 0;
  std::uintptr_t wparam = 0;
  std::intptr_t lparam = 0;
  std::optional<std::wstring> text;
  std::optional<std::array<std::int32_t, 4>> rectangle;
};

// {"engine":{"consume":[..]}}: the whole set, replacing the former one.
struct ConsumeLine {
  std::set<std::uint32_t> messages;
};

struct FailLine {
  std::string what;
};

struct SleepLine {
  std::chrono::milliseconds time;
};

struct MeasureLine {};
struct CloseLine {};
struct AbortLine {};

using InputLine = std::variant<SendLine, WaitLine, FrameLine, WindowLine, ConsumeLine, FailLine,
                               SleepLine, MeasureLine, CloseLine, AbortLine>;

// One of the two is set.
struct ParsedLine {
  std::optional<InputLine> line;
  std::string error;
};

ParsedLine ParseInputLine(std::string_view text);

// Whether a line holds nothing to do: blanks only, or a remark behind "#".
bool IsBlank(std::string_view text);

}  // namespace korvane::stand_in
