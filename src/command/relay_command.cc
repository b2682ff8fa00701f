#include "command/relay_command.h"

#include <sys/socket.h>

#include <cstring>

#include "command/command_fields.h"
#include "command/dispatcher.h"
#include "state/console.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "modes/relay.h"

namespace tessera {
void handleRelayModeCommand(int clientSocket, const std::string& text) {
  ServiceState& s = serviceState;
  s.relayReaderPort = 5084;
  s.relayConnectOption = 0;
  consolePrint(L"setup.operating_mode_Tagrelay\n");
  s.disconnectRequested = false;
  for (const std::vector<long>& fields : parseCommandFields(text)) {
    if (fields.size() > 0) s.relayReaderPort = static_cast<int32_t>(fields[0]);
    if (fields.size() > 1) s.relayConnectOption = static_cast<uint8_t>(fields[1]);
    if (fields.size() > 2) s.requestedRelayMode = static_cast<int32_t>(fields[2]);
  }
  Logger::log(LogLevel::kInfo, "Starting Tagrelay\n");
  if (s.readerHandle != 0) {
    Logger::log(LogLevel::kInfo, "Tagrelay: RFID handle already exist.\n");
    sendReply(clientSocket, "httppoststart:2\r\n\r\n");
    return;
  }
  switch (relayStart(true)) {
    case 0:
      sendReply(clientSocket, "httppoststart:0\r\n\r\n");
      break;
    case -2:
      consolePrint(L"Tagrelay is not configured\n");
      sendReply(clientSocket, "httppoststart:1\r\n\r\n");
      break;
    case -4:
      consolePrint(L"Tagrelay: Requested mode does not match with Configured mode\n");
      sendReply(clientSocket, "httppoststart:3\r\n\r\n");
      break;
    case -3:
    case -5:
      consolePrint(L"Tagrelay: Unable to establish connection to the reader\n");
      sendReply(clientSocket, "Unable to establish connection to the reader\r\n\r\n");
      break;
    default:
      consolePrint(L"Tagrelay: Unknown Error \n");
      sendReply(clientSocket, "httppoststart:1\r\n\r\n");
      break;
  }
}

}  // namespace tessera
