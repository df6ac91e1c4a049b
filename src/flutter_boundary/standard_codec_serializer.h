// standard_codec_serializer.h: channel values as bytes, in the published standard format.
//
//   byte      value               content
//   0, 1, 2   null, true, false   none
//   3, 4      32, 64 bits         4, 8 bytes
//   5         large integer       size, digits in hexadecimal; read as a string, never written
//   6         double              padding to 8, 8 bytes
//   7         string              size, bytes
//   8         bytes               size, bytes
//   9, 10     32-, 64-bit list    size, padding to the element's width, elements
//   11, 14    double, float list  likewise
//   12        list                size, values
//   13        map                 size in pairs, key and value by turns
//
// A size is one byte up to 253, FE and two bytes up to 65535, FF and four bytes beyond.
//
// Reading stands any input, in time and memory proportional to its length: sizes are checked
// against what is left before anything is done with them, and what is read owns its content. A cut
// value ends at the cut, with zeros for the number there and empty for the text or typed list (see
// byte_streams.h). An unknown type byte is null and has no content; a list or map that stands
// inside kMaximumNesting others is treated as unknown. Of equal keys in a map the last stays, as in
// Dart's own maps. Strings are taken as they are, valid or not.
//
// Writing never fails: a custom value leaves a null, so that the message around it stays readable.
// Strings and lists of 4 GiB and more have no form in this format and must not be given.
//
// To the error stream: one line for each unknown type byte and for each custom value. Any thread.
#pragma once

#include "flutter_boundary/byte_streams.h"
#include "flutter_boundary/encodable_value.h"

namespace flutter {

class StandardCodecSerializer {
 public:
  // Lists and maps inside one another that are read. Far beyond anything that Dart sends; reading,
  // comparing, copying and destroying such a value fits a small thread's stack.
  static constexpr int kMaximumNesting = 256;

  // Made on first use, never destroyed.
  static const StandardCodecSerializer& GetInstance();

  EncodableValue ReadValue(ByteStreamReader& stream) const;
  void WriteValue(const EncodableValue& value, ByteStreamWriter& stream) const;
};

}  // namespace flutter
