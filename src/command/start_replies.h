// src/command/start_replies.h — what a command client is told when it asked for a streaming mode:
// the trace or log line and the reply texts for every way a start can end, kept in one table per
// mode.
#pragma once

#include "modes/start_results.h"

namespace tessera {

// Traces the relay start's outcome and replies "httppoststart:N" or the reader failure text.
void replyToRelayStart(int clientSocket, RelayStartResult result);
// Traces the serial push start's outcome and replies "PushDataStart:N" (for an unreachable
// reader, followed by the reader failure text).
void replyToSerialPushStart(int clientSocket, SerialPushResult result);

}  // namespace tessera
