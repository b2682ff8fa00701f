#include "command/relay_command.h"

#include "command/command_fields.h"
#include "command/start_replies.h"
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
  // A connection in place belongs to another use; a start would take it over.
  const RelayStartResult result =
      s.readerHandle != 0 ? RelayStartResult::kConnectedAlready : relayStart(true);
  replyToRelayStart(clientSocket, result);
}

}  // namespace tessera
