// src/readerapi/tag_buffer.h — the bounded first-in first-out store of tag reads between the
// receive thread and RFID_GetReadTag. Its memory is allocated once per capacity, so a long run
// at full rate keeps a flat footprint; when it is full, new reads are discarded and counted.
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
  // What a push did, so that the caller raises each event once per episode.
  enum class PushResult {
    kStored,         // stored, nothing to report
    kStoredWarning,  // stored, and the buffer just reached its high-water mark (80 %)
    kFull,           // discarded: the first read lost since the buffer last had room
    kDiscarded,      // discarded again while still full
  };
  static constexpr uint32_t kMaxCapacity = 262144;

  explicit TagBuffer(uint32_t capacity);

  // Appends a read (copied); see PushResult. With `spill` (a reply is awaited behind the reads
  // in flight) a full buffer keeps up to kSpillFactor times its capacity more, in order, and no
  // warning is given: reading must go on for the reply to arrive.
  PushResult push(const ReaderTagData& read, bool spill = false);
  static constexpr uint32_t kSpillFactor = 4;
  // Whether the next push would raise the high-water warning.
  bool atHighWater() const;
  // Waits up to `limit` for the consumer to bring the level below the high-water mark; whether
  // it did.
  bool waitBelowHighWater(std::chrono::milliseconds limit);
  // Ends a waitBelowHighWater in progress at once.
  void interruptWait();
  // Moves the oldest read into out; false when empty.
  bool pop(ReaderTagData& out);
  // Drops every read; the warning and full episodes start over.
  void clear();
  // Empties the buffer and gives it a new capacity (1..kMaxCapacity, clamped).
  void resize(uint32_t capacity);
  // Reads held now.
  uint32_t size() const;
  // Reads the buffer can hold.
  uint32_t capacity() const;
  // Reads discarded since construction.
  uint64_t discarded() const;

 private:
  void rearmLocked();

  mutable std::mutex lock_;  // guards every member below
  std::condition_variable drained_;  // signalled when the consumer takes reads out
  std::vector<ReaderTagData> slots_;
  std::deque<ReaderTagData> spilled_;  // newer than every read in slots_
  uint32_t head_ = 0;  // oldest read
  uint32_t count_ = 0;
  uint32_t highWater_ = 0;
  bool warned_ = false;  // the high-water warning was given and the level has not dropped since
  bool full_ = false;    // reads are being discarded and the level has not dropped since
  uint64_t discarded_ = 0;
  uint64_t waitEpoch_ = 0;  // bumped by interruptWait
};

}  // namespace tessera::readerapi
