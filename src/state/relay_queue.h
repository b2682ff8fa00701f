// src/state/relay_queue.h — the relay hand-off: tag read processing appends records, the relay
// worker takes them into its batch and sleeps on the queue between passes.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "state/read_ledger.h"

namespace tessera {

// What, besides the worker's stop flag, ends a wait on the queue.
enum class RelayWake : uint8_t {
  kStopOnly,  // the pass pause: only a stop cuts it short
  kRecords,   // any record appended
  kFull,      // the queue reached the batch limit while the spool takes the overflow
};

class RelayQueue {
 public:
  // Appended records count as taken and held in `ledger` in the same step, so that the worker
  // can never deliver reads that the ledger has not seen yet.
  explicit RelayQueue(ReadLedger& ledger) : ledger_(ledger) {}
  RelayQueue(const RelayQueue&) = delete;
  RelayQueue& operator=(const RelayQueue&) = delete;

  // Tag read processing: appends one tag record. The caller wakes the worker once it has decided
  // on pausing the inventory, so that the worker's take sees the pause and can end it.
  void append(std::string_view record);
  // Worker: moves every pending record to the end of `batch`; the tag records moved.
  uint64_t takeInto(std::string& batch);
  // Drops every pending record and the full mark; the tag records dropped.
  uint64_t clear();
  // Pending bytes without taking the lock, for the limit tests of the producer and the worker.
  size_t size() const { return length_.load(); }
  // Whether records wait that the worker has not taken.
  bool ready() const;
  // Tag read processing with the spool: the limit is reached.
  void markFull();
  // Worker: clears the full mark; whether it was set.
  bool clearFull();
  // Worker: waits until `stop` is set or `also` happens; no time limit.
  void wait(const std::atomic<bool>& stop, RelayWake also);
  // The same, for at most `limit`.
  void waitFor(const std::atomic<bool>& stop, RelayWake also, std::chrono::nanoseconds limit);
  // Wakes every waiter, e.g. after its stop flag was set.
  void wake();

 private:
  bool woken(const std::atomic<bool>& stop, RelayWake also) const;

  ReadLedger& ledger_;
  mutable std::mutex lock_;  // guards pending_, reads_, full_; pairs with wakeUp_
  std::condition_variable wakeUp_;
  std::string pending_;
  uint64_t reads_ = 0;  // tag records in pending_ (heartbeats are none)
  bool full_ = false;   // the limit was reached with the spool accepting
  std::atomic<size_t> length_{0};  // pending_.size(), for size()
};

}  // namespace tessera
