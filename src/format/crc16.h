// src/format/crc16.h — CRC-16/GENIBUS, the CRC-16 of EPC Gen2 tags: polynomial 0x1021, initial
// value 0xFFFF, no reflection, result complemented. The check value of "123456789" is 0xD64E.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tessera {

namespace crc16_detail {
constexpr std::array<uint16_t, 256> makeTable() {
  std::array<uint16_t, 256> table{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned crc = i << 8;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x8000) ? ((crc << 1) ^ 0x1021) : (crc << 1);
    table[i] = static_cast<uint16_t>(crc);
  }
  return table;
}
inline constexpr std::array<uint16_t, 256> kTable = makeTable();
}  // namespace crc16_detail

// The CRC of n bytes; 0 for no bytes at all.
constexpr uint16_t crc16Genibus(const char* bytes, size_t n) {
  if (n == 0) return 0;
  unsigned crc = 0xFFFF;
  for (size_t i = 0; i < n; ++i) {
    unsigned b = static_cast<unsigned char>(bytes[i]);
    crc = crc16_detail::kTable[(b ^ (crc >> 8)) & 0xFF] ^ ((crc << 8) & 0xFFFF);
  }
  return static_cast<uint16_t>(crc ^ 0xFFFF);
}

}  // namespace tessera
