#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "core/logger.h"
#include "core/service_state.h"
#include "format/json_record.h"
#include "modes/relay.h"
#include "output/data_channel.h"
#include "output/http_client.h"
#include "output/mqtt_client.h"
#include "output/tcp_server.h"
#include "output/usb_drive.h"
#include "output/usb_hid.h"
#include "platform/platform.h"
#include "reader/tag_processing.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

enum class SendResult {
  Delivered,  // the batch is out; for TCP/IP every closed batch was taken whole
  Partial,    // TCP/IP: the client took part of a batch, or nothing yet; the rest goes first on
              // the next pass
  Failed,     // nothing delivered: the batch is kept and sent again
  Fatal,      // the channel is gone and the worker ends
};

// The fatal exits: the channel is gone, so the reader is released and the local client told.
void fatalExit(ServiceState& s, const char* text) {
  Logger::log(3, "%s", text);
  RFID_StopInventory(s.readerHandle);
  RFID_Disconnect(s.readerHandle);
  s.readerHandle = 0;
  dataChannelNotify("DISCONNECTION_EVENT");
  s.relayActive = false;
  const int32_t mode = s.relayConfig.relayMode;
  if (mode == static_cast<int32_t>(RelayMode::HttpPost)) {
    delete s.httpClient;
    s.httpClient = nullptr;
  } else if (mode == static_cast<int32_t>(RelayMode::UsbHid)) {
    hidClose();
    if (s.hidGadgetLoaded) switchToEthernetGadget();
  }
}

// The batch with its last character dropped (if the rule says so) and "]}" appended.
std::string closedBatch(const std::string& batch, bool dropAlways) {
  std::string text = batch;
  if (!text.empty() && (dropAlways || text.back() == ',')) text.pop_back();
  text += "]}";
  return text;
}

bool batchHasContent(const ServiceState& s) {
  return s.relayBatchReads != 0 || s.relayBatchHeartbeat != std::string::npos;
}

// A closed batch leaves relayBatch for relayInFlight, which the client takes in as many pieces
// as its socket accepts; new records collect in the reopened batch behind it meanwhile.
SendResult sendTcpIp(ServiceState& s) {
  for (;;) {
    if (s.relayInFlight.empty()) {
      if (!batchHasContent(s)) return SendResult::Delivered;
      s.relayInFlight = closedBatch(s.relayBatch, true);
      s.relayInFlightSent = 0;
      s.relayInFlightReads = s.relayBatchReads;
      s.relayBatchReads = 0;
      openRelayBatch();
    }
    const size_t left = s.relayInFlight.size() - s.relayInFlightSent;
    const long n = s.tcpServer->send(s.relayInFlight.data() + s.relayInFlightSent, left);
    if (n < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) return SendResult::Partial;
      Logger::log(6, "Tagrelay: TCP/IP Client closed connection.\n");
      s.tcpServer->closeClient();
      // At least once: the next client gets this batch whole, never the piece that is left.
      s.relayInFlightSent = 0;
      return SendResult::Failed;
    }
    s.relayInFlightSent += static_cast<size_t>(n);
    if (s.relayInFlightSent < s.relayInFlight.size()) return SendResult::Partial;
    s.readLedger.delivered(s.relayInFlightReads);
    s.relayInFlight.clear();
    s.relayInFlightSent = 0;
    s.relayInFlightReads = 0;
  }
}

SendResult send(ServiceState& s) {
  switch (static_cast<RelayMode>(s.relayConfig.relayMode)) {
    case RelayMode::HttpPost: {
      if (s.httpClient == nullptr) {
        fatalExit(s, "Tagrelay: http handle not available.. exiting thread\n");
        return SendResult::Fatal;
      }
      std::string text = closedBatch(s.relayBatch, false);
      if (s.httpClient->post(text.c_str(), text.size()) == 0) return SendResult::Delivered;
      HttpErrorRecord error;
      s.httpClient->lastError(&error);
      Logger::log(6, "Tagrelay: HTTP POST Error - %d : %s\n", error.code, error.text);
      return SendResult::Failed;
    }
    case RelayMode::UsbHid: {
      if (s.hidFd == -1) {
        fatalExit(s, "Tagrelay: HID device is not opened.. exiting thread\n");
        return SendResult::Fatal;
      }
      int powered = hidHostPowered();
      if (powered < 0) {
        Logger::log(3, "Tagrelay: Failed to check HID status.");
        return SendResult::Failed;
      }
      if (powered == 0) {
        Logger::log(3, "Tagrelay: USB HID device is not found.");
        return SendResult::Failed;
      }
      std::string text = s.relayBatch;
      if (hidType(text.data()) < 0) {
        Logger::log(6, "Tagrelay : Failed to send data over HID");
        return SendResult::Failed;
      }
      return SendResult::Delivered;
    }
    case RelayMode::TcpIp:
      if (s.tcpServer == nullptr) {
        fatalExit(s, "Tagrelay: TCP/IP handle not available.. exiting thread\n");
        return SendResult::Fatal;
      }
      return sendTcpIp(s);
    case RelayMode::Mqtt: {
      if (s.mqttClient == nullptr) {
        fatalExit(s, "Tagrelay: MQTT handle not available.. exiting thread\n");
        return SendResult::Fatal;
      }
      if (s.mqttClient->publish(closedBatch(s.relayBatch, false)) ==
          MqttPublishResult::Delivered) {
        return SendResult::Delivered;
      }
      MqttError error = s.mqttClient->lastError();
      Logger::log(6, "Tagrelay: MQTT publish Error - %d : %s\n", error.code, error.text.c_str());
      return SendResult::Failed;
    }
    case RelayMode::UsbDrive: {
      std::string text = s.relayBatch;
      if (usbDriveWrite(text.data()) >= 0) return SendResult::Delivered;
      Logger::log(6, "Failed to send data to USB Flash Drive");
      return SendResult::Failed;
    }
    default:
      return SendResult::Failed;
  }
}

