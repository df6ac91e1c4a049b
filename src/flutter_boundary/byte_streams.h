// byte_streams.h: the bytes of one message, read and written in order.
//
// Numbers are little-endian. Alignment counts from the first byte of the message, so a stream holds
// one whole message and nothing else.
//
// A read that needs more bytes than are left is invalid: it yields zeros and writes "Invalid read
// in StandardCodecByteStreamReader" to the error stream. The message is spoilt from there on: every
// later read yields zeros too, and says nothing more. Not for two threads at once.
//
// A message is mostly short texts, two small steps each. The steps therefore stand here, inline,
// and work on plain memory; only what they can't do on the spot (fail, grow) is a call.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace flutter {

static_assert(std::endian::native == std::endian::little, "numbers are copied as they are");

class ByteStreamReader {
 public:
  virtual ~ByteStreamReader() = default;
  ByteStreamReader(const ByteStreamReader&) = delete;
  ByteStreamReader& operator=(const ByteStreamReader&) = delete;

  // The next `length` bytes where they lie; none when the read is invalid.
  std::span<const std::uint8_t> ReadView(std::size_t length) {
    if (!Require(length)) {
      return {};
    }
    const auto view = bytes_.subspan(position_, length);
    position_ += length;
    return view;
  }
  // Fills `target`, wholly or, when the read is invalid, with zeros.
  void ReadBytes(std::span<std::uint8_t> target);
  // Skips to the next multiple of `width`.
  void ReadAlignment(std::size_t width);
  // True when so many bytes are left; otherwise that is an invalid read. To be asked about every
  // size that a message claims before memory is taken for it.
  bool Require(std::uint64_t length) {
    return !failed_ && (length <= bytes_.size() - position_ || Fail());
  }
  // True after an invalid read.
  bool failed() const { return failed_; }

  template <typename Number>
  Number ReadNumber() {
    Number number{};
    if (Require(sizeof(number))) {
      std::memcpy(&number, bytes_.data() + position_, sizeof(number));
      position_ += sizeof(number);
    }
    return number;
  }

 protected:
  // Over bytes that outlive the reader.
  explicit ByteStreamReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

 private:
  // Always false.
  bool Fail();

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

class ByteStreamWriter {
 public:
  ByteStreamWriter() = default;
  virtual ~ByteStreamWriter() = default;
  ByteStreamWriter(const ByteStreamWriter&) = delete;
  ByteStreamWriter& operator=(const ByteStreamWriter&) = delete;

  void WriteBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
      return;
    }
    if (std::uint8_t* const place = TakeRoom(bytes.size())) {
      std::memcpy(place, bytes.data(), bytes.size());
    } else {
      WriteBeyondRoom(bytes);
    }
  }
  // Takes the next `length` bytes for the caller to fill at once; null when the room is smaller, to
  // be written the other way.
  std::uint8_t* TakeRoom(std::size_t length) {
    if (length > Room()) {
      return nullptr;
    }
    std::uint8_t* const place = room_;
    room_ += length;
    return place;
  }
  // Writes zeros up to the next multiple of `width`.
  virtual void WriteAlignment(std::size_t width) = 0;

  template <typename Number>
  void WriteNumber(Number number) {
    WriteBytes(std::bit_cast<std::array<std::uint8_t, sizeof(Number)>>(number));
  }

 protected:
  // Writes what is longer than the room, and leaves some room for what comes.
  virtual void WriteBeyondRoom(std::span<const std::uint8_t> bytes) = 0;

  std::size_t Room() const { return static_cast<std::size_t>(room_end_ - room_); }

  // Where the next bytes go.
  std::uint8_t* room_ = nullptr;
  std::uint8_t* room_end_ = nullptr;
};

// Over bytes that outlive the reader.
class ByteBufferStreamReader : public ByteStreamReader {
 public:
  explicit ByteBufferStreamReader(std::span<const std::uint8_t> bytes) : ByteStreamReader(bytes) {}
};

// Into a buffer of its own.
class ByteBufferStreamWriter : public ByteStreamWriter {
 public:
  void WriteAlignment(std::size_t width) override;

  // What was written; the writer begins anew.
  std::vector<std::uint8_t> Take();

 private:
  void WriteBeyondRoom(std::span<const std::uint8_t> bytes) override;
  std::size_t Written() const { return buffer_.size() - Room(); }

  // What was written, and the room behind it.
  std::vector<std::uint8_t> buffer_;
};

}  // namespace flutter
