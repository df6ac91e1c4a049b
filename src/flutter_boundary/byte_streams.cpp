#include "flutter_boundary/byte_streams.h"

#include <algorithm>

#include "platform/os.h"

namespace flutter {

namespace {

std::size_t PaddingAt(std::size_t position, std::size_t width) {
  return (width - position % width) % width;
}

}  // namespace

std::span<const std::uint8_t> ByteBufferStreamReader::ReadView(std::size_t length) {
  if (!Require(length)) {
    return {};
  }
  const auto view = bytes_.subspan(position_, length);
  position_ += length;
  return view;
}

void ByteBufferStreamReader::ReadBytes(std::span<std::uint8_t> target) {
  if (!Require(target.size())) {
    std::fill(target.begin(), target.end(), std::uint8_t{0});
    return;
  }
  const auto source = ReadView(target.size());
  std::copy(source.begin(), source.end(), target.begin());
}

void ByteBufferStreamReader::ReadAlignment(std::size_t width) {
  const std::size_t padding = PaddingAt(position_, width);
  if (Require(padding)) {
    position_ += padding;
  }
}

bool ByteBufferStreamReader::Require(std::uint64_t length) {
  if (failed_ || length <= bytes_.size() - position_) {
    return !failed_;
  }
  failed_ = true;
  korvane::platform::WriteErrorLine("Invalid read in StandardCodecByteStreamReader");
  return false;
}

void ByteBufferStreamWriter::WriteBytes(std::span<const std::uint8_t> bytes) {
  // The first few values don't each grow the buffer.
  constexpr std::size_t kFirstCapacity = 256;
  if (buffer_->capacity() == 0) {
    buffer_->reserve(std::max(kFirstCapacity, bytes.size()));
  }
  buffer_->insert(buffer_->end(), bytes.begin(), bytes.end());
}

void ByteBufferStreamWriter::WriteAlignment(std::size_t width) {
  buffer_->resize(buffer_->size() + PaddingAt(buffer_->size(), width));
}

}  // namespace flutter
