#include "command/relay_command.h"

#include <sys/socket.h>

namespace tessera {

// The relay mode is recognised but cannot start yet: it answers like an unknown command.
void handleRelayModeCommand(int clientSocket, const std::string&) {
  send(clientSocket, "ok\r\n\r\n", 6, MSG_NOSIGNAL);
}

}  // namespace tessera
