// src/modes/relay.h — the relay mode: start, worker and stop.
#pragma once

namespace tessera {

// Stops the relay worker and releases the relay's output channels; 0.
int relayStop();

}  // namespace tessera
