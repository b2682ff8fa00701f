#include "command/dispatcher.h"

#include <sys/socket.h>

#include <cstring>

namespace tessera {

void dispatchCommand(int clientSocket, const char* /*text*/) {
  static const char kUnknown[] = "ok\r\n\r\n";
  send(clientSocket, kUnknown, std::strlen(kUnknown), MSG_NOSIGNAL);
}

}  // namespace tessera
