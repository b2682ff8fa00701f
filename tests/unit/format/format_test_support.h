// Shared by the format tests: a tag read built field by field.
#pragma once

#include <cstdint>

#include "readerapi/rfid_records.h"

namespace tessera::test {

// The read used across the format tests: EPC E2801160600002054CD6F1A4, PC 0x3000, antenna 1,
// seen once, a plain read (its time is the seen time) on 16 November 2026 21:34:40.123.
inline ReaderTagData sampleTag() {
  ReaderTagData tag;
  const uint8_t epc[] = {0xE2, 0x80, 0x11, 0x60, 0x60, 0x00, 0x02, 0x05, 0x4C, 0xD6, 0xF1, 0xA4};
  for (uint32_t i = 0; i < sizeof epc; ++i) tag.tagID[i] = epc[i];
  tag.tagIDLength = sizeof epc;
  tag.PC = 0x3000;
  tag.antennaID = 1;
  tag.tagSeenCount = 1;
  tag.tagEvent = kTagEventSeen;
  tag.seenTime = ReaderDateTime{2026, 11, 1, 16, 21, 34, 40, 123};
  tag.tagEventTime = ReaderDateTime{1999, 1, 5, 2, 3, 4, 5, 6};
  return tag;
}

}  // namespace tessera::test