bool heartbeatDue(const ServiceState& s, int64_t now) {
  return s.relayConfig.HeartbeatEnabled && now - s.lastHeartbeat >= s.relayConfig.HeartBeatPeriod;
}

// An undelivered batch keeps only its newest heartbeat, so that a long outage cannot grow it
// by one record per pass.
void addHeartbeat(ServiceState& s, int64_t now) {
  if (s.relayBatchHeartbeat != std::string::npos) {
    s.relayBatch.erase(s.relayBatchHeartbeat, s.heartbeatRecord.size());
  }
  buildHeartbeatRecord(s.heartbeatRecord, s.relayConfig.TagMetaData);
  s.relayBatchHeartbeat = s.relayBatch.size();
  s.relayBatch += s.heartbeatRecord;
  s.lastHeartbeat = now;
}

// Moves pending records into the batch unless the batch is at its limit; whether it took any.
bool takeRecords(ServiceState& s) {
  if (s.relayBatch.size() >= kRelayBatchLimit) return false;
  {
    std::lock_guard<std::mutex> outer(s.relayPendingOuterLock);
    std::lock_guard<std::mutex> inner(s.relayPendingInnerLock);
    s.relayBatch += s.relayPending;
    s.relayBatchReads += s.relayPendingReads;
    s.relayPending.clear();
    s.relayPendingLength = 0;
    s.relayPendingReads = 0;
    s.relayRecordsReady = false;
  }
  if (s.inventoryPausedForBuffer) {
    Logger::log(6, "Tagrelay: Data consumed, Starting Inventory.\n");
    // As at the start, a refused restart is left to the reader's own events.
    static_cast<void>(RFID_PerformInventory(s.readerHandle, nullptr, nullptr,
                                            &s.inventoryControl.TriggerRecord, nullptr));
    s.inventoryPausedForBuffer = false;
  }
  return true;
}

// Waits on the wake-up condition for records (or a stop); false when stopping.
bool waitForRecords(ServiceState& s) {
  std::unique_lock<std::mutex> lock(s.relayWakeLock);
  s.relayWakeCond.wait(lock, [&] { return s.relayRecordsReady || s.relayWorkerStop; });
  return !s.relayWorkerStop;
}

// Sleeps for the pass interval, or less when the relay stops.
void pause(ServiceState& s, double seconds) {
  if (seconds <= 0) {
    sched_yield();
    return;
  }
  std::unique_lock<std::mutex> lock(s.relayWakeLock);
  auto span = std::chrono::duration<double>(platform::scaledSeconds(seconds));
  s.relayWakeCond.wait_for(lock, span, [&] { return s.relayWorkerStop.load(); });
}

void commonExit() { Logger::log(3, "Tagrelay: Something Went wrong, exiting thread\n"); }

}  // namespace

void* relayWorker(void*) {
  ServiceState& s = serviceState;
  if (s.relayConfig.relayMode == 0) {
    commonExit();
    return nullptr;
  }
  if (!s.relayActive) {
    Logger::log(3, "Tagrelay: Inventory not runnig on Tagrelay, exiting thread\n");
    commonExit();
    return nullptr;
  }
  const double interval =
      s.relayConfig.relayMode == static_cast<int32_t>(RelayMode::HttpPost)
          ? static_cast<double>(s.httpPostConfig.HTTPPostInterval)
          : 1.0;
  bool resend = false;
  while (!s.relayWorkerStop) {
    if (s.relayConfig.relayMode == static_cast<int32_t>(RelayMode::TcpIp) &&
        s.tcpServer != nullptr && s.tcpServer->clientSocket() <= 0) {
      int client = s.tcpServer->accept();
      if (s.relayWorkerStop) break;  // the stop shut the listener down to wake us
      if (client < 0) {
        Logger::log(6, "Tagrelay: Error accepting socket connection\n");
        s.tcpServer->closeServer();
        delete s.tcpServer;
        s.tcpServer = nullptr;
        commonExit();
        return nullptr;
      }
      if (fcntl(client, F_SETFL, O_NONBLOCK) < 0) {
        Logger::log(6, "Tagrelay: Failed to set socket as non-blocking\n");
      }
    }
    bool took = false;
    if (s.relayRecordsReady) {
      took = takeRecords(s);
    } else if (!s.relayConfig.HeartbeatEnabled && !resend) {
      // A batch still to be (re)sent is never left waiting for the next tag to pass.
      if (!waitForRecords(s)) break;
      took = takeRecords(s);
    }
    const int64_t now = platform::now();
    bool sendNow = took;
    if (heartbeatDue(s, now)) {
      addHeartbeat(s, now);
      sendNow = true;
    }
    if (!sendNow) sendNow = resend;
    if (sendNow) {
      switch (send(s)) {
        case SendResult::Delivered:
          if (s.relayConfig.relayMode != static_cast<int32_t>(RelayMode::TcpIp)) {
            s.readLedger.delivered(s.relayBatchReads);
            s.relayBatchReads = 0;
            openRelayBatch();
          }
          resend = false;
          break;
        case SendResult::Partial:
          resend = true;
          break;
        case SendResult::Failed:
          s.readLedger.deliveryFailed();
          resend = true;
          break;
        case SendResult::Fatal:
          commonExit();
          return nullptr;
      }
    }
    pause(s, interval);
  }
  return nullptr;
}

}  // namespace tessera
