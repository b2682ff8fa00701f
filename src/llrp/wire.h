// src/llrp/wire.h — byte-level facts of LLRP shared by the decoder and the encoder.
#pragma once

#include <cstdint>

namespace tessera::llrp::wire {

// Type number of the Custom parameter, the vendor extension allowed at most places.
constexpr uint16_t kCustomType = 1023;
// TLV types below this number do not exist: the range belongs to TV parameters.
constexpr uint16_t kFirstTlvType = 128;
// Size of a TLV parameter header: type word and length.
constexpr uint32_t kTlvHeaderSize = 4;

// Value width of each TV type; 0 for types LLRP 1.0.1 does not define. A TV parameter has no
// length field, so this table is the only way past one.
constexpr uint8_t kTvWidth[128] = {
    0, 2, 8, 8, 8, 8, 1, 2, 2, 4, 2, 2, 2, 12, 2, 0, 4, 2, 4,
};

// Big-endian loads.
[[gnu::always_inline]] inline uint16_t load16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }
[[gnu::always_inline]] inline uint32_t load32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
[[gnu::always_inline]] inline uint64_t load64(const uint8_t* p) { return (uint64_t{load32(p)} << 32) | load32(p + 4); }

// A half-open byte range of the frame.
struct Range {
  uint32_t begin = 0;
  uint32_t end = 0;
};

}  // namespace tessera::llrp::wire
