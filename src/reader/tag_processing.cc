#include "reader/tag_processing.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/logger.h"
#include "state/service_state.h"
#include "format/json_record.h"
#include "format/key_value_record.h"
#include "format/serial_record.h"
#include "output/data_channel.h"
#include "output/serial_port.h"
#include "format/tag_view.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

void handOverToRelay(const ReaderTagData& tag, const TagView& view) {
  ServiceState& s = serviceState;
  char record[kTagRecordSize] = {};
  std::span<char, kTagRecordSize> out(record, kTagRecordSize);
  size_t length;
  if (std::strcmp(s.dataFormat.Format, "KeyValuePair") == 0) {
    length = formatKeyValueRecord(out, tag, view, s.relayConfig.TagMetaData, s.dataFormat);
  } else {
    length = formatJsonTagRecord(out, tag, view, s.relayConfig.TagMetaData,
                                 s.relayConfig.HeartbeatEnabled);
  }
  s.relayPending.append(std::string_view(record, length));
  if (s.relayPending.size() >= kRelayBatchLimit) {
    if (s.spoolAccepting) {
      // The spool takes what the sink cannot: the worker is woken instead of the reader paused.
      s.relayPending.markFull();
    } else if (!s.inventoryPausedForBuffer) {
      s.readLedger.inventoryPaused();
      Logger::log(LogLevel::kInfo, "Tagrelay: Buffer is full, stoping Inventory.\n");
      RFID_StopInventory(s.readerHandle);
      s.inventoryPausedForBuffer = true;
    }
  }
  s.relayPending.wake();
}

void writeSerial(const ReaderTagData& tag, const TagView& view) {
  ServiceState& s = serviceState;
  char record[kTagRecordSize] = {};
  formatSerialRecord(std::span<char, kTagRecordSize>(record, kTagRecordSize), tag, view,
                     s.serialPortConfig.TagMetaData);
  // serialWrite logs "Serial port is not opened." or "Failed to write data on Serial Port."
  // itself; both end in the common failure below.
  int n = serialWrite(record);
  if (n < 0) {
    s.readLedger.takenAndDiscarded(DiscardReason::SerialWrite, 1);
    Logger::log(LogLevel::kInfo, "Failed to send data over serial port.");
    serialClose();
    return;
  }
  s.readLedger.takenAndDelivered(1);
  switch (serialTxUpdate(s.serialTxFull, n)) {
    case SerialTxChange::kBecameFull:
      Logger::log(LogLevel::kInfo, "Serial Port Tx1: BUFFER data=%d%d\r\n", n, 1);
      if (s.dataChannelClientFd > 0) dataChannelNotify("BUFFER_FULL_EVENT");
      break;
    case SerialTxChange::kCleared:
      Logger::log(LogLevel::kInfo, "Serial Port Tx: BUFFER cleared data=%d %d\r\n", n, 0);
      if (s.dataChannelClientFd > 0) dataChannelNotify("BUFFER_FULL_EVENT_CLEARED");
      break;
    case SerialTxChange::kNone:
      break;
  }
}

void writeTagDataLine(const ReaderTagData& tag, const TagView& view) {
  const ReaderDateTime& t = view.time;
  char line[2048];
  int n = std::snprintf(line, sizeof line, "TagData:%02d/%02d/%02d %02d:%02d:%02d:%03d,%s,%2d,%5x,%4d,",
                        t.day, t.month, t.year, t.hour, t.minute, t.second, t.milliseconds,
                        view.epc, tag.antennaID, tag.PC, tag.peakRSSI);
  if (n < 0) return;
  size_t length = static_cast<size_t>(n) < sizeof line ? static_cast<size_t>(n) : sizeof line - 1;
  ServiceState& s = serviceState;
  if (s.dataChannelClientFd > 0 &&
      dataChannelWrite(line, length + 1) == static_cast<int>(length + 1)) {
    s.readLedger.takenAndDelivered(1);
  } else {
    s.readLedger.takenAndDiscarded(DiscardReason::NoClient, 1);
  }
}

}  // namespace

SerialTxChange serialTxUpdate(bool& full, int written) {
  if (written > kSerialTxFullThreshold && !full) {
    full = true;
    return SerialTxChange::kBecameFull;
  }
  if (written > 0 && written <= kSerialTxFullThreshold && full) {
    full = false;
    return SerialTxChange::kCleared;
  }
  return SerialTxChange::kNone;
}

void processTagRead(const ReaderTagData* tag) {
  ServiceState& s = serviceState;
  const TagView view = makeTagView(*tag);
  if (s.relayActive) {
    handOverToRelay(*tag, view);
  } else if (s.serialPushActive) {
    writeSerial(*tag, view);
  } else {
    writeTagDataLine(*tag, view);
  }
}

}  // namespace tessera
