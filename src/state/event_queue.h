// src/state/event_queue.h — reader event codes on their way from the reader API's threads to the
// event thread, first in, first out.
#pragma once

#include <semaphore.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

namespace tessera {

// More waiting events than this wake the event thread early; otherwise it looks once a second.
inline constexpr uint32_t kEventWakeThreshold = 100;

class EventQueue {
 public:
  EventQueue();
  ~EventQueue();
  EventQueue(const EventQueue&) = delete;
  EventQueue& operator=(const EventQueue&) = delete;

  // Appends a code; wakes the consumer only when more than kEventWakeThreshold codes wait.
  void push(uint32_t code);
  // The oldest code, or none when the queue is empty.
  [[nodiscard]] std::optional<uint32_t> pop();
  // Waits for a wake-up, at most one second.
  void waitASecond();
  // Wakes the consumer now (a stop).
  void wake();

 private:
  std::mutex lock_;  // guards codes_
  std::deque<uint32_t> codes_;
  sem_t semaphore_{};  // the eventSemaphore: posted above the threshold and on wake()
};

}  // namespace tessera
