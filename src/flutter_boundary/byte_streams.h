// byte_streams.h: the bytes of one message, read and written in order.
//
// Numbers are little-endian. Alignment counts from the first byte of the message, so a stream holds
// one whole message and nothing else.
//
// A read that needs more bytes than are left is invalid: it yields zeros and writes "Invalid read
// in StandardCodecByteStreamReader" to the error stream. The message is spoilt from there on: every
// later read yields zeros too, and says nothing more. Not for two threads at once.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace flutter {

static_assert(std::endian::native == std::endian::little, "numbers are copied as they are");

class ByteStreamReader {
 public:
  ByteStreamReader() = default;
  virtual ~ByteStreamReader() = default;
  ByteStreamReader(const ByteStreamReader&) = delete;
  ByteStreamReader& operator=(const ByteStreamReader&) = delete;

  // The next `length` bytes where they lie; none when the read is invalid.
  virtual std::span<const std::uint8_t> ReadView(std::size_t length) = 0;
  // Fills `target`, wholly or, when the read is invalid, with zeros.
  virtual void ReadBytes(std::span<std::uint8_t> target) = 0;
  // Skips to the next multiple of `width`.
  virtual void ReadAlignment(std::size_t width) = 0;
  // True when so many bytes are left; otherwise that is an invalid read. To be asked about every
  // size that a message claims before memory is taken for it.
  virtual bool Require(std::uint64_t length) = 0;
  // True after an invalid read.
  virtual bool failed() const = 0;

  template <typename Number>
  Number ReadNumber() {
    std::array<std::uint8_t, sizeof(Number)> bytes{};
    ReadBytes(bytes);
    return std::bit_cast<Number>(bytes);
  }
};

class ByteStreamWriter {
 public:
  ByteStreamWriter() = default;
  virtual ~ByteStreamWriter() = default;
  ByteStreamWriter(const ByteStreamWriter&) = delete;
  ByteStreamWriter& operator=(const ByteStreamWriter&) = delete;

  virtual void WriteBytes(std::span<const std::uint8_t> bytes) = 0;
  // Writes zeros up to the next multiple of `width`.
  virtual void WriteAlignment(std::size_t width) = 0;

  template <typename Number>
  void WriteNumber(Number number) {
    WriteBytes(std::bit_cast<std::array<std::uint8_t, sizeof(Number)>>(number));
  }
};

// Over bytes that outlive the reader.
class ByteBufferStreamReader : public ByteStreamReader {
 public:
  explicit ByteBufferStreamReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::span<const std::uint8_t> ReadView(std::size_t length) override;
  void ReadBytes(std::span<std::uint8_t> target) override;
  void ReadAlignment(std::size_t width) override;
  bool Require(std::uint64_t length) override;
  bool failed() const override { return failed_; }

 private:
  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

// Appends to a buffer that is empty at first and outlives the writer.
class ByteBufferStreamWriter : public ByteStreamWriter {
 public:
  explicit ByteBufferStreamWriter(std::vector<std::uint8_t>* buffer) : buffer_(buffer) {}

  void WriteBytes(std::span<const std::uint8_t> bytes) override;
  void WriteAlignment(std::size_t width) override;

 private:
  std::vector<std::uint8_t>* buffer_;
};

}  // namespace flutter
