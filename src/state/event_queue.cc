// src/state/event_queue.cc — see event_queue.h.
#include "state/event_queue.h"

#include <ctime>

namespace tessera {

EventQueue::EventQueue() { sem_init(&semaphore_, 0, 0); }

EventQueue::~EventQueue() { sem_destroy(&semaphore_); }

void EventQueue::push(uint32_t code) {
  size_t count;
  {
    std::lock_guard<std::mutex> guard(lock_);
    codes_.push_back(code);
    count = codes_.size();
  }
  if (count > kEventWakeThreshold) sem_post(&semaphore_);
}

std::optional<uint32_t> EventQueue::pop() {
  std::lock_guard<std::mutex> guard(lock_);
  if (codes_.empty()) return std::nullopt;
  const uint32_t code = codes_.front();
  codes_.pop_front();
  return code;
}

void EventQueue::waitASecond() {
  timespec deadline;
  if (clock_gettime(CLOCK_REALTIME, &deadline) == 0) {
    deadline.tv_sec += 1;
    sem_timedwait(&semaphore_, &deadline);
  } else {
    sem_wait(&semaphore_);
  }
}

void EventQueue::wake() { sem_post(&semaphore_); }

}  // namespace tessera
