// src/readerapi/rfid_records.h — the plain records that the reader API library and the service
// exchange: one tag read, a reader date and time, and the start/stop triggers of an inventory.
// Plain structs with named members; no vendor byte layout is implied.
#pragma once

#include <cstdint>

namespace tessera {

// A date and time as the reader reports it; every field is a plain number.
struct ReaderDateTime {
  uint16_t year = 0;          // full year, e.g. 2026
  uint16_t month = 0;         // 1 to 12
  uint16_t dayOfWeek = 0;     // not used by the service
  uint16_t day = 0;           // day of the month, 1 to 31
  uint16_t hour = 0;          // 0 to 23
  uint16_t minute = 0;        // 0 to 59
  uint16_t second = 0;        // 0 to 59
  uint16_t milliseconds = 0;  // 0 to 999
};

// Largest EPC a Gen2 tag can carry: 31 words of the PC length field, 62 bytes.
inline constexpr uint32_t kMaxTagIdBytes = 62;

// Tag event code of a plain read; its time is seenTime. Any other code takes tagEventTime.
inline constexpr uint32_t kTagEventSeen = 6;

// What a read holds for a field the reader left out of its TagReportData. Each read stands on
// its own, so a missing field never shows another read's value. Antenna and channel numbers
// start at 1 and a PC of 0 would announce an EPC of no words, so 0 stands out as "not sent";
// the RSSI is the weakest signal, so that a threshold drops such a read instead of taking it
// for a strong one.
// A missing TagSeenCount reads as 1, a missing FirstSeen as LastSeen, then the arrival time.
inline constexpr uint16_t kAntennaNotReported = 0;
inline constexpr int8_t kRssiNotReported = -128;
inline constexpr uint16_t kChannelNotReported = 0;
inline constexpr uint16_t kPcNotReported = 0;

// One tag read. The record owns its EPC: the bytes live inline in tagID, and tagIDLength says
// how many are valid (users clamp it to kMaxTagIdBytes).
struct ReaderTagData {
  uint8_t tagID[kMaxTagIdBytes] = {};  // EPC bytes, most significant first
  uint32_t tagIDLength = 0;            // EPC length in bytes
  uint16_t PC = 0;                     // protocol control word
  uint16_t CRC = 0;                    // the tag's stored CRC, when the reader reports it
  uint16_t antennaID = 0;              // antenna port that saw the tag, 1-based
  ReaderDateTime seenTime;             // time of the read when tagEvent is kTagEventSeen
  int8_t peakRSSI = 0;                 // dBm
  uint16_t channelIndex = 0;           // 1-based index of the hop table channel
  uint16_t tagSeenCount = 0;           // reads merged into this report
  uint32_t tagEvent = kTagEventSeen;   // tag event code; selects seenTime or tagEventTime
  ReaderDateTime tagEventTime;         // time of the read for any other tag event code
  int16_t phase = 0;                   // raw phase; degrees = phase * 180 / 32767
};

// What starts an inventory.
enum class StartTriggerType : uint32_t {
  Immediate = 0,  // at once (also used after a configured start delay)
  Periodic = 1,   // every periodMs milliseconds
  Gpi = 2,        // on an event of GPI port gpiPort
};

// What stops an inventory.
enum class StopTriggerType : uint32_t {
  None = 0,        // runs until stopped by a call
  Duration = 1,    // after durationMs milliseconds
  Gpi = 2,         // on an event of GPI port gpiPort
  TagCount = 3,    // after tagCount tags
  RoundCount = 4,  // after roundCount inventory rounds
};

struct StartTrigger {
  StartTriggerType type = StartTriggerType::Immediate;
  uint32_t periodMs = 0;      // Periodic: period in milliseconds
  uint16_t gpiPort = 0;       // Gpi: port number
  bool gpiEvent = false;      // Gpi: event flag (always false as configured)
  uint32_t gpiTimeoutMs = 0;  // Gpi: time-out (always 0 as configured)
};

struct StopTrigger {
  StopTriggerType type = StopTriggerType::None;
  uint32_t durationMs = 0;  // Duration: milliseconds
  uint16_t gpiPort = 0;     // Gpi: port number
  uint16_t tagCount = 0;    // TagCount: number of tags
  uint16_t roundCount = 0;  // RoundCount: number of rounds
  bool gpiEvent = false;    // Gpi: event flag (always false as configured)
  uint32_t timeoutMs = 0;   // Gpi, TagCount, RoundCount: time-out (always 0 as configured)
};

// The fourth field of an InventoryControl value; its meaning is the reader API's. Only the
// first word is set; the rest stays zero.
struct TriggerValueBlock {
  uint32_t value = 0;
  uint32_t reserved[4] = {};
};

// The start and stop triggers handed to RFID_PerformInventory.
struct TriggerRecord {
  StartTrigger start;
  StopTrigger stop;
  // Tags after which the reader reports reads; the inventory starters set 1 (report each read).
  uint32_t tagReportTrigger = 0;
  // Report options; the inventory starters set 0 (none).
  uint32_t tagReportOptions = 0;
  // Whether valueBlock holds a parsed fourth field; a record that holds it owns it, so a copy
  // of the record stays valid while an inventory runs.
  bool hasValueBlock = false;
  TriggerValueBlock valueBlock;
};

}  // namespace tessera
