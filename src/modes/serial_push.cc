#include "modes/serial_push.h"

#include "config/serial_port_conf.h"
#include "modes/inventory_start.h"
#include "state/console.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "output/serial_port.h"
#include "platform/platform.h"
#include "reader/reader_connection.h"

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
  prepareReader(handle, ReaderUse::kStreamingMode, "");
  startModeInventory(handle, s.serialPushActive, "");
  consolePrint(L"\n Inventory started on Serial Port\r\n");
  return SerialPushResult::kStarted;
}

}  // namespace tessera
