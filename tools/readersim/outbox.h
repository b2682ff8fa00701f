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
  // Queues a report unless the queue would pass the limit; false when refused.
  [[nodiscard]] bool pushReport(std::vector<uint8_t> frame);
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
  // An eventfd that becomes readable when something was queued (the writer polls it).
  int wakeFd() const { return wakeFd_; }
  // Clears the wake-up after a poll.
  void clearWake();

 private:
  void pushLocked(std::deque<std::vector<uint8_t>>& q, std::vector<uint8_t> frame);
  void wake();

  const size_t limit_;
  std::function<void()> onDrain_;
  int wakeFd_ = -1;
  mutable std::mutex lock_;  // guards every member below
  std::deque<std::vector<uint8_t>> ready_;
  size_t frontOffset_ = 0;  // bytes of ready_.front() already written
  std::deque<std::vector<uint8_t>> held_;
  size_t bytes_ = 0;        // bytes in ready_ (minus frontOffset_) and held_
  bool holding_ = false;
  bool aboveLowWater_ = false;
};

}  // namespace tessera::readersim
