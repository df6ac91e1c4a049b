// window_wire.h: the two records by which processes speak about each other's headless windows.
//
// One connection carries one request and one reply, each a whole record of fixed size; anything
// longer or shorter is refused. Both sides run on one machine, so numbers are in its own byte
// order.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>

#include "platform/result.h"
#include "platform/window_system.h"

namespace korvane::platform {

// Changes with the layout: a process of another build is not spoken to.
inline constexpr std::uint32_t kWindowWireMark = 0x4B570001;

// The longest text in a record, in characters. A longer one matches no window.
inline constexpr std::size_t kWireTextLimit = 255;

enum class WindowOperation : std::uint32_t {
  kFind = 1,        // class and name (the title); value: the handle
  kExists = 2,      // window
  kProperty = 3,    // window and name; value: the property's, 0 when absent
  kPost = 4,        // window, message, parameter, data, elevated
  kShow = 5,        // window and message (the command)
  kForeground = 6,  // window
};

struct WireText {
  std::uint32_t length = 0;
  std::array<char32_t, kWireTextLimit> characters{};
};

struct WindowRequest {
  std::uint32_t mark = kWindowWireMark;
  WindowOperation operation = WindowOperation::kExists;
  std::uint64_t window = 0;
  std::uint32_t message = 0;
  std::uint32_t elevated = 0;  // whether the sender is
  std::uint64_t parameter = 0;
  std::int64_t data = 0;
  WireText window_class{};
  WireText name{};
};

struct WindowReply {
  std::uint32_t mark = kWindowWireMark;
  ErrorCode error = 0;  // 0 is a success
  std::uint64_t value = 0;
};

static_assert(std::is_trivially_copyable_v<WindowRequest>);
static_assert(std::is_trivially_copyable_v<WindowReply>);

// Nothing for a text that is too long.
inline std::optional<WireText> ToWire(const std::wstring& text) {
  if (text.size() > kWireTextLimit) {
    return std::nullopt;
  }
  WireText wire;
  wire.length = static_cast<std::uint32_t>(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    wire.characters[i] = static_cast<char32_t>(text[i]);
  }
  return wire;
}

// Nothing for a length that the record can't hold.
inline std::optional<std::wstring> FromWire(const WireText& wire) {
  if (wire.length > kWireTextLimit) {
    return std::nullopt;
  }
  return std::wstring(wire.characters.begin(), wire.characters.begin() + wire.length);
}

}  // namespace korvane::platform
