// src/reader/event_thread.h — the "readerEvent" thread that drains the reader's event queue.
#pragma once

#include <cstdint>

namespace tessera {

// Creates eventSemaphore and starts "readerEvent" on ProcessRfidEventsThread.
void startEventThread(uint32_t handle);
// Thread entry: waits for queued reader events (woken early, else once a second) until stopped.
void* ProcessRfidEventsThread(void* handle);
// Sets eventThreadStop, wakes the thread, joins it and destroys eventSemaphore.
void stopEventThread();

}  // namespace tessera
