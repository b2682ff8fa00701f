// src/modes/relay_worker.cc — the relay worker "easyTagrelay" without the spool: it moves
// records into the batch and hands the batch to the channel once per pass; and the channel sends
// that the spool's loop shares.
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "platform/logger.h"
#include "state/service_state.h"
#include "format/json_record.h"
#include "modes/relay.h"
#include "modes/relay_batch.h"
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

SendResult postText(ServiceState& s, const std::string& text, bool statusDecides) {
  if (s.httpClient == nullptr) {
    fatalExit(s, "Tagrelay: http handle not available.. exiting thread\n");
    return SendResult::kFatal;
  }
  if (s.httpClient->post(text.c_str(), text.size()) != 0) {
    HttpErrorRecord error;
    s.httpClient->lastError(&error);
    Logger::log(LogLevel::kInfo, "Tagrelay: HTTP POST Error - %d : %s\n", error.code, error.text);
    return SendResult::kFailed;
  }
  if (!statusDecides) return SendResult::kDelivered;
  const long status = s.httpClient->lastStatus();
  if (status >= 200 && status <= 299) return SendResult::kDelivered;
  const bool permanent = status >= 400 && status <= 499 && status != kHttpRequestTimeout &&
                         status != kHttpTooManyRequests;
  if (permanent) return SendResult::kRejected;
  Logger::log(LogLevel::kInfo, "Tagrelay: HTTP POST status %ld, the batch is sent again\n", status);
  return SendResult::kFailed;
}

SendResult publishText(ServiceState& s, const std::string& text) {
  if (s.mqttClient == nullptr) {
    fatalExit(s, "Tagrelay: MQTT handle not available.. exiting thread\n");
    return SendResult::kFatal;
  }
  if (s.mqttClient->publish(text) == MqttPublishResult::kDelivered) return SendResult::kDelivered;
  MqttError error = s.mqttClient->lastError();
  Logger::log(LogLevel::kInfo, "Tagrelay: MQTT publish Error - %d : %s\n", error.code, error.text.c_str());
  return SendResult::kFailed;
}

SendResult sendPiece(ServiceState& s, const std::string& text, size_t& sent) {
  if (s.tcpServer == nullptr) {
    fatalExit(s, "Tagrelay: TCP/IP handle not available.. exiting thread\n");
    return SendResult::kFatal;
  }
  const long n = s.tcpServer->send(text.data() + sent, text.size() - sent);
  if (n < 0) {
    if (errno == EAGAIN || errno == EWOULDBLOCK) return SendResult::kPartial;
    Logger::log(LogLevel::kInfo, "Tagrelay: TCP/IP Client closed connection.\n");
    s.tcpServer->closeClient();
    // At least once: the next client gets this batch whole, never the piece that is left.
    sent = 0;
    return SendResult::kFailed;
  }
  sent += static_cast<size_t>(n);
  return sent < text.size() ? SendResult::kPartial : SendResult::kDelivered;
}

