// src/state/read_ledger.h — where every tag read taken from the reader API went: delivered on
// the active channel, still held in memory, or discarded for a named reason. One lock keeps the
// counts consistent with each other, so that at every moment
//   reads_in == reads_out + reads_pending + reads_discarded.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "spool/spool.h"

namespace tessera {

// Why reads were discarded; each reason has its own count and key.
enum class DiscardReason : uint8_t {
  BufferFull,   // the reader API signalled a full buffer and its reads were drained unused
  ReaderApi,    // the reader API dropped them itself (a consumer stalled for a long time)
  Stale,        // left in the reader API from before a relay start
  NoClient,     // a plain inventory's TagData line with no data channel client to take it
  SerialWrite,  // the serial port refused the record
  Stopped,      // still held when the relay stopped
  SpoolFull,    // in the oldest spooled batches, dropped by the spool's size cap
  Rejected,     // in a spooled batch the HTTP server refused for good (kept in rejected/)
  Count
};

struct ReadCounts {
  uint64_t in = 0;
  uint64_t out = 0;
  uint64_t pending = 0;
  uint64_t discarded[static_cast<int>(DiscardReason::Count)] = {};
  uint64_t deliveryFailures = 0;
  uint64_t readerReconnects = 0;
  uint64_t inventoryPauses = 0;
  int64_t uptimeSeconds = 0;  // since the ledger was made, with the service
  spool::SpoolCounts spool;   // the outage spool's own counts, filled in by the caller

  uint64_t discardedTotal() const;
};

class ReadLedger {
 public:
  // Reads taken from the reader API, or found in the spool at start, and held for a later
  // delivery.
  void takenAndHeld(uint64_t n);
  // Reads taken from the reader API and delivered at once.
  void takenAndDelivered(uint64_t n);
  // Reads taken from the reader API and discarded at once.
  void takenAndDiscarded(DiscardReason why, uint64_t n);
  // Held reads that were delivered.
  void delivered(uint64_t n);
  // Held reads that were discarded.
  void discarded(DiscardReason why, uint64_t n);
  void deliveryFailed();
  void readerReconnected();
  void inventoryPaused();
  // A consistent copy of every count.
  ReadCounts snapshot() const;

 private:
  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  mutable std::mutex lock_;  // guards counts_
  ReadCounts counts_;
};

// The key of a discard reason: "reads_discarded_<reason>".
const char* discardKey(DiscardReason why);
// The counts as "key=value\r\n" lines, the order fixed.
std::string formatReadCounts(const ReadCounts& c);
// The same on one line, "key=value" separated by blanks, for the log.
std::string formatReadCountsLine(const ReadCounts& c);

}  // namespace tessera
