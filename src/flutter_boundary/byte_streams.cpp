#include "flutter_boundary/byte_streams.h"

#include <algorithm>
#include <utility>

#include "platform/os.h"

namespace flutter {

namespace {

// Holds most messages, so that they never grow.
constexpr std::size_t kRoom = 4096;

std::size_t PaddingAt(std::size_t position, std::size_t width) {
  return (width - position % width) % width;
}

}  // namespace

void ByteStreamReader::ReadBytes(std::span<std::uint8_t> target) {
  const auto source = ReadView(target.size());
  std::copy(source.begin(), source.end(), target.begin());
  std::fill(target.begin() + static_cast<std::ptrdiff_t>(source.size()), target.end(),
            std::uint8_t{0});
}

void ByteStreamReader::ReadAlignment(std::size_t width) { ReadView(PaddingAt(position_, width)); }

bool ByteStreamReader::Fail() {
  failed_ = true;
  korvane::platform::WriteErrorLine("Invalid read in StandardCodecByteStreamReader");
  return false;
}

void ByteBufferStreamWriter::WriteBeyondRoom(std::span<const std::uint8_t> bytes) {
  const std::size_t written = Written();
  const std::size_t needed = written + bytes.size() + kRoom;
  if (needed > buffer_.capacity()) {
    buffer_.reserve(std::max(needed, 2 * buffer_.capacity()));
  }
  buffer_.resize(written);
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  buffer_.resize(buffer_.size() + kRoom);
  room_end_ = buffer_.data() + buffer_.size();
  room_ = room_end_ - kRoom;
}

void ByteBufferStreamWriter::WriteAlignment(std::size_t width) {
  constexpr std::array<std::uint8_t, sizeof(double)> kZeros{};
  WriteBytes(std::span(kZeros).first(PaddingAt(Written(), width)));
}

std::vector<std::uint8_t> ByteBufferStreamWriter::Take() {
  buffer_.resize(Written());
  room_ = room_end_ = nullptr;
  return std::exchange(buffer_, {});
}

}  // namespace flutter
