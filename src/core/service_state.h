// src/core/service_state.h — the one process-wide record of everything that outlives a call.
// Each member names the thread(s) that write it and the lock, if any, that guards it. Members
// that are written by one thread and read by others without a lock are plain values by design:
// they change only at mode starts and stops, which the command thread serialises.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>

namespace tessera {

constexpr int kCommandClientSlots = 30;

struct ServiceState {
  // Start-up and shutdown.
  std::atomic<int> terminationSignal{0};  // signal handler writes; main thread reads
  int signalPipe[2] = {-1, -1};           // handler writes a byte; command loop wakes on it
  int ueventSocket = -1;                  // main thread (start-up); command loop reads
  char ueventBuffer[4096] = {};           // command loop only

  // Command channel (main thread only).
  int commandListener = 0;
  int commandClients[kCommandClientSlots] = {};

  // Data channel: the thread writes the client descriptor; every thread that notifies reads it.
  std::atomic<int> dataChannelListener{0};
  std::atomic<int> dataChannelClientFd{-1};
  int dataChannelWake = -1;               // eventfd: cleanup wakes the data channel thread
  pthread_t dataChannelThreadHandle{};
  bool dataChannelThreadStarted = false;  // main thread
  char macAddress[24] = "00:00:00:00:00:00";
  bool macAddressKnown = false;

  // Reader connection.
  uint32_t readerHandle = 0;              // main and event threads write; all read
  int antennaCount = 0;                   // main thread

  // Event queue: reader API threads push, the event thread drains.
  std::mutex eventQueueLock;              // guards eventQueue and eventQueueCount
  std::deque<uint32_t> eventQueue;
  uint32_t eventQueueCount = 0;
  sem_t eventSemaphore{};                 // posted above 100 waiting events and on stop
  std::atomic<bool> eventThreadStop{false};  // cleanup writes; event thread polls
  pthread_t eventThreadHandle{};
  bool eventThreadStarted = false;        // main thread
};

// The process-wide state, built right after the Logger.
extern ServiceState serviceState;

}  // namespace tessera
