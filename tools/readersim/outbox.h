// tools/readersim/outbox.h — a connection's bounded send queue. Responses go out always, events
// and reports can be held back (EventsAndReports) and reports are refused past the limit, so a
// slow client costs dropped reads, not memory.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace tessera::readersim {

class Outbox {
 public:
  // limit: report bytes that may wait; onDrain: called (without the lock) when the queue falls
  // below a quarter of the limit after being above it.
  Outbox(size_t limit, std::function<void()> onDrain);
  ~Outbox();
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  // Queues a response (never held, never refused).
  void pushResponse(std::vector<uint8_t> frame);
  // Queues an event; held while holding() is on.
  void pushEvent(std::vector<uint8_t> frame);
  // Queues a report of `reads` tag reads unless the queue would pass the limit; false when
  // refused.
  [[nodiscard]] bool pushReport(std::vector<uint8_t> frame, uint32_t reads);
  // Holds events and reports back until release().
  void hold();
  // Moves everything held into the queue.
  void release();
  // Takes every frame of other (queued or held) as held frames of this queue.
  void adoptHeld(Outbox& other);
  // Bytes queued (held ones included).
  size_t queuedBytes() const;
  // Fill level of the report queue in percent of the limit.
  unsigned fillPercent() const;
  size_t limit() const { return limit_; }
  // Whether anything is ready to be written.
  bool hasOutput() const;
  // Writes what the non-blocking socket takes; 0, or -1 when the socket failed.
  [[nodiscard]] int writeTo(int fd);
  // Tag reads in reports written whole since the last call: what the reader has sent.
  uint64_t takeWrittenReads();
  // Tag reads in reports not written whole (queued, held or cut off): what a connection that
  // ends now loses.
  uint64_t unsentReads() const;
  // An eventfd that becomes readable when something was queued (the writer polls it).
  int wakeFd() const { return wakeFd_; }
  // Clears the wake-up after a poll.
  void clearWake();

 private:
  struct Queued {
    std::vector<uint8_t> bytes;
    uint32_t reads = 0;  // tag reads in it, for reports
  };
  void pushLocked(std::deque<Queued>& q, std::vector<uint8_t> frame, uint32_t reads);
  void wake();

  const size_t limit_;
  std::function<void()> onDrain_;
  int wakeFd_ = -1;
  mutable std::mutex lock_;  // guards every member below
  std::deque<Queued> ready_;
  size_t frontOffset_ = 0;  // bytes of ready_.front() already written
  std::deque<Queued> held_;
  uint64_t writtenReads_ = 0;  // reads in reports written whole, not yet taken
  uint64_t cutReads_ = 0;      // reads in a report cut off by a connection that ended
  size_t bytes_ = 0;        // bytes in ready_ (minus frontOffset_) and held_
  bool holding_ = false;
  bool aboveLowWater_ = false;
};

}  // namespace tessera::readersim
