// src/readerapi/frame_backlog.h — LLRP frames that the receive thread had to take off the socket
// while the tag buffer was at its high-water mark (to find a reply or a KEEPALIVE behind them),
// kept undecoded and in arrival order until the buffer has room. Undecoded frames are about a
// third of the size of the reads they carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace tessera::readerapi {

struct FrameBacklog {
  // Beyond this a consumer has made no progress for a long time: further reports are dropped.
  static constexpr size_t kLimitBytes = 16u << 20;

  std::deque<std::vector<uint8_t>> frames;  // oldest first
  size_t bytes = 0;

  bool empty() const { return frames.empty(); }
  bool fits(size_t frameBytes) const { return bytes + frameBytes <= kLimitBytes; }
  void push(std::vector<uint8_t> frame) {
    bytes += frame.size();
    frames.push_back(std::move(frame));
  }
  std::vector<uint8_t> take() {
    std::vector<uint8_t> f = std::move(frames.front());
    frames.pop_front();
    bytes -= f.size();
    return f;
  }
};

}  // namespace tessera::readerapi
