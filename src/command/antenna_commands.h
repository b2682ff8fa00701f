// src/command/antenna_commands.h — setting and reporting the antennas' transmit power; the
// results go to the data channel's client.
#pragma once

#include <string>

namespace tessera {

// "setup.set_antenna_config=...": sets (and optionally persists) transmit powers.
void handleSetAntennaConfig(int clientSocket, const std::string& text);
// "setup.get_antenna_config=...": reports transmit powers or the reader's power table.
void handleGetAntennaConfig(int clientSocket, const std::string& text);

}  // namespace tessera
