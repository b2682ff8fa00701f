#include "command/dispatcher.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "command/antenna_commands.h"
#include "command/command_fields.h"
#include "command/relay_command.h"
#include "command/start_replies.h"
#include "state/console.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "modes/inventory_start.h"
#include "modes/relay.h"
#include "modes/serial_push.h"
#include "output/data_channel.h"
#include "output/serial_port.h"
#include "platform/platform.h"
#include "reader/reader_connection.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

constexpr int32_t kDefaultReaderPort = 5084;
constexpr double kRelayStopPauseSeconds = 3.0;

void connectionConfig(int clientSocket, const std::string& text) {
  ServiceState& s = serviceState;
  s.disconnectRequested = false;
  struct Entry {
    int32_t port;
    uint8_t option;
  };
  std::vector<Entry> entries;
  Entry current{0, 0};
  for (const std::vector<long>& fields : parseCommandFields(text)) {
    if (fields.size() > 0) current.port = static_cast<int32_t>(fields[0]);
    if (fields.size() > 1) current.option = static_cast<uint8_t>(fields[1]);
    entries.push_back(current);
  }
  if (!entries.empty()) entries.erase(entries.begin());
  consolePrint(L"\nconnectConfigVec.size() =%d\r\n", static_cast<int>(entries.size()));
  // Without a port there is nothing to connect to: answer as a failed connection.
  if (entries.empty()) {
    Logger::log(LogLevel::kInfo, "Unable to establish connection with the reader - status : %d", -1);
    sendReply(clientSocket, kReaderUnreachableReply);
    return;
  }
  ReaderHandle handle = 0;
  uint32_t status = connectReader(&handle, readerHost(),
                                  readerPort(entries.front().port), entries.front().option);
  s.readerHandle = handle;
  if (status != 0) {
    Logger::log(LogLevel::kInfo, "Unable to establish connection with the reader - status : %d", status);
    sendReply(clientSocket, kReaderUnreachableReply);
    return;
  }
  prepareReader(handle, ReaderUse::kPlainInventory, "");
  sendReply(clientSocket, "ok\r\n\r\n");
}

void inventoryStatus(int clientSocket) {
  ServiceState& s = serviceState;
  consolePrint(L"\ngetInventoryStatus\n");
  if (s.readerHandle == 0) {
    consolePrint(L"\ngetInventoryStatus : InventoryStandby\n");
    sendReply(clientSocket, "InventoryStandby\r\n\r\n");
  } else if (s.relayActive) {
    consolePrint(L"\ngetInventoryStatus : Tagrelay\n");
    sendReply(clientSocket, "InventoryRunning:Tagrelay\r\n\r\n");
  } else if (s.serialPushActive) {
    consolePrint(L"\ngetInventoryStatus : PushData\n");
    sendReply(clientSocket, "InventoryRunning:PushData\r\n\r\n");
  } else {
    consolePrint(L"\ngetInventoryStatus\n");
    sendReply(clientSocket, "InventoryRunning\r\n\r\n");
  }
}

void stopSerialPush(const wchar_t* trace) {
  ServiceState& s = serviceState;
  s.serialPushActive = false;
  serialClose();
  consolePrint(trace);
}

void disconnectSilently() {
  ServiceState& s = serviceState;
  consolePrint(L"\ndisconnect2\n");
  s.disconnectRequested = true;
  s.suppressDisconnectEvent = true;
  if (s.relayActive) {
    consolePrint(L"\ndisconnect2 : Tagrelay\n");
    s.relayActive = false;
    platform::sleepSeconds(kRelayStopPauseSeconds);
    relayStop();
  }
  if (s.serialPushActive) stopSerialPush(L"\ndisconnect2 : PushData\n");
  if (s.readerHandle != 0) {
    RFID_Disconnect(s.readerHandle);
    s.readerHandle = 0;
  }
  s.requestedRelayMode = -1;
}

