// line_format.h: one event as one line of startup.log.
//
// A line is a JSON object without blanks between its tokens, and a line feed. Keys come in the
// order of EncodableMap, so text keys ascend bytewise. In strings the double quote, the backslash
// and every byte below 0x20 are escaped, the last as a backslash, "u00" and two lower-case digits;
// all other bytes pass, whether or not they are valid UTF-8. Doubles and lists have no form here:
// an object that says so stands in their place, and the line stays valid JSON.
#pragma once

#include <string>

#include "flutter_boundary/encodable_value.h"

namespace korvane {

// The value as JSON. A map's keys are written like values.
std::string Serialize(const flutter::EncodableValue& value);

// The object of the fields, with the members of `over` in place of those with the same key, and the
// line feed.
std::string SerializeLine(const flutter::EncodableMap& fields,
                          const flutter::EncodableMap& over = {});

}  // namespace korvane
