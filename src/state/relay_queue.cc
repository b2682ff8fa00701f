// src/state/relay_queue.cc — see relay_queue.h.
#include "state/relay_queue.h"

namespace tessera {

void RelayQueue::append(std::string_view record) {
  std::lock_guard<std::mutex> guard(lock_);
  pending_.append(record);
  length_ = pending_.size();
  ++reads_;
  ledger_.takenAndHeld(1);
}

uint64_t RelayQueue::takeInto(std::string& batch) {
  std::lock_guard<std::mutex> guard(lock_);
  batch += pending_;
  pending_.clear();
  length_ = 0;
  const uint64_t taken = reads_;
  reads_ = 0;
  return taken;
}

uint64_t RelayQueue::clear() {
  std::lock_guard<std::mutex> guard(lock_);
  pending_.clear();
  length_ = 0;
  full_ = false;
  const uint64_t dropped = reads_;
  reads_ = 0;
  return dropped;
}

bool RelayQueue::ready() const {
  std::lock_guard<std::mutex> guard(lock_);
  return !pending_.empty();
}

void RelayQueue::markFull() {
  std::lock_guard<std::mutex> guard(lock_);
  full_ = true;
}

bool RelayQueue::clearFull() {
  std::lock_guard<std::mutex> guard(lock_);
  const bool was = full_;
  full_ = false;
  return was;
}

bool RelayQueue::woken(const std::atomic<bool>& stop, RelayWake also) const {
  if (stop) return true;
  switch (also) {
    case RelayWake::kStopOnly:
      return false;
    case RelayWake::kRecords:
      return !pending_.empty();
    case RelayWake::kFull:
      return full_;
  }
  return false;
}

void RelayQueue::wait(const std::atomic<bool>& stop, RelayWake also) {
  std::unique_lock<std::mutex> guard(lock_);
  wakeUp_.wait(guard, [&] { return woken(stop, also); });
}

void RelayQueue::waitFor(const std::atomic<bool>& stop, RelayWake also,
                         std::chrono::nanoseconds limit) {
  std::unique_lock<std::mutex> guard(lock_);
  wakeUp_.wait_for(guard, limit, [&] { return woken(stop, also); });
}

void RelayQueue::wake() {
  // Taking the lock orders the caller's flag before a waiter's next look at it, so that the
  // notification cannot fall between that look and the waiter's sleep.
  { std::lock_guard<std::mutex> guard(lock_); }
  wakeUp_.notify_all();
}

}  // namespace tessera
