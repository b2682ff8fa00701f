// src/app/startup.h — the service's start-up and its cleanup, each written out step by step in
// its order; main runs the command loop between the two.
#pragma once

namespace tessera {

// Every start-up step in order: signal handling, inherited descriptors, the serial section,
// the spool, the event and data channel threads, the uevent socket and the boot-time start.
void startService();
// Every cleanup step in order, once the command loop ended on a termination signal: the event
// thread, the relay, the spool, the command and data channels, and the Logger last.
void cleanupService();

}  // namespace tessera
