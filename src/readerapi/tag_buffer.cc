// src/readerapi/tag_buffer.cc — see tag_buffer.h.
#include "readerapi/tag_buffer.h"

#include <algorithm>

namespace tessera::readerapi {

namespace {

uint32_t clampCapacity(uint32_t capacity) {
  return std::clamp<uint32_t>(capacity, 1, TagBuffer::kMaxCapacity);
}

}  // namespace

TagBuffer::TagBuffer(uint32_t capacity) { resize(capacity); }

TagBuffer::PushResult TagBuffer::push(const ReaderTagData& read, bool spill) {
  std::lock_guard guard(lock_);
  const auto cap = static_cast<uint32_t>(slots_.size());
  if (spill) {
    if (count_ < cap && spilled_.empty()) {
      slots_[(head_ + count_) % cap] = read;
      ++count_;
      return PushResult::kStored;
    }
    if (spilled_.size() < uint64_t{cap} * kSpillFactor) {
      spilled_.push_back(read);
      return PushResult::kStored;
    }
  }
  if (count_ == cap || !spilled_.empty()) {
    ++discarded_;
    if (full_) return PushResult::kDiscarded;
    full_ = true;
    return PushResult::kFull;
  }
  slots_[(head_ + count_) % cap] = read;
  ++count_;
  if (!warned_ && count_ >= highWater_) {
    warned_ = true;
    return PushResult::kStoredWarning;
  }
  return PushResult::kStored;
}

bool TagBuffer::atHighWater() const {
  std::lock_guard guard(lock_);
  return !warned_ && count_ + 1 >= highWater_;
}

bool TagBuffer::waitBelowHighWater(std::chrono::milliseconds limit) {
  std::unique_lock guard(lock_);
  const uint64_t epoch = waitEpoch_;
  drained_.wait_for(guard, limit, [&] { return count_ + 1 < highWater_ || waitEpoch_ != epoch; });
  return count_ + 1 < highWater_;
}

void TagBuffer::interruptWait() {
  {
    std::lock_guard guard(lock_);
    ++waitEpoch_;
  }
  drained_.notify_all();
}

bool TagBuffer::pop(ReaderTagData& out) {
  {
    std::lock_guard guard(lock_);
    if (count_ == 0) return false;
    out = slots_[head_];
    head_ = (head_ + 1) % static_cast<uint32_t>(slots_.size());
    --count_;
    if (!spilled_.empty()) {
      slots_[(head_ + count_) % slots_.size()] = spilled_.front();
      spilled_.pop_front();
      ++count_;
    }
    rearmLocked();
  }
  drained_.notify_all();
  return true;
}

void TagBuffer::clear() {
  {
    std::lock_guard guard(lock_);
    head_ = 0;
    count_ = 0;
    spilled_.clear();
    rearmLocked();
  }
  drained_.notify_all();
}

void TagBuffer::resize(uint32_t capacity) {
  const uint32_t cap = clampCapacity(capacity);
  std::lock_guard guard(lock_);
  slots_.assign(cap, ReaderTagData{});
  slots_.shrink_to_fit();
  spilled_.clear();
  head_ = 0;
  count_ = 0;
  // 80 %, and at least one read below a full buffer when it is larger than one read.
  highWater_ = std::max<uint32_t>(1, static_cast<uint32_t>(uint64_t{cap} * 4 / 5));
  rearmLocked();
  drained_.notify_all();
}

uint32_t TagBuffer::size() const {
  std::lock_guard guard(lock_);
  return count_ + static_cast<uint32_t>(spilled_.size());
}

uint32_t TagBuffer::capacity() const {
  std::lock_guard guard(lock_);
  return static_cast<uint32_t>(slots_.size());
}

uint64_t TagBuffer::discarded() const {
  std::lock_guard guard(lock_);
  return discarded_;
}

// A warning or full episode ends once the consumer has brought the level below half of the
// high-water mark; re-arming any earlier would raise an event per read at the edge.
void TagBuffer::rearmLocked() {
  if (count_ < highWater_ / 2 || count_ == 0) {
    warned_ = false;
    full_ = false;
  }
}

}  // namespace tessera::readerapi
