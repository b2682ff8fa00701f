// src/format/crc16.h — CRC-16/GENIBUS, the CRC-16 of EPC Gen2 tags: polynomial 0x1021, initial
// value 0xFFFF, no reflection, result complemented. The check value of "123456789" is 0xD64E.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tessera {

namespace crc16_detail {

using Table = std::array<uint16_t, 256>;

// kTables[0][i] is the CRC register step of byte i; kTables[k][i] the same byte followed by k
// zero bytes, so that eight bytes can be folded in with eight independent lookups.
constexpr std::array<Table, 8> makeTables() {
  std::array<Table, 8> tables{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned crc = i << 8;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x8000) ? ((crc << 1) ^ 0x1021) : (crc << 1);
    tables[0][i] = static_cast<uint16_t>(crc);
  }
  for (size_t k = 1; k < 8; ++k) {
    for (unsigned i = 0; i < 256; ++i) {
      unsigned prev = tables[k - 1][i];
      tables[k][i] = static_cast<uint16_t>(((prev << 8) & 0xFFFF) ^ tables[0][prev >> 8]);
    }
  }
  return tables;
}
inline constexpr std::array<Table, 8> kTables = makeTables();

}  // namespace crc16_detail

// The CRC of n bytes; 0 for no bytes at all.
constexpr uint16_t crc16Genibus(const char* bytes, size_t n) {
  if (n == 0) return 0;
  const auto& t = crc16_detail::kTables;
  unsigned crc = 0xFFFF;
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    auto b = [&](size_t k) {
      return static_cast<unsigned>(static_cast<unsigned char>(bytes[i + k]));
    };
    crc = t[7][b(0) ^ (crc >> 8)] ^ t[6][b(1) ^ (crc & 0xFF)] ^ t[5][b(2)] ^ t[4][b(3)] ^
          t[3][b(4)] ^ t[2][b(5)] ^ t[1][b(6)] ^ t[0][b(7)];
  }
  for (; i < n; ++i) {
    unsigned b = static_cast<unsigned char>(bytes[i]);
    crc = t[0][(b ^ (crc >> 8)) & 0xFF] ^ ((crc << 8) & 0xFFFF);
  }
  return static_cast<uint16_t>(crc ^ 0xFFFF);
}

}  // namespace tessera
