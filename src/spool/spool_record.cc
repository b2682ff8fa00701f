// src/spool/spool_record.cc — see spool_record.h.
#include "spool/spool_record.h"

#include <array>

namespace tessera::spool {

namespace {

constexpr std::array<uint32_t, 256> makeCrcTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = i;
    for (int bit = 0; bit < 8; ++bit) c = (c & 1u) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    table[i] = c;
  }
  return table;
}

constexpr std::array<uint32_t, 256> kCrcTable = makeCrcTable();

void putBig(std::string& out, uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

uint64_t getBig(std::span<const uint8_t> bytes, size_t at, int count) {
  uint64_t v = 0;
  for (int i = 0; i < count; ++i) v = (v << 8) | bytes[at + static_cast<size_t>(i)];
  return v;
}

}  // namespace

uint32_t crc32(std::span<const uint8_t> bytes, uint32_t crc) {
  crc = ~crc;
  for (uint8_t b : bytes) crc = kCrcTable[(crc ^ b) & 0xFFu] ^ (crc >> 8);
  return ~crc;
}

void encodeRecord(uint64_t seq, uint64_t written, uint32_t reads, std::string_view text,
                  std::string& out) {
  const size_t start = out.size();
  putBig(out, kRecordMagic, 4);
  putBig(out, text.size(), 4);
  putBig(out, seq, 8);
  putBig(out, written, 8);
  putBig(out, reads, 4);
  const auto* fields = reinterpret_cast<const uint8_t*>(out.data() + start + 8);
  uint32_t crc = crc32(std::span<const uint8_t>(fields, 20));
  crc = crc32(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()),
              crc);
  putBig(out, crc, 4);
  out.append(text);
}

size_t scanSegment(std::span<const uint8_t> bytes, std::vector<RecordInfo>& out) {
  size_t at = 0;
  while (bytes.size() - at >= kRecordHeaderSize) {
    if (getBig(bytes, at, 4) != kRecordMagic) break;
    const auto length = static_cast<uint32_t>(getBig(bytes, at + 4, 4));
    if (length > kMaxRecordText || bytes.size() - at - kRecordHeaderSize < length) break;
    uint32_t crc = crc32(bytes.subspan(at + 8, 20));
    crc = crc32(bytes.subspan(at + kRecordHeaderSize, length), crc);
    if (crc != static_cast<uint32_t>(getBig(bytes, at + 28, 4))) break;
    RecordInfo r;
    r.offset = at;
    r.length = length;
    r.seq = getBig(bytes, at + 8, 8);
    r.written = getBig(bytes, at + 16, 8);
    r.reads = static_cast<uint32_t>(getBig(bytes, at + 24, 4));
    out.push_back(r);
    at += kRecordHeaderSize + length;
  }
  return at;
}

}  // namespace tessera::spool
