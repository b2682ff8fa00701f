// src/app/startup.h — process start-up: inherited descriptors, signal actions, the long-lived
// threads and the uevent socket, then the command server.
#pragma once

namespace tessera {

// Closes descriptors 3..33, stopping at the first that is not open; how many were closed.
int closeInheritedDescriptors();
// Installs onTerminationSignal for SIGINT and SIGTERM (one-shot, all signals blocked while it runs).
void installSignalActions();
// Opens the kernel uevent socket bound to our process id; the descriptor or -1.
int openUeventSocket();
// Starts the threads, the uevent socket and the boot-time start, then serves commands until a
// termination signal; returns when the command loop ends.
void startService();

}  // namespace tessera
