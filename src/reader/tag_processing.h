// src/reader/tag_processing.h — one tag read on its way out: a relay record for the worker, a
// serial CSV line, or a "TagData:" line to the data channel, by the mode that runs.
#pragma once

#include <cstddef>

#include "readerapi/rfid_records.h"

namespace tessera {

// Transmit queue fill above which the serial side counts as full.
inline constexpr int kSerialTxFullThreshold = 3686;
// Pending relay bytes at which the inventory is paused until the worker catches up.
inline constexpr size_t kRelayBatchLimit = 71680;

// What one serial write result does to the buffer-full notification.
enum class SerialTxChange { kNone, kBecameFull, kCleared };
// Updates the full flag from a write result (the transmit queue fill level); the change to report.
SerialTxChange serialTxUpdate(bool& full, int written);

// Formats and routes one read; event thread only.
void processTagRead(const ReaderTagData* tag);

}  // namespace tessera
