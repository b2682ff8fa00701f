// src/modes/relay_batch.cc — see relay_batch.h.
#include "modes/relay_batch.h"

#include <sched.h>

#include <chrono>
#include <mutex>

#include "platform/logger.h"
#include "format/json_record.h"
#include "modes/relay.h"
#include "output/data_channel.h"
#include "output/http_client.h"
#include "output/usb_hid.h"
#include "platform/platform.h"
#include "reader/tag_processing.h"
#include "readerapi/rfid_api.h"

namespace tessera {

void fatalExit(ServiceState& s, const char* text) {
  Logger::log(LogLevel::kError, "%s", text);
  RFID_StopInventory(s.readerHandle);
  RFID_Disconnect(s.readerHandle);
  s.readerHandle = 0;
  dataChannelNotify("DISCONNECTION_EVENT");
  s.relayActive = false;
  const int32_t mode = s.relayConfig.relayMode;
  if (mode == static_cast<int32_t>(RelayMode::HttpPost)) {
    s.httpClient.reset();
  } else if (mode == static_cast<int32_t>(RelayMode::UsbHid)) {
    hidClose();
    if (s.hidGadgetLoaded) switchToEthernetGadget();
  }
}

std::string closedBatch(const std::string& batch, bool dropAlways) {
  std::string text = batch;
  if (!text.empty() && (dropAlways || text.back() == ',')) text.pop_back();
  text += "]}";
  return text;
}

spool::Batch closeOpenBatch(const ServiceState& s) {
  spool::Batch b;
  b.text =
      closedBatch(s.relayBatch, s.relayConfig.relayMode == static_cast<int32_t>(RelayMode::TcpIp));
  b.reads = static_cast<uint32_t>(s.relayBatchReads);
  b.seq = s.relayBatchSeq < 0 ? 0 : static_cast<uint64_t>(s.relayBatchSeq);
  return b;
}

void startNextBatch(ServiceState& s) {
  s.relayBatchSeq = -1;
  openRelayBatch();
}

bool batchHasContent(const ServiceState& s) {
  return s.relayBatchReads != 0 || s.relayBatchHeartbeat != std::string::npos;
}

bool heartbeatDue(const ServiceState& s, int64_t now) {
  return s.relayConfig.HeartbeatEnabled && now - s.lastHeartbeat >= s.relayConfig.HeartBeatPeriod;
}

// An undelivered batch keeps only its newest heartbeat, so that a long outage cannot grow it by
// one record per pass.
void addHeartbeat(ServiceState& s, int64_t now) {
  if (s.relayBatchHeartbeat != std::string::npos) {
    s.relayBatch.erase(s.relayBatchHeartbeat, s.heartbeatRecord.size());
  }
  buildHeartbeatRecord(s.heartbeatRecord, s.relayConfig.TagMetaData);
  s.relayBatchHeartbeat = s.relayBatch.size();
  s.relayBatch += s.heartbeatRecord;
  s.lastHeartbeat = now;
}

void movePendingToBatch(ServiceState& s) {
  s.relayBatchReads += s.relayPending.takeInto(s.relayBatch);
}

bool takeRecords(ServiceState& s) {
  if (s.relayBatch.size() >= kRelayBatchLimit) return false;
  movePendingToBatch(s);
  if (s.inventoryPausedForBuffer) {
    Logger::log(LogLevel::kInfo, "Tagrelay: Data consumed, Starting Inventory.\n");
    // As at the start, a refused restart is left to the reader's own events.
    static_cast<void>(RFID_PerformInventory(s.readerHandle, nullptr, nullptr,
                                            &s.inventoryControl.TriggerRecord, nullptr));
    s.inventoryPausedForBuffer = false;
  }
  return true;
}

bool waitForRecords(ServiceState& s) {
  s.relayPending.wait(s.relayWorkerStop, RelayWake::kRecords);
  return !s.relayWorkerStop;
}

void pause(ServiceState& s, double seconds) {
  if (seconds <= 0) {
    sched_yield();
    return;
  }
  const auto span = std::chrono::duration<double>(platform::scaledSeconds(seconds));
  s.relayPending.waitFor(s.relayWorkerStop, RelayWake::kStopOnly,
                         std::chrono::duration_cast<std::chrono::nanoseconds>(span));
}

void commonExit() { Logger::log(LogLevel::kError, "Tagrelay: Something Went wrong, exiting thread\n"); }

}  // namespace tessera
