// src/command/dispatcher.h — recognises a command text and answers it on the client's socket.
#pragma once

#include "state/read_ledger.h"

namespace tessera {

// The reply to every command whose reader connection failed.
inline constexpr const char* kReaderUnreachableReply =
    "Unable to establish connection to the reader\r\n\r\n";

// Where every read went, with the outage spool's counts: what getStatistics answers and the
// stop logs.
ReadCounts currentReadCounts();
// Sends a reply text (without its terminating zero) to a command client; the result is not examined.
void sendReply(int clientSocket, const char* text);
// Handles one zero-terminated command text read from the client socket.
void dispatchCommand(int clientSocket, const char* text);

}  // namespace tessera
