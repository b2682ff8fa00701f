// src/state/read_ledger.cc — see read_ledger.h.
#include "state/read_ledger.h"

#include <cinttypes>
#include <cstdio>

namespace tessera {

namespace {

constexpr const char* kDiscardKeys[] = {
    "reads_discarded_buffer_full", "reads_discarded_reader_api",   "reads_discarded_stale",
    "reads_discarded_no_client",   "reads_discarded_serial_write", "reads_discarded_stopped",
    "reads_discarded_spool_full",  "reads_discarded_rejected",
};
static_assert(sizeof kDiscardKeys / sizeof kDiscardKeys[0] ==
              static_cast<size_t>(DiscardReason::Count));

std::string format(const ReadCounts& c, const char* separator) {
  std::string text;
  char line[96];
  auto add = [&](const char* key, uint64_t value) {
    if (!text.empty() && separator[0] == ' ') text += separator;
    std::snprintf(line, sizeof line, "%s=%" PRIu64, key, value);
    text += line;
    if (separator[0] != ' ') text += separator;
  };
  add("reads_in", c.in);
  add("reads_out", c.out);
  add("reads_pending", c.pending);
  add("reads_discarded", c.discardedTotal());
  for (int i = 0; i < static_cast<int>(DiscardReason::Count); ++i) {
    add(kDiscardKeys[i], c.discarded[i]);
  }
  add("delivery_failures", c.deliveryFailures);
  add("reader_reconnects", c.readerReconnects);
  add("inventory_pauses", c.inventoryPauses);
  add("uptime_s", static_cast<uint64_t>(c.uptimeSeconds < 0 ? 0 : c.uptimeSeconds));
  add("spool_bytes", c.spool.bytes);
  add("spool_batches", c.spool.batches);
  add("spool_dropped_reads", c.spool.droppedReads);
  add("spool_rejected_batches", c.spool.rejectedBatches);
  add("spool_oldest_age_s",
      static_cast<uint64_t>(c.spool.oldestAgeSeconds < 0 ? 0 : c.spool.oldestAgeSeconds));
  return text;
}

}  // namespace

uint64_t ReadCounts::discardedTotal() const {
  uint64_t total = 0;
  for (uint64_t d : discarded) total += d;
  return total;
}

void ReadLedger::takenAndHeld(uint64_t n) {
  std::lock_guard g(lock_);
  counts_.in += n;
  counts_.pending += n;
}

void ReadLedger::takenAndDelivered(uint64_t n) {
  std::lock_guard g(lock_);
  counts_.in += n;
  counts_.out += n;
}

void ReadLedger::takenAndDiscarded(DiscardReason why, uint64_t n) {
  std::lock_guard g(lock_);
  counts_.in += n;
  counts_.discarded[static_cast<int>(why)] += n;
}

void ReadLedger::delivered(uint64_t n) {
  std::lock_guard g(lock_);
  counts_.pending -= n;
  counts_.out += n;
}

void ReadLedger::discarded(DiscardReason why, uint64_t n) {
  std::lock_guard g(lock_);
  counts_.pending -= n;
  counts_.discarded[static_cast<int>(why)] += n;
}

void ReadLedger::deliveryFailed() {
  std::lock_guard g(lock_);
  ++counts_.deliveryFailures;
}

void ReadLedger::readerReconnected() {
  std::lock_guard g(lock_);
  ++counts_.readerReconnects;
}

void ReadLedger::inventoryPaused() {
  std::lock_guard g(lock_);
  ++counts_.inventoryPauses;
}

ReadCounts ReadLedger::snapshot() const {
  ReadCounts c;
  {
    std::lock_guard g(lock_);
    c = counts_;
  }
  c.uptimeSeconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - started_)
          .count();
  return c;
}

const char* discardKey(DiscardReason why) { return kDiscardKeys[static_cast<int>(why)]; }

std::string formatReadCounts(const ReadCounts& c) { return format(c, "\r\n"); }

std::string formatReadCountsLine(const ReadCounts& c) { return format(c, " "); }

}  // namespace tessera
