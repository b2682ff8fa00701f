// src/readerapi/tag_buffer.h — the first-in first-out store of tag reads between the receive
// thread and RFID_GetReadTag. It never discards: the receive thread stops taking reports off the
// socket while the level is at the high-water mark (80 % of the capacity), so TCP holds the
// reader back. Its ring is allocated once per capacity, so a long run at full rate keeps a flat
// footprint; the reads of one report that overshoot the ring wait in a small overflow queue.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "readerapi/rfid_records.h"

namespace tessera::readerapi {

class TagBuffer {
 public:
  static constexpr uint32_t kMaxCapacity = 262144;

  explicit TagBuffer(uint32_t capacity);

  // Appends a read (copied), after every read already held.
  void push(const ReaderTagData& read);
  // Whether the level is at or above the high-water mark: the producer should hold back.
  bool atHighWater() const;
  // Whether the level is below the low-water mark (half the high-water mark): a producer that
  // held back may go on. The gap between the marks keeps it from waking at every read taken.
  bool belowLowWater() const;
  // Waits until the level is below the low-water mark, interruptWait is called, or `deadline`
  // passes; whether it is below now.
  bool waitForRoom(std::chrono::steady_clock::time_point deadline);
  // Ends a waitForRoom in progress at once (and the next one, if none is in progress).
  void interruptWait();
  // Moves the oldest read into out; false when empty.
  bool pop(ReaderTagData& out);
  // Drops every read; how many were dropped.
  uint32_t clear();
  // Empties the buffer and gives it a new capacity (1..kMaxCapacity, clamped); how many reads
  // were dropped.
  uint32_t resize(uint32_t capacity);
  // Reads held now.
  uint32_t size() const;
  // Reads the ring can hold.
  uint32_t capacity() const;
  // Reads taken out by pop since construction: the consumer's progress.
  uint64_t popped() const;

 private:
  uint32_t levelLocked() const { return count_ + static_cast<uint32_t>(overflow_.size()); }

  mutable std::mutex lock_;          // guards every member below
  std::condition_variable drained_;  // signalled when the consumer takes reads out
  std::vector<ReaderTagData> slots_;
  std::deque<ReaderTagData> overflow_;  // newer than every read in slots_
  uint32_t head_ = 0;                   // oldest read
  uint32_t count_ = 0;
  uint32_t highWater_ = 0;
  uint32_t lowWater_ = 0;
  bool waiting_ = false;  // a waitForRoom is in progress
  uint64_t popped_ = 0;
  bool interrupted_ = false;  // set by interruptWait, cleared by the wait it ends
};

}  // namespace tessera::readerapi
