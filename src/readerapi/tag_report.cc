// src/readerapi/tag_report.cc — see tag_report.h.
#include "readerapi/tag_report.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "llrp/vendor_extension.h"

namespace tessera::readerapi {

namespace {

ReaderDateTime toDateTime(uint64_t microsecondsUtc) {
  ReaderDateTime d;
  const time_t secs = static_cast<time_t>(microsecondsUtc / 1000000u);
  struct tm tmv {};
  if (localtime_r(&secs, &tmv) == nullptr) return d;
  d.year = static_cast<uint16_t>(tmv.tm_year + 1900);
  d.month = static_cast<uint16_t>(tmv.tm_mon + 1);
  d.dayOfWeek = static_cast<uint16_t>(tmv.tm_wday);
  d.day = static_cast<uint16_t>(tmv.tm_mday);
  d.hour = static_cast<uint16_t>(tmv.tm_hour);
  d.minute = static_cast<uint16_t>(tmv.tm_min);
  d.second = static_cast<uint16_t>(tmv.tm_sec);
  d.milliseconds = static_cast<uint16_t>((microsecondsUtc / 1000u) % 1000u);
  return d;
}

bool bitAt(std::span<const uint8_t> bytes, uint32_t bit) {
  return (bytes[bit / 8] >> (7 - bit % 8)) & 1u;
}

}  // namespace

ReaderTagData toReaderTagData(const llrp::TagReportData& r, uint32_t maxEpcBytes,
                              uint64_t nowMicros) {
  ReaderTagData t{};
  const auto epc = llrp::epcBytes(r.epc);
  t.tagIDLength =
      static_cast<uint32_t>(std::min<size_t>({epc.size(), maxEpcBytes, kMaxTagIdBytes}));
  std::memcpy(t.tagID, epc.data(), t.tagIDLength);
  // Bits after an EPCData's bit count only pad its last byte; whatever the reader put there,
  // they read as 0 so that one EPC always gives one text.
  const auto* epcData = std::get_if<llrp::EPCData>(&r.epc);
  if (epcData != nullptr && epcData->epc.bitCount % 8 != 0 && t.tagIDLength == epc.size() &&
      t.tagIDLength > 0) {
    t.tagID[t.tagIDLength - 1] &= static_cast<uint8_t>(0xFF << (8 - epcData->epc.bitCount % 8));
  }
  // A field the reader left out reads as its fixed "not reported" value, never another
  // read's (rfid_records.h says why these values).
  t.antennaID = r.antennaId.value_or(kAntennaNotReported);
  t.peakRSSI = r.peakRSSI.value_or(kRssiNotReported);
  t.channelIndex = r.channelIndex.value_or(kChannelNotReported);
  t.PC = r.c1g2PC.value_or(kPcNotReported);
  if (r.c1g2CRC) t.CRC = *r.c1g2CRC;
  t.tagSeenCount = r.tagSeenCount ? *r.tagSeenCount : 1;
  const uint64_t when = r.firstSeenTimestampUTC  ? *r.firstSeenTimestampUTC
                        : r.lastSeenTimestampUTC ? *r.lastSeenTimestampUTC
                                                 : nowMicros;
  t.seenTime = toDateTime(when);
  t.tagEvent = kTagEventSeen;
  t.tagEventTime = t.seenTime;
  for (const auto& c : r.customs) {
    if (c.vendorId != llrp::kVendorId ||
        c.subtype != static_cast<uint32_t>(llrp::VendorParameter::kPhase))
      continue;
    if (auto phase = llrp::phaseFromData(c.data)) t.phase = *phase;
  }
  return t;
}

bool passesPostFilter(const PostFilterData& filter, std::span<const uint8_t> epc, int8_t peakRssi) {
  if (filter.matchRssi && (peakRssi < filter.rssiMin || peakRssi > filter.rssiMax)) return false;
  if (filter.bits == 0) return true;
  if (uint32_t{filter.offset} + filter.bits > epc.size() * 8u) return false;
  for (uint32_t b = 0; b < filter.bits; ++b) {
    if (bitAt(epc, filter.offset + b) != bitAt(filter.pattern, b)) return false;
  }
  return true;
}

}  // namespace tessera::readerapi
