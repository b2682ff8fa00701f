// src/modes/start_results.h — how a request to start a streaming mode ended. The numbers are
// the ones the boot-time start logs; the command channel turns each into its reply.
#pragma once

#include <cstdint>

namespace tessera {

// Outcome of a relay start (relayStart, relayStartOnce) or of the relay command's own refusal.
enum class RelayStartResult : int {
  kStarted = 0,                   // inventory running, worker started
  kNoChannel = -1,                // mode outside the known ones, or the channel failed to set up
  kNotEnabled = -2,               // TagrelayMode is 0
  kReaderUnreachable = -3,        // every attempt failed to connect to the reader
  kModeMismatch = -4,             // the command asked for another channel than the configured one
  kReaderRefused = -5,            // the reader refused the connection (status 101): no retry
  kInventoryControlRefused = -6,  // re-reading the relay section refused its InventoryControl
  kConnectedAlready = -7,         // the command found a reader connection; nothing was started
};

// Outcome of a serial push start (startSerialPush).
enum class SerialPushResult : int32_t {
  kStarted = 0,             // header written, inventory running
  kPortFailed = -1,         // the serial port could not be opened or configured
  kNotPushMode = -2,        // the serial port is not configured for pushing reads
  kConnectedAlready = -3,   // a reader connection exists already
  kReaderUnreachable = -4,  // every attempt failed to connect to the reader
  kHeaderNotWritten = -5,   // every attempt failed to write the header line
};

}  // namespace tessera
