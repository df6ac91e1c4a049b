// channel_value.h: channel values between JSON and the standard message codec.
//
// Written from the published format and independent of the host's own codec, which it checks: what
// the two don't read alike is a fault of one of them. The JSON forms:
//
//   null, true, "text", [..], {..}      as they are; a string is UTF-8
//   5, 3000000000                       32 bits when it fits, else 64
//   1.5, 1e3                            double
//   {"$int64":5}                        64 bits, printed when the number would fit into 32
//   {"$double":1}                       also "NaN", "Infinity", "-Infinity", which JSON can't write
//   {"$bytes":"00ff"}                   list of bytes, in hexadecimal
//   {"$int32list":[1]} {"$int64list":[1]} {"$float64list":[1.5]} {"$float32list":[1.5]}
//   {"$map":[[key,value],..]}           a map whose keys aren't all different strings, or whose
//   only
//                                       key would be taken for a form
//   {"$latin1":"\u00ff"}                a string of raw bytes, one character each
//
// No thread, no lock, no state.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "interface/json.h"

namespace korvane::stand_in {

// Values nest no deeper than this in either direction.
inline constexpr int kNestingLimit = 500;

// Appends values to a message. Padding counts from the message's first byte.
class ValueWriter {
 public:
  explicit ValueWriter(Bytes& message) : message_(message) {}

  void Write(const Json& value);
  void WriteString(std::string_view bytes);

  // The first thing that has no form on the wire; empty when there was none. The message is of no
  // use after an error.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  void WriteInteger(const Json& value);
  void WriteDouble(double value);
  void WriteList(const Json& list);
  void WriteObject(const Json& object);
  bool WriteForm(const std::string& name, const Json& content);
  void WriteInt64Form(const Json& content);
  void WriteDoubleForm(const Json& content);
  void WriteBytesForm(const Json& content);
  void WriteMapForm(const Json& content);
  void WriteLatin1Form(const Json& content);
  template <typename T>
  void WriteNumberList(std::uint8_t type, const Json& content);

  template <typename T>
  void Append(T number);
  void AppendSize(std::size_t size);
  void Align(std::size_t width);
  void Fail(std::string why);

  Bytes& message_;
  std::string error_;
  int depth_ = 0;
};

// Reads values from a message, strictly: what a Dart decoder would stumble over is an error here.
class ValueReader {
 public:
  explicit ValueReader(std::span<const std::uint8_t> message) : message_(message) {}

  // The next value; null after an error.
  Json Read();
  // The next byte as it stands; 0 after an error.
  std::uint8_t ReadByte();

  [[nodiscard]] bool AtEnd() const { return position_ == message_.size(); }
  // The first thing that was wrong with the bytes; empty when nothing was.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  Json ReadOfType(std::uint8_t type);
  Json ReadInt64();
  Json ReadString();
  Json ReadBytes();
  Json ReadList();
  Json ReadMap();
  template <typename T>
  Json ReadNumberList(const char* form);

  template <typename T>
  T Take();
  // A count of elements of at least `width` bytes each, checked against what is left.
  std::size_t TakeSize(std::size_t width);
  std::span<const std::uint8_t> TakeBytes(std::size_t count);
  void Align(std::size_t width);
  void Fail(std::string why);

  std::span<const std::uint8_t> message_;
  std::size_t position_ = 0;
  std::string error_;
  int depth_ = 0;
};

// Hexadecimal digits, blanks between the bytes allowed on the way in; false for anything else.
bool BytesFromHex(std::string_view text, Bytes& bytes);
std::string HexFromBytes(std::span<const std::uint8_t> bytes);

// A string's JSON form: itself when it is UTF-8, else {"$latin1":..}.
Json TextForm(std::string_view bytes);

}  // namespace korvane::stand_in
