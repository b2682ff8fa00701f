// src/readerapi/tag_report.h — one LLRP TagReportData as the library's ReaderTagData, and the
// post-filter that decides whether a read reaches the tag buffer. Pure: no connection involved.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "llrp/records.h"
#include "readerapi/rfid_records.h"

namespace tessera::readerapi {

// A post-filter as the library keeps it (the caller's pattern copied).
struct PostFilterData {
  std::vector<uint8_t> pattern;
  uint16_t bits = 0;  // 0: any EPC
  uint16_t offset = 0;
  bool matchRssi = false;
  int8_t rssiMin = -128;
  int8_t rssiMax = 127;
};

// The read in `report`: the EPC cut to maxEpcBytes, fields the reader left out at their "not
// reported" values, the time from the first (else last) seen timestamp, else `nowMicros`.
ReaderTagData toReaderTagData(const llrp::TagReportData& report, uint32_t maxEpcBytes,
                              uint64_t nowMicros);

// Whether a read with this whole EPC and peak RSSI passes the filter.
bool passesPostFilter(const PostFilterData& filter, std::span<const uint8_t> epc, int8_t peakRssi);

}  // namespace tessera::readerapi
