// src/command/command_server.h — the command channel on 127.0.0.1:50017: up to 30 clients, one
// read is one command; the same loop notices block devices being removed.
#pragma once

namespace tessera {

// Sets up the listener and serves clients until a termination signal arrives; exits the process
// with status 1 when the listener cannot be set up or accept fails.
void runCommandServer();
// Reads one kernel uevent and unmounts the USB drive when a block device went away.
void handleUevent();

}  // namespace tessera
