// src/llrp/framer.h — reassembles LLRP frames from the arbitrary chunks a TCP socket delivers.
//
// Feed every chunk received, then pop frames until pop returns 0. A header whose length is
// below the header size or above the framer's maximum breaks the stream for good (there is no
// way to find the next frame boundary): pop keeps returning the error and the caller closes the
// connection. A caller that pops until 0 after every feed keeps the framer at one partial
// frame plus the last chunk fed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "llrp/codec.h"

namespace tessera::llrp {

class Framer {
 public:
  // A framer that refuses frames announced longer than maxFrameSize bytes.
  explicit Framer(uint32_t maxFrameSize = kMaxFrameSize);

  // Appends received bytes; 0, or the stream's error code (negative) once it is broken.
  [[nodiscard]] int feed(std::span<const uint8_t> bytes);
  // Moves the next complete frame into frame (header included); 1 when one was popped, 0 when
  // more bytes are needed, a negative ErrorCode value when the stream is broken.
  [[nodiscard]] int pop(std::vector<uint8_t>& frame);
  // What broke the stream (offset counts bytes since the framer started); code 0 if nothing.
  const Error& error() const { return error_; }
  // Bytes held that do not yet form a complete frame or have not been popped.
  size_t buffered() const { return buffer_.size() - start_; }
  // Drops everything held and any error, as for a new connection.
  void reset();

 private:
  uint32_t maxFrameSize_;
  std::vector<uint8_t> buffer_;
  size_t start_ = 0;       // first byte of buffer_ not yet popped
  uint64_t consumed_ = 0;  // bytes popped since the start, for error offsets
  Error error_;
};

}  // namespace tessera::llrp
