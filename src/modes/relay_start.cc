#include <cstring>
#include <string>

#include "config/http_post_conf.h"
#include "config/mqtt_conf.h"
#include "config/output_conf.h"
#include "config/relay_conf.h"
#include "state/console.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "format/json_record.h"
#include "modes/inventory_start.h"
#include "modes/relay.h"
#include "output/data_channel.h"
#include "output/http_client.h"
#include "output/mqtt_client.h"
#include "output/tcp_server.h"
#include "output/usb_drive.h"
#include "output/usb_hid.h"
#include "platform/platform.h"
#include "reader/reader_connection.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

constexpr uint32_t kReaderDeniedStatus = 101;

// Sets up the channel of the configured mode; 0 or -1.
int openChannel(ServiceState& s) {
  switch (static_cast<RelayMode>(s.relayConfig.relayMode)) {
    case RelayMode::HttpPost: {
      s.httpClient = makeOwned<HTTPClient>(s.httpPostConfig);
      HTTPClient* client = s.httpClient.get();
      // The worker is stopped by a flag, not cancelled: a post waiting on a stalled server must
      // give up when the flag is set, or a stop would wait for the 30-second time-out.
      client->setAbortFlag(&s.relayWorkerStop);
      const char* configured = s.httpPostConfig.HTTPServerURL;
      std::string url;
      bool tls = false;
      if (std::strncmp(configured, "https://", 8) == 0) {
        url = configured;
        tls = true;
      } else if (std::strncmp(configured, "http://", 7) == 0) {
        url = configured;
      } else {
        url = std::string("http://") + configured;
      }
      // A failed open is not fatal here: without a handle every post fails and is retried.
      static_cast<void>(client->open(1, url.c_str(), tls));
      if (client->prepare(url.c_str()) != 0) {
        Logger::log(LogLevel::kInfo, "Tagrelay: Unable to create request for URL %s\n", configured);
        s.httpClient.reset();
        return -1;
      }
      openRelayBatch();
      return 0;
    }
    case RelayMode::UsbHid:
      if (!s.hidGadgetLoaded) switchToHidGadget();
      if (hidOpen() < 0) {
        Logger::log(LogLevel::kInfo, "Tagrelay: USB HID device is not opened\n");
        if (s.hidGadgetLoaded) switchToEthernetGadget();
        return -1;
      }
      s.relayBatch.clear();
      return 0;
    case RelayMode::TcpIp:
      if (s.tcpServer == nullptr) {
        s.tcpServer = makeOwned<TcpServer>(s.tcpIpConfig.Port);
        TcpServer* server = s.tcpServer.get();
        bool failed = false;
        if (server->bind() != 0) {
          Logger::log(LogLevel::kInfo, "Tagrelay: Error binding TCP/IP socket\n");
          failed = true;
        } else if (server->listen() != 0) {
          Logger::log(LogLevel::kInfo, "Tagrelay: Error listening TCP/IP socket\n");
          failed = true;
        }
        if (failed) {
          server->closeServer();
          s.tcpServer.reset();
          return -1;
        }
      }
      openRelayBatch();
      return 0;
    case RelayMode::UsbDrive:
      s.relayBatch.clear();
      return 0;
    case RelayMode::Mqtt: {
      const char* mac = s.macAddressKnown ? s.macAddress : getMacAddress();
      s.mqttClient.reset();  // none is held here, unless a start was cut short
      Owned<MqttClient> client = makeOwned<MqttClient>(s.mqttConfig, s.readerName.text, mac);
      // As for HTTP: a publish waiting for its PUBACK gives up when the relay stops.
      client->setAbortFlag(&s.relayWorkerStop);
      if (client->start() != 0) {
        Logger::log(LogLevel::kInfo, "Tagrelay: Unable to set up MQTT client - %s\n",
                    client->lastError().text.c_str());
        return -1;
      }
      s.mqttClient = std::move(client);
      openRelayBatch();
      return 0;
    }
    default:
      return -1;
  }
}

// Releases what a failed reader connection leaves behind; the TCP/IP server stays.
void releaseChannelAfterConnectFailure(ServiceState& s) {
  s.httpClient.reset();
  s.mqttClient.reset();
  hidClose();
  if (s.hidGadgetLoaded) switchToEthernetGadget();
  usbDriveDisconnect();
}