namespace {

// A closed batch leaves relayBatch for relayInFlight, which the client takes in as many pieces
// as its socket accepts; new records collect in the reopened batch behind it meanwhile.
SendResult sendTcpIp(ServiceState& s) {
  if (s.tcpServer == nullptr) {
    fatalExit(s, "Tagrelay: TCP/IP handle not available.. exiting thread\n");
    return SendResult::kFatal;
  }
  for (;;) {
    if (s.relayInFlight.empty()) {
      if (!batchHasContent(s)) return SendResult::kDelivered;
      spool::Batch b = closeOpenBatch(s);
      s.relayInFlight = std::move(b.text);
      s.relayInFlightSent = 0;
      s.relayInFlightReads = b.reads;
      startNextBatch(s);
    }
    const SendResult r = sendPiece(s, s.relayInFlight, s.relayInFlightSent);
    if (r != SendResult::kDelivered) return r;
    s.readLedger.delivered(s.relayInFlightReads);
    s.relayInFlight.clear();
    s.relayInFlightSent = 0;
    s.relayInFlightReads = 0;
  }
}

SendResult send(ServiceState& s) {
  switch (static_cast<RelayMode>(s.relayConfig.relayMode)) {
    case RelayMode::HttpPost:
      return postText(s, closedBatch(s.relayBatch, false), false);
    case RelayMode::UsbHid: {
      if (s.hidFd == -1) {
        fatalExit(s, "Tagrelay: HID device is not opened.. exiting thread\n");
        return SendResult::kFatal;
      }
      int powered = hidHostPowered();
      if (powered < 0) {
        Logger::log(LogLevel::kError, "Tagrelay: Failed to check HID status.");
        return SendResult::kFailed;
      }
      if (powered == 0) {
        Logger::log(LogLevel::kError, "Tagrelay: USB HID device is not found.");
        return SendResult::kFailed;
      }
      std::string text = s.relayBatch;
      if (hidType(text.data()) < 0) {
        Logger::log(LogLevel::kInfo, "Tagrelay : Failed to send data over HID");
        return SendResult::kFailed;
      }
      return SendResult::kDelivered;
    }
    case RelayMode::TcpIp:
      return sendTcpIp(s);
    case RelayMode::Mqtt:
      return publishText(s, closedBatch(s.relayBatch, false));
    case RelayMode::UsbDrive: {
      std::string text = s.relayBatch;
      if (usbDriveWrite(text.data()) >= 0) return SendResult::kDelivered;
      Logger::log(LogLevel::kInfo, "Failed to send data to USB Flash Drive");
      return SendResult::kFailed;
    }
    default:
      return SendResult::kFailed;
  }
}

}  // namespace

void* relayWorker(void* state) {
  ServiceState& s = *static_cast<ServiceState*>(state);
  if (s.relayConfig.relayMode == 0) {
    commonExit();
    return nullptr;
  }
  if (!s.relayActive) {
    Logger::log(LogLevel::kError, "Tagrelay: Inventory not runnig on Tagrelay, exiting thread\n");
    commonExit();
    return nullptr;
  }
  const double interval =
      s.relayConfig.relayMode == static_cast<int32_t>(RelayMode::HttpPost)
          ? static_cast<double>(s.httpPostConfig.HTTPPostInterval)
          : 1.0;
  if (spoolApplies(s)) {
    runSpoolRelay(s, interval);
    return nullptr;
  }
  bool resend = false;
  while (!s.relayWorkerStop) {
    if (s.relayConfig.relayMode == static_cast<int32_t>(RelayMode::TcpIp) &&
        s.tcpServer != nullptr && s.tcpServer->clientSocket() <= 0) {
      int client = s.tcpServer->accept();
      if (s.relayWorkerStop) break;  // the stop shut the listener down to wake us
      if (client < 0) {
        Logger::log(LogLevel::kInfo, "Tagrelay: Error accepting socket connection\n");
        s.tcpServer->closeServer();
        s.tcpServer.reset();
        commonExit();
        return nullptr;
      }
      if (fcntl(client, F_SETFL, O_NONBLOCK) < 0) {
        Logger::log(LogLevel::kInfo, "Tagrelay: Failed to set socket as non-blocking\n");
      }
    }
    bool took = false;
    if (s.relayPending.ready()) {
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
        case SendResult::kDelivered:
          if (s.relayConfig.relayMode != static_cast<int32_t>(RelayMode::TcpIp)) {
            s.readLedger.delivered(s.relayBatchReads);
            startNextBatch(s);
          }
          resend = false;
          break;
        case SendResult::kPartial:
          resend = true;
          break;
        case SendResult::kFailed:
        case SendResult::kRejected:  // only the spool tells a refusal apart
          s.readLedger.deliveryFailed();
          resend = true;
          break;
        case SendResult::kFatal:
          commonExit();
          return nullptr;
      }
    }
    pause(s, interval);
  }
  return nullptr;
}

}  // namespace tessera
