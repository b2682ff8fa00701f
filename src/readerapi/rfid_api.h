// src/readerapi/rfid_api.h — the reader API library: an LLRP 1.0.1 client for any reader on the
// network. One handle per connection; every call returns an RfidStatus (0 success) and never
// throws. Calls that talk to the reader wait at most the response time-out (5 s by default) for
// each request they send, one request at a time per handle. The library's receive thread
// ("rfidRecv") answers keepalives, buffers tag reads and calls the registered callback.
// Wide texts (host names, error texts) are wchar_t, zero-terminated.
#pragma once

#include <cstdint>

#include "readerapi/rfid_records.h"
#include "readerapi/rfid_types.h"

namespace tessera {

// Connects to host:port (timeoutMs 0: 5 s for the TCP connection), waits for the reader's
// greeting, reads its capabilities and clears its ROSpecs and AccessSpecs; *handle = 0 on failure.
[[nodiscard]] RfidStatus RFID_ConnectW(ReaderHandle* handle, const wchar_t* host, uint32_t port,
                                       uint32_t timeoutMs, const ConnectionOptions* options);
// Stops the inventory the library started, says goodbye to the reader and frees the handle.
RfidStatus RFID_Disconnect(ReaderHandle handle);
// Connects the same handle again and restores antenna power, registrations and a running inventory.
[[nodiscard]] RfidStatus RFID_Reconnect(ReaderHandle handle);
// Copies the capabilities read at connect.
[[nodiscard]] RfidStatus RFID_GetReaderCapsW(ReaderHandle handle, ReaderCaps* caps);

// Calls callback (and/or contextCallback with context) for the listed RfidEventType codes only;
// replaces an earlier registration. Both callbacks null: unregisters.
[[nodiscard]] RfidStatus RFID_RegisterEventNotificationCallback(
    ReaderHandle handle, const uint32_t* eventTypes, uint32_t count, RfidEventCallback callback,
    RfidEventContextCallback contextCallback, void* context);
// Copies the data of the latest event of a kind; RFID_API_NO_DATA if none has come yet.
[[nodiscard]] RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                                           GpiEventData* data);
[[nodiscard]] RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                                           AntennaEventData* data);
[[nodiscard]] RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                                           InventoryEventData* data);
[[nodiscard]] RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                                           BufferEventData* data);
[[nodiscard]] RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                                           DisconnectionEventData* data);
[[nodiscard]] RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                                           ReaderExceptionEventData* data);

// A tag record for RFID_GetReadTag, or null when the handle is unknown or memory is short.
[[nodiscard]] ReaderTagData* RFID_AllocateTag(ReaderHandle handle);
// Moves the oldest buffered read into *tag; RFID_API_NO_DATA when the buffer is empty.
[[nodiscard]] RfidStatus RFID_GetReadTag(ReaderHandle handle, ReaderTagData* tag);
// Frees a record from RFID_AllocateTag (also after the handle is gone).
RfidStatus RFID_DeallocateTag(ReaderHandle handle, ReaderTagData* tag);

// Starts an inventory: triggers from *triggers (null: start now, run until stopped), antennas
// from *antennas (null: every antenna), reads passed through *postFilter (null: all). Replaces
// an inventory already running. reserved must be null. How each trigger becomes an LLRP
// ROSpec is told in rospec_builder.h (a GPI flag of false means "the input goes high"; round
// counts become TagObservationTrigger "N attempts"); tagReportTrigger is the reads per report
// (0 counts as 1), the valueBlock word the expected tag population, tagReportOptions unused.
[[nodiscard]] RfidStatus RFID_PerformInventory(ReaderHandle handle, const PostFilter* postFilter,
                                               const AntennaInfo* antennas,
                                               const TriggerRecord* triggers, void* reserved);
// Stops and removes the inventory; success also when none runs.
RfidStatus RFID_StopInventory(ReaderHandle handle);

// Reads an antenna's receive sensitivity index, transmit power index and frequency index (hop
// table ID when hopping, else channel index).
[[nodiscard]] RfidStatus RFID_GetAntennaConfig(ReaderHandle handle, uint16_t antennaId,
                                               uint16_t* receiveSensitivityIndex,
                                               uint16_t* transmitPowerIndex,
                                               uint16_t* transmitFrequencyIndex);
// Writes the three values of an antenna (antennaId 0: every antenna) to the reader.
[[nodiscard]] RfidStatus RFID_SetAntennaConfig(ReaderHandle handle, uint16_t antennaId,
                                               uint16_t receiveSensitivityIndex,
                                               uint16_t transmitPowerIndex,
                                               uint16_t transmitFrequencyIndex);

// Copies the singulation settings of an antenna (1..numAntennas).
[[nodiscard]] RfidStatus RFID_GetSingulationControl(ReaderHandle handle, uint16_t antennaId,
                                                    SingulationControl* control);
// Sets the singulation of an antenna (0: every antenna) for the next inventory.
[[nodiscard]] RfidStatus RFID_SetSingulationControl(ReaderHandle handle, uint16_t antennaId,
                                                    const SingulationControl* control);

// Copies the tag storage settings.
[[nodiscard]] RfidStatus RFID_GetTagStorageSettings(ReaderHandle handle,
                                                    TagStorageSettings* settings);
// Changes the tag storage settings; a new maxTagCount empties the buffer.
[[nodiscard]] RfidStatus RFID_SetTagStorageSettings(ReaderHandle handle,
                                                    const TagStorageSettings* settings);

// Adds a pre-filter for an antenna (0: every antenna) to the next inventory; *index names it.
[[nodiscard]] RfidStatus RFID_AddPreFilter(ReaderHandle handle, uint16_t antennaId,
                                           const PreFilter* filter, uint32_t* index);
// Removes pre-filter index of an antenna (antennaId 0: of any antenna; index 0: all of them).
RfidStatus RFID_DeletePreFilter(ReaderHandle handle, uint16_t antennaId, uint32_t index);

// Asks the reader to keep its current configuration over a restart (readers that offer it);
// reserved must be null.
[[nodiscard]] RfidStatus RFID_SaveLlrpConfig(ReaderHandle handle, void* reserved);

// Details of the handle's last failed call (handle 0: of this thread's last failed connect).
[[nodiscard]] RfidStatus RFID_GetLastErrorInfoW(ReaderHandle handle, ErrorInfo* info);
// A fixed text for every status, e.g. L"Connection refused: nothing listens at the reader port".
const wchar_t* RFID_GetErrorDescriptionW(uint32_t status);

// Defaults of the library (documented values; ConnectionSettings may change the first four).
inline constexpr uint32_t kDefaultKeepaliveMs = 5000;
inline constexpr uint32_t kDefaultKeepaliveMisses = 3;
inline constexpr uint32_t kDefaultResponseTimeoutMs = 5000;
inline constexpr uint32_t kDefaultGreetingTimeoutMs = 5000;
inline constexpr uint32_t kDefaultConnectTimeoutMs = 5000;

}  // namespace tessera