void setAntennaPowers(ServiceState& s, ReaderHandle handle) {
  for (const AntennaEntry& entry : s.relayConfig.Antennas) {
    if (entry.AntennaId == 0) {
      Logger::log(LogLevel::kInfo, "Tagrelay: Antenna ID is not set - %d\n", 0);
      continue;
    }
    uint16_t sensitivity = 1, power = 1, frequency = 1;
    if (RFID_GetAntennaConfig(handle, entry.AntennaId, &sensitivity, &power, &frequency) !=
        RFID_API_SUCCESS) {
      Logger::log(LogLevel::kInfo, "Tagrelay: Failed to get Power for Antenna - %d\n", entry.AntennaId);
      continue;
    }
    if (RFID_SetAntennaConfig(handle, entry.AntennaId, sensitivity, entry.TxPower, frequency) !=
        RFID_API_SUCCESS) {
      Logger::log(LogLevel::kInfo, "Tagrelay: Failed to set Power for Antenna - %d\n", entry.AntennaId);
    }
  }
}

}  // namespace

RelayStartResult relayStartOnce() {
  ServiceState& s = serviceState;
  const int32_t mode = s.relayConfig.relayMode;
  if (mode == 0) return RelayStartResult::kNoChannel;
  if (mode < 1 || mode > static_cast<int32_t>(RelayMode::Mqtt)) {
    Logger::log(LogLevel::kInfo, "Tagrelay: Unknown mode\n");
    return RelayStartResult::kNoChannel;
  }
  if (openChannel(s) != 0) return RelayStartResult::kNoChannel;

  ReaderHandle handle = 0;
  uint32_t status = connectReader(&handle, readerHost(), readerPort(s.relayReaderPort),
                                  s.relayConnectOption);
  s.readerHandle = handle;
  if (status != 0) {
    Logger::log(LogLevel::kInfo, "Tagrelay: Unable to connect with reader: %d\n", status);
    releaseChannelAfterConnectFailure(s);
    return status == kReaderDeniedStatus ? RelayStartResult::kReaderRefused
                                         : RelayStartResult::kReaderUnreachable;
  }
  prepareReader(handle, ReaderUse::kStreamingMode, "Tagrelay: ");
  setAntennaPowers(s, handle);
  startModeInventory(handle, s.relayActive, "Tagrelay: ");
  if (s.relayConfig.HeartbeatEnabled) s.lastHeartbeat = platform::now();
  consolePrint(L"\nTagrelay: Inventory started on Tagrelay\r\n");
  Logger::log(LogLevel::kInfo, "Tagrelay: Inventory started\n");
  return RelayStartResult::kStarted;
}

bool spoolApplies(const ServiceState& s) {
  const int32_t mode = s.relayConfig.relayMode;
  return !platform::settings().spoolDir.empty() &&
         (mode == static_cast<int32_t>(RelayMode::HttpPost) ||
          mode == static_cast<int32_t>(RelayMode::TcpIp) ||
          mode == static_cast<int32_t>(RelayMode::Mqtt));
}

void openRelayBatch() {
  ServiceState& s = serviceState;
  s.relayBatch.clear();
  s.relayBatchReads = 0;
  s.relayBatchHeartbeat = std::string::npos;
  const int32_t mode = s.relayConfig.relayMode;
  if (mode != static_cast<int32_t>(RelayMode::HttpPost) &&
      mode != static_cast<int32_t>(RelayMode::TcpIp) &&
      mode != static_cast<int32_t>(RelayMode::Mqtt)) {
    return;
  }
  // The address is asked of the kernel once; every later report reuses the text.
  const char* mac = s.macAddressKnown ? s.macAddress : getMacAddress();
  // With the spool each batch is numbered; a number is taken once its batch was used.
  const bool numbered = spoolApplies(s);
  if (numbered && s.relayBatchSeq < 0) s.relayBatchSeq = static_cast<int64_t>(s.spool.nextSeq());
  openJsonEnvelope(s.relayBatch, mode, s.readerName.text, mac, numbered ? s.relayBatchSeq : -1);
}

