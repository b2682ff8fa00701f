#include "modes/inventory_start.h"

#include "platform/logger.h"
#include "platform/platform.h"
#include "reader/event_thread.h"
#include "reader/prefilters.h"
#include "reader/reader_connection.h"
#include "readerapi/rfid_api.h"
#include "state/service_state.h"

namespace tessera {
namespace {

// The library's own settings of antenna 1 are the model for the session written to all.
constexpr uint16_t kModelAntenna = 1;
constexpr uint16_t kAllAntennas = 0;
// Report triggers of a streaming mode: every read is reported by itself, with no options.
constexpr uint32_t kReportEachRead = 1;
constexpr uint32_t kNoReportOptions = 0;

void askForRecordTagFields(ReaderHandle handle, const char* logPrefix) {
  TagStorageSettings storage;
  RfidStatus status = RFID_GetTagStorageSettings(handle, &storage);
  if (status == RFID_API_SUCCESS) {
    storage.tagFields |= kRecordTagFields;
    status = RFID_SetTagStorageSettings(handle, &storage);
  }
  if (status != RFID_API_SUCCESS) {
    Logger::log(LogLevel::kError,
                "%sTag storage settings not taken (reader API status %u): records will show no "
                "phase or channel index\n",
                logPrefix, static_cast<unsigned>(status));
  }
}

void setConfiguredSession(ReaderHandle handle, const char* logPrefix) {
  const int32_t session = serviceState.inventoryControl.Session;
  SingulationControl singulation;
  RfidStatus status = RFID_GetSingulationControl(handle, kModelAntenna, &singulation);
  if (status == RFID_API_SUCCESS) {
    singulation.session = static_cast<uint32_t>(session);
    status = RFID_SetSingulationControl(handle, kAllAntennas, &singulation);
  }
  if (status != RFID_API_SUCCESS) {
    Logger::log(LogLevel::kError,
                "%sSession S%d not taken (reader API status %u): the reader reads in its own "
                "session; check InventoryControl\n",
                logPrefix, static_cast<int>(session), static_cast<unsigned>(status));
  }
}

}  // namespace

void prepareReader(ReaderHandle handle, ReaderUse use, const char* logPrefix) {
  ServiceState& s = serviceState;
  askForRecordTagFields(handle, logPrefix);
  if (use == ReaderUse::kStreamingMode) setConfiguredSession(handle, logPrefix);
  registerReaderEvents();
  if (use == ReaderUse::kStreamingMode) {
    s.inventoryControl.TriggerRecord.tagReportTrigger = kReportEachRead;
    s.inventoryControl.TriggerRecord.tagReportOptions = kNoReportOptions;
  }
  Logger::log(LogLevel::kInfo, "%sEstablished connection to the reader", logPrefix);
}

void startModeInventory(ReaderHandle handle, std::atomic<bool>& modeActive,
                        const char* logPrefix) {
  ServiceState& s = serviceState;
  // The serial push logs this text too, "Tagrelay: " and all: log watchers match it as it stands.
  if (applyPreFilters(handle) == -1) {
    Logger::log(LogLevel::kError, "Tagrelay: Failed to Apply Prefilter\n");
  }
  if (s.inventoryControl.StartDelay != 0) {
    platform::sleepSeconds(s.inventoryControl.StartDelay / 1000.0);
  }
  // Reads still buffered from before belong to no mode: they are thrown away.
  discardBufferedReads(handle, DiscardReason::Stale);
  // The mode is in force before the inventory starts: its first reports can reach tag read
  // processing before the start's reply reaches this thread.
  modeActive = true;
  startInventory(handle, &s.inventoryControl.TriggerRecord, logPrefix);
}

void startInventory(ReaderHandle handle, const TriggerRecord* triggers, const char* logPrefix) {
  const RfidStatus status = RFID_PerformInventory(handle, nullptr, nullptr, triggers, nullptr);
  if (status != RFID_API_SUCCESS) {
    Logger::log(LogLevel::kError,
                "%sInventory not started (reader API status %u): no tag is read until the next "
                "start\n",
                logPrefix, static_cast<unsigned>(status));
  }
}

}  // namespace tessera
