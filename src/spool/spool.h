// src/spool/spool.h — the outage spool: relay batches that could not be delivered, kept in
// append-only segment files in one folder until they are confirmed, oldest first, across
// restarts. Each batch carries a sequence number that persists and never repeats, so that a
// receiver can drop the duplicates that at-least-once delivery allows.
//
// Folder layout: NNNNNNNNNNNNNNNNNNNN.seg (records, see spool_record.h; named by the sequence
// number of their first batch), "sequence" (numbers reserved so far), "confirmed" (the newest
// batch confirmed), rejected/<seq>.json (batches the server refused for good).
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>

namespace tessera::spool {

// A segment is closed and a new one begun past this size; a file goes once all its batches are
// confirmed, so smaller files free the disk sooner.
inline constexpr uint64_t kSegmentBytes = 1u << 20;

struct Batch {
  uint64_t seq = 0;
  uint32_t reads = 0;
  std::string text;
};

struct SpoolCounts {
  uint64_t bytes = 0;            // on disk, in segments that hold unconfirmed batches
  uint64_t batches = 0;          // unconfirmed batches
  uint64_t droppedReads = 0;     // reads in batches dropped by the size cap
  uint64_t rejectedBatches = 0;  // batches the server refused for good
  int64_t oldestAgeSeconds = 0;  // age of the oldest unconfirmed batch, 0 when none
};

class Spool {
 public:
  Spool() = default;
  ~Spool();
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;

  // Opens (creating it when missing) the folder and takes over every intact batch an earlier
  // run left; a damaged tail is cut off with one log line. False, logged, when the folder cannot
  // be used. `now` is the wall clock in seconds.
  [[nodiscard]] bool open(const std::string& dir, uint64_t maxBytes, int64_t now);
  bool isOpen() const;
  // Writes what is buffered to the disk and closes the files.
  void close();
  bool empty() const;
  // Reads in the batches an earlier run left, as found by the last open.
  uint64_t recoveredReads() const;
  // The next batch sequence number; numbers are reserved on disk ahead of use, so that none is
  // ever given twice, even after a crash.
  uint64_t nextSeq();
  // Appends a batch behind every other. False (logged once per episode) when the disk refused
  // it: the caller keeps the batch. Beyond the cap the oldest batches are dropped.
  [[nodiscard]] bool append(uint64_t seq, uint32_t reads, std::string_view text, int64_t now);
  // The oldest unconfirmed batch, read back from its segment; false when there is none or it
  // cannot be read (then it is dropped and counted).
  [[nodiscard]] bool front(Batch& out);
  // The batch `seq` (the oldest) was delivered; false when it had been dropped meanwhile.
  bool confirm(uint64_t seq);
  // The batch `seq` (the oldest) was refused for good: it moves to rejected/ (one log line);
  // false when it had been dropped meanwhile.
  bool reject(uint64_t seq, std::string_view text);
  // Keeps a refused batch that never was in the spool in rejected/ (one log line).
  void keepRejected(uint64_t seq, std::string_view text);
  // fdatasync of the segment being written, now.
  void sync();
  // Reads dropped by the cap or by an unreadable batch since the last call.
  uint64_t takeDroppedReads();
  // fdatasync of the segment being written, at most once a second (`now` in seconds).
  void syncIfDue(int64_t now);
  // A copy of the counts, for getStatistics.
  SpoolCounts counts(int64_t now) const;

 private:
  struct Segment {
    uint64_t id = 0;
    std::string path;
    uint64_t bytes = 0;
    uint64_t live = 0;  // unconfirmed batches in it
  };
  struct Entry {
    uint64_t segment = 0;  // Segment::id
    uint64_t offset = 0;
    uint32_t length = 0;
    uint64_t seq = 0;
    uint64_t written = 0;
    uint32_t reads = 0;
  };

  bool openLocked(const std::string& dir, uint64_t maxBytes);
  void closeLocked();
  bool loadSegment(const std::string& name, uint64_t confirmed);
  bool startSegment(uint64_t seq);
  void popFrontLocked();
  void dropOldestSegmentLocked();
  void persistConfirmedLocked(uint64_t seq);
  void keepRejectedLocked(uint64_t seq, std::string_view text);
  Segment* segmentById(uint64_t id);

  mutable std::mutex lock_;  // guards every member below: the worker writes, getStatistics reads
  std::string dir_;
  uint64_t maxBytes_ = 0;
  bool open_ = false;
  std::deque<Segment> segments_;  // oldest first; the last one is written while writeFd_ >= 0
  std::deque<Entry> entries_;     // unconfirmed batches, oldest first
  uint64_t nextSegmentId_ = 1;
  int writeFd_ = -1;
  int sequenceFd_ = -1;
  int confirmedFd_ = -1;
  uint64_t nextSeq_ = 1;
  uint64_t reservedSeq_ = 1;  // numbers below this are on disk as used
  uint64_t bytes_ = 0;
  uint64_t droppedReads_ = 0;
  uint64_t droppedSinceTaken_ = 0;
  uint64_t rejectedBatches_ = 0;
  uint64_t recoveredReads_ = 0;
  bool dirty_ = false;  // written since the last fdatasync
  int64_t lastSync_ = 0;
  bool refusing_ = false;    // the disk refused the last append (logged once)
  bool dropping_ = false;    // the cap is dropping batches (logged once per episode)
  uint64_t checkedOut_ = 0;  // the batch front() handed out last
};

}  // namespace tessera::spool
