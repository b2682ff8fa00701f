// src/app/signals.h — SIGINT/SIGTERM: the handler only records the signal and wakes the command
// loop; the cleanup then runs on the main thread in its fixed order.
#pragma once

namespace tessera {

// Creates the pipe through which the handler wakes the command loop; 0 or -1.
[[nodiscard]] int openSignalPipe();
// Signal handler: records the signal and writes one byte to the pipe (async-signal-safe).
void onTerminationSignal(int signal);
// Stops the threads, the relay and the channels, in order; runs on the main thread.
void cleanupService();

}  // namespace tessera
