// src/readerapi/tag_buffer.cc — see tag_buffer.h.
#include "readerapi/tag_buffer.h"

#include <algorithm>

namespace tessera::readerapi {

TagBuffer::TagBuffer(uint32_t capacity) { (void)resize(capacity); }

void TagBuffer::push(const ReaderTagData& read) {
  std::lock_guard guard(lock_);
  const auto cap = static_cast<uint32_t>(slots_.size());
  if (count_ < cap && overflow_.empty()) {
    slots_[(head_ + count_) % cap] = read;
    ++count_;
  } else {
    overflow_.push_back(read);
  }
}

bool TagBuffer::atHighWater() const {
  std::lock_guard guard(lock_);
  return levelLocked() >= highWater_;
}

bool TagBuffer::belowLowWater() const {
  std::lock_guard guard(lock_);
  return levelLocked() < lowWater_;
}

bool TagBuffer::waitForRoom(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock guard(lock_);
  waiting_ = true;
  drained_.wait_until(guard, deadline, [&] { return levelLocked() < lowWater_ || interrupted_; });
  waiting_ = false;
  interrupted_ = false;
  return levelLocked() < lowWater_;
}

void TagBuffer::interruptWait() {
  {
    std::lock_guard guard(lock_);
    interrupted_ = true;
  }
  drained_.notify_all();
}

bool TagBuffer::pop(ReaderTagData& out) {
  bool wake;
  {
    std::lock_guard guard(lock_);
    if (count_ == 0) return false;
    const auto cap = static_cast<uint32_t>(slots_.size());
    out = slots_[head_];
    head_ = (head_ + 1) % cap;
    --count_;
    if (!overflow_.empty()) {
      slots_[(head_ + count_) % cap] = overflow_.front();
      overflow_.pop_front();
      ++count_;
    }
    ++popped_;
    wake = waiting_ && levelLocked() < lowWater_;
  }
  if (wake) drained_.notify_all();
  return true;
}

uint32_t TagBuffer::clear() {
  uint32_t dropped;
  {
    std::lock_guard guard(lock_);
    dropped = levelLocked();
    head_ = 0;
    count_ = 0;
    overflow_.clear();
  }
  drained_.notify_all();
  return dropped;
}

uint32_t TagBuffer::resize(uint32_t capacity) {
  const uint32_t cap = std::clamp<uint32_t>(capacity, 1, kMaxCapacity);
  uint32_t dropped;
  {
    std::lock_guard guard(lock_);
    dropped = levelLocked();
    slots_.assign(cap, ReaderTagData{});
    slots_.shrink_to_fit();
    overflow_.clear();
    head_ = 0;
    count_ = 0;
    // 80 %, and at least one read below a full ring when it is larger than one read.
    highWater_ = std::max<uint32_t>(1, static_cast<uint32_t>(uint64_t{cap} * 4 / 5));
    lowWater_ = std::max<uint32_t>(1, highWater_ / 2);
  }
  drained_.notify_all();
  return dropped;
}

uint32_t TagBuffer::size() const {
  std::lock_guard guard(lock_);
  return levelLocked();
}

uint32_t TagBuffer::capacity() const {
  std::lock_guard guard(lock_);
  return static_cast<uint32_t>(slots_.size());
}

uint64_t TagBuffer::popped() const {
  std::lock_guard guard(lock_);
  return popped_;
}

}  // namespace tessera::readerapi
