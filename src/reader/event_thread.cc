#include "reader/event_thread.h"

#include <pthread.h>
#include <semaphore.h>

#include <cerrno>
#include <ctime>

#include "core/service_state.h"

namespace tessera {

void startEventThread(uint32_t handle) {
  ServiceState& s = serviceState;
  sem_init(&s.eventSemaphore, 0, 0);
  s.eventThreadStop = false;
  if (pthread_create(&s.eventThreadHandle, nullptr, ProcessRfidEventsThread,
                     reinterpret_cast<void*>(static_cast<uintptr_t>(handle))) == 0) {
    pthread_setname_np(s.eventThreadHandle, "readerEvent");
    s.eventThreadStarted = true;
  }
}

void* ProcessRfidEventsThread(void*) {
  ServiceState& s = serviceState;
  while (!s.eventThreadStop) {
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 1;
    while (sem_timedwait(&s.eventSemaphore, &deadline) != 0 && errno == EINTR) {
    }
  }
  return nullptr;
}

void stopEventThread() {
  ServiceState& s = serviceState;
  s.eventThreadStop = true;
  if (!s.eventThreadStarted) return;
  sem_post(&s.eventSemaphore);
  pthread_join(s.eventThreadHandle, nullptr);
  s.eventThreadStarted = false;
  sem_destroy(&s.eventSemaphore);
}

}  // namespace tessera
