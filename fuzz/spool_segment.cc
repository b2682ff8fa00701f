// The spool's segment reader over arbitrary file contents, as a damaged disk or a torn write can
// leave them: every record it accepts lies inside the bytes, and encoding it again gives back
// exactly the bytes it was read from.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "spool/spool_record.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tessera::spool;
  std::vector<RecordInfo> records;
  const std::span<const uint8_t> bytes(data, size);
  const size_t intact = scanSegment(bytes, records);
  if (intact > size) std::abort();
  size_t expected = 0;
  for (const auto& r : records) {
    if (r.offset != expected || r.offset + kRecordHeaderSize + r.length > intact) std::abort();
    const std::string_view text(reinterpret_cast<const char*>(data + r.offset + kRecordHeaderSize),
                                r.length);
    std::string again;
    encodeRecord(r.seq, r.written, r.reads, text, again);
    if (again.size() != kRecordHeaderSize + r.length ||
        std::memcmp(again.data(), data + r.offset, again.size()) != 0) {
      std::abort();
    }
    expected = r.offset + again.size();
  }
  if (expected != intact) std::abort();
  return 0;
}
