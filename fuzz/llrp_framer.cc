// libFuzzer entry: arbitrary bytes as a TCP stream cut at points chosen by the input. The
// frames that come out must be exactly the stream's frames, whatever the chunking.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "llrp/framer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tessera::llrp;
  if (size < 1) return 0;
  // The first byte picks the chunk size, the rest is the stream.
  const size_t chunk = 1 + data[0] % 64;
  const uint8_t* stream = data + 1;
  const size_t length = size - 1;

  Framer framer(4096);
  std::vector<uint8_t> frame;
  size_t at = 0;
  size_t popped = 0;
  int r = 0;
  while (at < length && r >= 0) {
    const size_t n = length - at < chunk ? length - at : chunk;
    if (framer.feed({stream + at, n}) < 0) break;
    at += n;
    while ((r = framer.pop(frame)) == 1) {
      // Each frame is the next slice of the stream and announces its own length.
      if (popped + frame.size() > length) std::abort();
      if (std::memcmp(frame.data(), stream + popped, frame.size()) != 0) std::abort();
      FrameHeader h;
      if (!decodeHeader(frame, h, 4096).ok() || h.length != frame.size()) std::abort();
      popped += frame.size();
    }
  }
  if (r >= 0 && popped + framer.buffered() != length) std::abort();
  return 0;
}
