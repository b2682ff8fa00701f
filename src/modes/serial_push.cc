#include "modes/serial_push.h"

#include "config/serial_port_conf.h"
#include "state/console.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "output/serial_port.h"
#include "platform/platform.h"
#include "reader/event_thread.h"
#include "reader/prefilters.h"
#include "reader/reader_connection.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

constexpr int kBootAttempts = 15;
constexpr double kConnectRetrySeconds = 10.0;
constexpr double kHeaderRetrySeconds = 5.0;

// Writes the header line; 0 or -1 (the port is then closed).
int writeHeader() {
  ServiceState& s = serviceState;
  if (serialWrite(s.serialPortConfig.TagMetaString) >= 0) return 0;
  Logger::log(LogLevel::kInfo, "Failed to send data over serial port.");
  serialClose();
  return -1;
}

void prepareReader(ReaderHandle handle) {
  ServiceState& s = serviceState;
  TagStorageSettings storage;
  if (RFID_GetTagStorageSettings(handle, &storage) == RFID_API_SUCCESS) {
    storage.tagFields |= 0x0100 | 0x1000;
    if (RFID_SetTagStorageSettings(handle, &storage) != RFID_API_SUCCESS) {
      Logger::log(LogLevel::kDebug, "tag storage settings not changed\n");
    }
  }
  SingulationControl singulation;
  if (RFID_GetSingulationControl(handle, 1, &singulation) == RFID_API_SUCCESS) {
    singulation.session = static_cast<uint32_t>(s.inventoryControl.Session);
    if (RFID_SetSingulationControl(handle, 0, &singulation) != RFID_API_SUCCESS) {
      Logger::log(LogLevel::kDebug, "session not changed\n");
    }
  }
  registerReaderEvents();
  s.inventoryControl.TriggerRecord.tagReportTrigger = 1;
  s.inventoryControl.TriggerRecord.tagReportOptions = 0;
  Logger::log(LogLevel::kInfo, "Established connection to the reader");
}

}  // namespace

SerialPushResult startSerialPush(bool reread) {
  ServiceState& s = serviceState;
  if (s.serialPortConfig.Mode != 1) return SerialPushResult::kNotPushMode;
  int attempts = kBootAttempts;
  if (reread) {
    readSerialPortConf(s.serialPortConfig, s.inventoryControl);
    attempts = 1;
  }
  if (serialOpen() != 0) return SerialPushResult::kPortFailed;
  if (s.readerHandle != 0) {
    Logger::log(LogLevel::kInfo, "Connection Exists already");
    return SerialPushResult::kConnectedAlready;
  }

  SerialPushResult code = SerialPushResult::kReaderUnreachable;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    // A termination signal ends the boot-time attempts instead of outwaiting them.
    if (attempt > 1 && s.terminationSignal != 0) break;
    ReaderHandle handle = 0;
    uint32_t status = connectReader(&handle, readerHost(), readerPort(s.serialReaderPort),
                                    s.serialConnectOption);
    s.readerHandle = handle;
    if (status != 0) {
      Logger::log(LogLevel::kInfo, "Unable to establish connection with the reader - status : %d", status);
      consolePrint(L"Unable to connect to reader, retrying..\r\n");
      platform::sleepSeconds(kConnectRetrySeconds);
      code = SerialPushResult::kReaderUnreachable;
      continue;
    }
    if (writeHeader() == 0) {
      code = SerialPushResult::kStarted;
      break;
    }
    platform::sleepSeconds(kHeaderRetrySeconds);
    code = SerialPushResult::kHeaderNotWritten;
  }
  if (code != SerialPushResult::kStarted) return code;

  const ReaderHandle handle = s.readerHandle;
  prepareReader(handle);
  if (applyPreFilters(handle) == -1) Logger::log(LogLevel::kError, "Tagrelay: Failed to Apply Prefilter\n");
  if (s.inventoryControl.StartDelay != 0) {
    platform::sleepSeconds(s.inventoryControl.StartDelay / 1000.0);
  }
  // Reads still buffered from before belong to no mode: they are thrown away.
  discardBufferedReads(handle, DiscardReason::Stale);
  // In force before the inventory starts, whose first reports may come before its reply.
  s.serialPushActive = true;
  if (RFID_PerformInventory(handle, nullptr, nullptr, &s.inventoryControl.TriggerRecord,
                            nullptr) != RFID_API_SUCCESS) {
    Logger::log(LogLevel::kDebug, "inventory start refused\n");
  }
  consolePrint(L"\n Inventory started on Serial Port\r\n");
  return SerialPushResult::kStarted;
}

}  // namespace tessera
