// src/app/signals.h — SIGINT/SIGTERM: the handler only records the signal and wakes the command
// loop, which then ends so that the cleanup runs on the main thread in its fixed order.
#pragma once

namespace tessera {

// Installs onTerminationSignal for SIGINT and SIGTERM: one-shot, all signals blocked while it
// runs.
void installSignalActions();
// Creates the pipe through which the handler wakes the command loop; 0 or -1.
[[nodiscard]] int openSignalPipe();
// Signal handler: records the signal and writes one byte to the pipe (async-signal-safe).
void onTerminationSignal(int signal);

}  // namespace tessera
