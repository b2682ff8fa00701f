// src/command/relay_command.h — "setup.operating_mode_Tagrelay=...": starts the relay mode.
#pragma once

#include <string>

namespace tessera {

// Stores the reader port, option and requested relay mode, starts the relay and replies
// "httppoststart:N".
void handleRelayModeCommand(int clientSocket, const std::string& text);

}  // namespace tessera