void disconnect(int clientSocket) {
  ServiceState& s = serviceState;
  consolePrint(L"\ndisconnect\n");
  s.disconnectRequested = true;
  if (s.readerHandle != 0) {
    RFID_StopInventory(s.readerHandle);
    RFID_Disconnect(s.readerHandle);
    s.readerHandle = 0;
  }
  if (s.relayActive) {
    consolePrint(L"\ndisconnect : Tagrelay\n");
    s.relayActive = false;
    platform::sleepSeconds(kRelayStopPauseSeconds);
    relayStop();
  }
  if (s.serialPushActive) stopSerialPush(L"\ndisconnect : PushData\n");
  s.requestedRelayMode = -1;
  sendReply(clientSocket, "ok\r\n\r\n");
  if (s.dataChannelClientFd > 0) dataChannelNotify("DISCONNECTION_EVENT");
}

void operatingModeActive(int clientSocket) {
  ServiceState& s = serviceState;
  s.disconnectRequested = false;
  if (s.relayActive || s.serialPushActive) {
    Logger::log(LogLevel::kError, "Inventory already in progress\n");
    sendReply(clientSocket, "InventoryAlreadyRunning\r\n\r\n");
    return;
  }
  startInventory(s.readerHandle, nullptr, "");
  sendReply(clientSocket, "ok\r\n\r\n");
}

void serialPortMode(int clientSocket, const std::string& text) {
  ServiceState& s = serviceState;
  s.serialConnectOption = 0;
  s.disconnectRequested = false;
  s.serialReaderPort = kDefaultReaderPort;
  for (const std::vector<long>& fields : parseCommandFields(text)) {
    if (fields.size() > 0) s.serialReaderPort = static_cast<int32_t>(fields[0]);
    if (fields.size() > 1) s.serialConnectOption = static_cast<uint8_t>(fields[1]);
  }
  Logger::log(LogLevel::kInfo, "Starting Serial Port Push Data\n");
  replyToSerialPushStart(clientSocket, startSerialPush(true));
}

// Where every read went, as "key=value" lines.
void statistics(int clientSocket) {
  const std::string text = formatReadCounts(currentReadCounts()) + "\r\n";
  sendReply(clientSocket, text.c_str());
}

}  // namespace

ReadCounts currentReadCounts() {
  ServiceState& s = serviceState;
  ReadCounts c = s.readLedger.snapshot();
  c.spool = s.spool.counts(platform::now());
  return c;
}

void sendReply(int clientSocket, const char* text) {
  send(clientSocket, text, std::strlen(text), MSG_NOSIGNAL);
}

void dispatchCommand(int clientSocket, const char* text) {
  ServiceState& s = serviceState;
  Logger::log(LogLevel::kInfo, "Received Command: %d %s\n", clientSocket, text);
  const std::string command = text;
  const std::string key = commandKey(command);
  if (key == "setup.connection_config") {
    connectionConfig(clientSocket, command);
  } else if (command.compare(0, 18, "getInventoryStatus") == 0) {
    inventoryStatus(clientSocket);
  } else if (command.compare(0, 13, "getStatistics") == 0) {
    statistics(clientSocket);
  } else if (command == "disconnect2\r\n") {
    disconnectSilently();
  } else if (command == "disconnect\r\n") {
    disconnect(clientSocket);
  } else if (command == "setup.operating_mode=standby\r\n") {
    RFID_StopInventory(s.readerHandle);
    sendReply(clientSocket, "ok\r\n\r\n");
  } else if (command == "setup.operating_mode=active\r\n") {
    operatingModeActive(clientSocket);
  } else if (key == "setup.operating_mode_Tagrelay") {
    handleRelayModeCommand(clientSocket, command);
  } else if (key == "setup.set_antenna_config") {
    handleSetAntennaConfig(clientSocket, command);
  } else if (key == "setup.get_antenna_config") {
    handleGetAntennaConfig(clientSocket, command);
  } else if (key == "setup.operating_mode_serialPort") {
    serialPortMode(clientSocket, command);
  } else {
    sendReply(clientSocket, "ok\r\n\r\n");
  }
}

}  // namespace tessera