RelayStartResult relayStart(bool reread) {
  ServiceState& s = serviceState;
  // A worker that ended through one of its own fatal exits has not been joined yet (the
  // disconnect commands stop the relay only while it is active); join it before its handle is
  // reused.
  joinRelayWorker(false);
  // After a worker's fatal exit its undelivered records are still here: counted, then dropped.
  discardRelayHoldings();
  if (reread) {
    if (readRelayConfig(s.relayConfig, s.inventoryControl) < 0) {
      Logger::log(LogLevel::kError, "Tagrelay: Failed to parse TagrelayMode.\n");
      return RelayStartResult::kInventoryControlRefused;
    }
  }
  const int32_t mode = s.relayConfig.relayMode;
  if (mode == 0) {
    Logger::log(LogLevel::kError, "Tagrelay: Feature is not enabled in configuration.\n");
    return RelayStartResult::kNotEnabled;
  }
  if (s.requestedRelayMode >= 0 && s.requestedRelayMode != mode) {
    Logger::log(LogLevel::kError, "Tagrelay: TagrelayMode mismatch.\n");
    return RelayStartResult::kModeMismatch;
  }
  if (s.relayConfig.HeartbeatEnabled) buildHeartbeatRecord(s.heartbeatRecord, s.relayConfig.TagMetaData);
  if (s.tcpServer != nullptr && mode != static_cast<int32_t>(RelayMode::TcpIp)) {
    s.tcpServer->closeClient();
    s.tcpServer->closeServer();
    s.tcpServer.reset();
  }
  int32_t sectionResult = 1;
  switch (static_cast<RelayMode>(mode)) {
    case RelayMode::HttpPost:
      sectionResult = readHttpPostConfig(s.httpPostConfig, s.readerName, s.dataFormat);
      if (sectionResult != 1) Logger::log(LogLevel::kError, "Tagrelay: Failed to parse Tagrelay configuration.\n");
      break;
    case RelayMode::UsbHid:
    case RelayMode::UsbDrive:
      sectionResult = readDataFormatConfig(s.dataFormat);
      if (sectionResult != 1) {
        Logger::log(LogLevel::kError, "Tagrelay: Failed to parse Tagrelay configuration for USB HID.\n");
      }
      break;
    case RelayMode::TcpIp:
      sectionResult = readTcpIpConfig(s.tcpIpConfig, s.dataFormat);
      if (sectionResult != 1) {
        Logger::log(LogLevel::kError, "Tagrelay: Failed to parse Tagrelay configuration for TCP/IP.\n");
      }
      break;
    case RelayMode::Mqtt:
      sectionResult = readMqttConfig(s.mqttConfig, s.readerName, s.dataFormat);
      if (sectionResult != 1) {
        Logger::log(LogLevel::kError, "Tagrelay: Failed to parse Tagrelay configuration for MQTT.\n");
      }
      break;
    default:
      Logger::log(LogLevel::kError, "Tagrelay: Undefined TagrelayMode - %d.\n", mode);
      return RelayStartResult::kNoChannel;
  }
  s.relayWorkerStop = false;
  RelayStartResult code = RelayStartResult::kNoChannel;
  for (int attempt = 1; attempt <= kRelayStartAttempts; ++attempt) {
    code = relayStartOnce();
    if (code == RelayStartResult::kStarted) break;
    if (code == RelayStartResult::kReaderRefused) {
      Logger::log(LogLevel::kError, "Tagrelay: Failed to start Tagrelay.\n");
      return code;
    }
    Logger::log(LogLevel::kDebug, "Tagrelay: Failed to start Tagrelay : retry = %d\n", attempt);
    platform::sleepSeconds(kRelayRetrySeconds);
    // The cleanup after SIGINT or SIGTERM waits for this command to end; fourteen more
    // attempts would hold the process for over two minutes past the signal.
    if (s.terminationSignal != 0) break;
  }
  if (code != RelayStartResult::kStarted) {
    Logger::log(LogLevel::kError, "Tagrelay: Failed to start Tagrelay.\n");
    return code;
  }
  Logger::log(LogLevel::kInfo, "Tagrelay: Starting thread for Tagrelay\n");
  if (pthread_create(&s.relayThread, nullptr, relayWorker, &s) == 0) {
    pthread_setname_np(s.relayThread, "easyTagrelay");
    s.relayThreadStarted = true;
  }
  return RelayStartResult::kStarted;
}

}  // namespace tessera
