// src/format/tag_view.h — the service's view of one tag read: the EPC as text, the phase in
// degrees and the read's time. Header-only so that the record formats can use it without the
// service.
#pragma once

#include <cstddef>
#include <cstdint>

#include "readerapi/rfid_records.h"

namespace tessera {

// Two hex digits per EPC byte of the largest EPC.
inline constexpr size_t kEpcTextCapacity = 2 * kMaxTagIdBytes;

// Writes the EPC as two upper-case hex digits per byte, most significant first, NUL-terminated;
// stops early rather than overflow `capacity` (which counts the NUL). The length written.
// The serial, key=value and JSON records all print this text. An EPC whose bit count is not a
// multiple of 8 (EPCData) prints as its whole bytes: the padding bits that end the last byte
// print as 0 bits, which the reader API clears whatever the reader sent, so a 20-bit EPC
// ABCDE prints "ABCDE0", and the text alone does not tell its bit count.
inline size_t epcText(const ReaderTagData& tag, char* out, size_t capacity) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  if (capacity == 0) return 0;
  uint32_t bytes = tag.tagIDLength < kMaxTagIdBytes ? tag.tagIDLength : kMaxTagIdBytes;
  size_t n = 0;
  for (uint32_t i = 0; i < bytes && n + 2 < capacity; ++i) {
    out[n++] = kDigits[tag.tagID[i] >> 4];
    out[n++] = kDigits[tag.tagID[i] & 0x0F];
  }
  out[n] = '\0';
  return n;
}

// The raw signed phase in degrees, -180 to 180.
inline double phaseDegrees(int16_t raw) { return static_cast<double>(raw) * (180.0 / 32767.0); }

// The read's time: the seen time of a plain read, the tag-event time of any other event.
inline const ReaderDateTime& readTime(const ReaderTagData& tag) {
  return tag.tagEvent == kTagEventSeen ? tag.seenTime : tag.tagEventTime;
}

// The derived texts and values of one read, computed once and shared by every format.
struct TagView {
  char epc[kEpcTextCapacity + 1] = {};  // EPC hex text, empty for an EPC of length 0
  size_t epcLength = 0;                 // characters in epc
  ReaderDateTime time;                  // the read's time
  double phase = 0.0;                   // phase in degrees
};

// Builds the view of one read.
inline TagView makeTagView(const ReaderTagData& tag) {
  TagView view;
  view.epcLength = epcText(tag, view.epc, sizeof view.epc);
  view.time = readTime(tag);
  view.phase = phaseDegrees(tag.phase);
  return view;
}

}  // namespace tessera
