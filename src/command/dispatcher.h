// src/command/dispatcher.h — recognises a command text and answers it on the client's socket.
#pragma once

namespace tessera {

// Handles one zero-terminated command text read from the client socket.
void dispatchCommand(int clientSocket, const char* text);

}  // namespace tessera
