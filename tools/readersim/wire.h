// tools/readersim/wire.h — encoding messages for the socket and the simulator's stderr log.
#pragma once

#include <cstdint>
#include <vector>

#include "llrp/records.h"

namespace tessera::readersim {

// One line "readersim: ..." on stderr.
void logLine(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The frame of a message; with verbose, logs "-> <describe>". Empty when the codec refused it
// (logged: a bug of the simulator).
std::vector<uint8_t> encodeMessage(const llrp::Message& message, bool verbose);
// Logs "<- <describe>" of a received message when verbose.
void logReceived(const llrp::Message& message, bool verbose);

}  // namespace tessera::readersim
