// src/modes/relay.h — the relay mode: start (output channel, reader, inventory, worker), the
// worker "easyTagrelay" that batches records and delivers them, and stop.
#pragma once

#include <cstdint>

#include "modes/start_results.h"
#include "state/service_state.h"

namespace tessera {

// Attempts to start the relay before giving up, and the pause between them.
inline constexpr int kRelayStartAttempts = 15;
inline constexpr double kRelayRetrySeconds = 10.0;

// Starts the relay mode: every outcome but kConnectedAlready. reread: read the relay section
// again first (command); otherwise its values at hand are used (boot).
[[nodiscard]] RelayStartResult relayStart(bool reread);
// One attempt: output channel, reader connection and settings, inventory; kStarted, kNoChannel,
// kReaderUnreachable or kReaderRefused.
[[nodiscard]] RelayStartResult relayStartOnce();
// Thread entry of "easyTagrelay", given the ServiceState whose relay it serves.
void* relayWorker(void* state);
// Stops the relay worker and releases the relay's output channels; safe when none runs.
void relayStop();

// Empties the batch and, for HTTP POST and TCP/IP, opens it with the JSON report opening (and
// the batch number, with the spool).
void openRelayBatch();
// Whether the outage spool serves this relay: --spool is given and the channel is HTTP POST,
// TCP/IP or MQTT (USB drive and HID are local).
bool spoolApplies(const ServiceState& s);
// Tells the worker to stop, wakes it and joins it; nothing when none was started. wakeAccept also
// shuts the TCP/IP listener down, which ends a wait in accept and leaves the listener unusable.
void joinRelayWorker(bool wakeAccept);
// Opens the outage spool of --spool; the reads an earlier run left in it count as taken. False
// (logged) when the folder cannot be used.
[[nodiscard]] bool openSpool(ServiceState& s);
// Drops, and counts as discarded, every relay record not yet delivered: pending, batch and the
// TCP/IP report in flight.
void discardRelayHoldings();

}  // namespace tessera
