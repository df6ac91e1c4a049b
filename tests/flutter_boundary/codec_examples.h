// codec_examples.h: whole messages of the published format and what they hold. Brackets stand
// around padding.
#pragma once

#include <string>
#include <vector>

#include "flutter_boundary/encodable_value.h"

namespace flutter {

struct ValueExample {
  std::string bytes;
  EncodableValue value;
};

struct CallExample {
  std::string bytes;
  std::string method;
  EncodableValue arguments;
};

// A success with `value` when `code` is empty, otherwise an error with `value` as its details.
struct EnvelopeExample {
  std::string bytes;
  std::string code;
  std::string message;
  EncodableValue value;
};

inline std::vector<ValueExample> ValueExamples() {
  return {
      {"00", {}},
      {"01", true},
      {"02", false},
      {"03 ff ff ff ff", -1},
      {"03 ff ff ff 7f", 2147483647},
      {"04 00 00 00 80 00 00 00 00", std::int64_t{2147483648}},
      {"04 ff ff ff 7f ff ff ff ff", std::int64_t{-2147483649}},
      {"04 05 00 00 00 00 00 00 00", std::int64_t{5}},
      {"06 [00 00 00 00 00 00 00] 00 00 00 00 00 00 f8 3f", 1.5},
      {"07 00", ""},
      {"07 02 c3 a9", "\xc3\xa9"},
      {"08 03 01 02 03", std::vector<std::uint8_t>{1, 2, 3}},
      {"09 02 [00 00] 01 00 00 00 fe ff ff ff", std::vector<std::int32_t>{1, -2}},
      {"0a 01 [00 00 00 00 00 00] 01 00 00 00 00 00 00 00", std::vector<std::int64_t>{1}},
      {"0b 00 [00 00 00 00 00 00]", std::vector<double>()},
      {"0e 01 [00 00] 00 00 c0 3f", std::vector<float>{1.5F}},
      {"0c 03 00 01 03 07 00 00 00", EncodableList{{}, true, 7}},
      {"0c 02 07 05 61 62 63 64 65 06 [00 00 00 00 00 00] 00 00 00 00 00 00 f0 3f",
       EncodableList{"abcde", 1.0}},
      {"0c 02 08 01 aa 09 01 [00] 05 00 00 00",
       EncodableList{std::vector<std::uint8_t>{0xAA}, std::vector<std::int32_t>{5}}},
      {"0d 02 07 01 61 03 01 00 00 00 07 01 62 00", EncodableMap{{"a", 1}, {"b", {}}}},
      {"0d 03 03 01 00 00 00 00 07 01 61 02 07 01 62 01",
       EncodableMap{{"b", true}, {"a", false}, {1, {}}}},
  };
}

inline std::vector<CallExample> CallExamples() {
  return {
      {"07 09 69 73 52 75 6e 6e 69 6e 67 00", "isRunning", {}},
      {"07 11 73 74 61 72 74 75 70 42 72 65 61 64 63 72 75 6d 62 0d 02 07 06 64 61 72 74 4d 73 03 "
       "fa 00 00 00 07 04 6e 61 6d 65 07 02 75 69",
       "startupBreadcrumb", EncodableMap{{"name", "ui"}, {"dartMs", 250}}},
      {"07 01 6d 06 [00 00 00 00] 00 00 00 00 00 00 f0 3f", "m", 1.0},
  };
}

inline std::vector<EnvelopeExample> EnvelopeExamples() {
  return {
      {"00 00", "", "", {}},
      {"00 01", "", "", true},
      {"00 03 78 00 00 00", "", "", 120},
      {"00 06 [00 00 00 00 00 00] 00 00 00 00 00 00 f0 3f", "", "", 1.0},
      {"00 0d 01 07 06 73 74 61 74 75 73 07 0d 76 70 6e 5f 63 6f 6e 6e 65 63 74 65 64", "", "",
       EncodableMap{{"status", "vpn_connected"}}},
      {"01 07 11 49 4e 56 41 4c 49 44 5f 41 52 47 55 4d 45 4e 54 53 07 12 72 65 61 73 6f 6e 20 69 "
       "73 20 72 65 71 75 69 72 65 64 00",
       "INVALID_ARGUMENTS",
       "reason is required",
       {}},
      {"01 07 01 58 00 00", "X", "", {}},
      {"01 07 01 45 07 01 6d 06 00 00 00 00 00 00 f0 3f", "E", "m", 1.0},
  };
}

}  // namespace flutter
