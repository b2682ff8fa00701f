// src/llrp/framer.cc — frame reassembly over a byte stream.
#include "llrp/framer.h"

#include <cstring>

namespace tessera::llrp {

Framer::Framer(uint32_t maxFrameSize) : maxFrameSize_(maxFrameSize) {}

int Framer::feed(std::span<const uint8_t> bytes) {
  if (!error_.ok()) return static_cast<int>(error_.code);
  // Slide the unread tail to the front before it grows, so the buffer stays one frame wide.
  if (start_ > 0 && start_ >= buffer_.size() / 2) {
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start_));
    start_ = 0;
  }
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  return 0;
}

int Framer::pop(std::vector<uint8_t>& frame) {
  if (!error_.ok()) return static_cast<int>(error_.code);
  const size_t avail = buffer_.size() - start_;
  if (avail < kHeaderSize) return 0;
  FrameHeader header;
  Error e =
      decodeHeader(std::span<const uint8_t>(buffer_.data() + start_, avail), header, maxFrameSize_);
  if (!e.ok()) {
    e.offset += static_cast<uint32_t>(consumed_ > UINT32_MAX ? UINT32_MAX : consumed_);
    error_ = e;
    return static_cast<int>(error_.code);
  }
  if (avail < header.length) return 0;
  frame.assign(buffer_.begin() + static_cast<std::ptrdiff_t>(start_),
               buffer_.begin() + static_cast<std::ptrdiff_t>(start_ + header.length));
  start_ += header.length;
  consumed_ += header.length;
  if (start_ == buffer_.size()) {
    buffer_.clear();
    start_ = 0;
  }
  return 1;
}

void Framer::reset() {
  buffer_.clear();
  start_ = 0;
  consumed_ = 0;
  error_ = Error{};
}

}  // namespace tessera::llrp
