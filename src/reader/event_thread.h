// src/reader/event_thread.h — the reader's events: the callback only queues the code, and the
// "readerEvent" thread drains the queue and acts on each event.
#pragma once

#include <cstdint>

#include "state/read_ledger.h"
#include "readerapi/rfid_types.h"

namespace tessera {

// Starts "readerEvent" on ProcessRfidEventsThread.
void startEventThread();
// Reader API callback: appends the event code to the queue, which wakes the thread above 100.
void onReaderEvent(ReaderHandle handle, uint32_t eventCode);
// Thread entry, given the ServiceState whose queue it drains: waits for queued reader events
// (woken early, else once a second) until stopped.
void* ProcessRfidEventsThread(void* state);
// Acts on one event: drains tag reads, notifies the data channel, reconnects after a loss.
void handleReaderEvent(ReaderHandle handle, uint32_t eventCode);
// Takes every read the reader API holds and discards it, counted under `why`.
void discardBufferedReads(ReaderHandle handle, DiscardReason why);
// Sets eventThreadStop, wakes the thread and joins it.
void stopEventThread();

}  // namespace tessera
