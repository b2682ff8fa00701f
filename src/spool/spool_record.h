// src/spool/spool_record.h — one batch as the outage spool stores it: a 32-byte header and the
// batch's text. All numbers are big-endian.
//
//   offset  size  field
//   0       4     magic "TSP1"
//   4       4     length of the text in bytes
//   8       8     batch sequence number (batch_seq)
//   16      8     when the batch was written, seconds since the epoch
//   24      4     tag reads in the batch
//   28      4     CRC-32 (IEEE 802.3) of bytes 8..27 and the text
//   32      n     the text, exactly as it is delivered
//
// A segment file is such records back to back. A record that is cut short or whose CRC does not
// match ends what can be trusted in its file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tessera::spool {

inline constexpr uint32_t kRecordMagic = 0x54535031;  // "TSP1"
inline constexpr size_t kRecordHeaderSize = 32;
// A batch is at most a few hundred KiB; anything claiming more is damage, not data.
inline constexpr uint32_t kMaxRecordText = 64u << 20;

struct RecordInfo {
  size_t offset = 0;    // of the header in the segment
  uint32_t length = 0;  // of the text
  uint64_t seq = 0;
  uint64_t written = 0;  // seconds since the epoch
  uint32_t reads = 0;
};

// CRC-32 (IEEE 802.3, reflected, as in Ethernet and gzip), continued from `crc`.
uint32_t crc32(std::span<const uint8_t> bytes, uint32_t crc = 0);
// Appends one record to `out`.
void encodeRecord(uint64_t seq, uint64_t written, uint32_t reads, std::string_view text,
                  std::string& out);
// Lists the whole, intact records of a segment's bytes in order; returns the offset just past
// the last of them (the segment's size when nothing is damaged).
size_t scanSegment(std::span<const uint8_t> bytes, std::vector<RecordInfo>& out);

}  // namespace tessera::spool
