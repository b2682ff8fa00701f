// src/modes/inventory_start.h — preparing a new reader connection and starting its inventory,
// shared by the relay, the serial push and the plain inventory of the command channel.
#pragma once

#include <atomic>
#include <cstdint>

#include "readerapi/rfid_records.h"
#include "readerapi/rfid_types.h"

namespace tessera {

// Tag fields asked for beyond the library's defaults, so that a record can carry the RF phase
// (TagMetaData 64) and the channel index (TagMetaData 128).
inline constexpr uint16_t kRecordTagFields = TAG_FIELD_PHASE_INFO | TAG_FIELD_CHANNEL_INDEX;

// What a connection is prepared for.
enum class ReaderUse {
  kPlainInventory,  // setup.connection_config: the client starts and stops the inventory
  kStreamingMode,   // relay or serial push: the configured session and a report per read
};

// Asks for the record tag fields, for a streaming mode sets the configured Gen2 session and a
// report per read, registers the reader events and logs "<logPrefix>Established connection to
// the reader". A setting the reader refuses is logged as an error; the reader keeps its own.
void prepareReader(ReaderHandle handle, ReaderUse use, const char* logPrefix);
// Starts a streaming mode's inventory: configured pre-filters and start delay, stale reads
// dropped, modeActive set, then the inventory with the configured triggers.
void startModeInventory(ReaderHandle handle, std::atomic<bool>& modeActive, const char* logPrefix);
// Starts an inventory (triggers null: at once, until stopped); a failure is logged as an error.
void startInventory(ReaderHandle handle, const TriggerRecord* triggers, const char* logPrefix);

}  // namespace tessera
