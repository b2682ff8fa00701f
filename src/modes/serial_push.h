// src/modes/serial_push.h — starting the serial push mode: serial port, header line, reader
// connection, session, pre-filters and triggers, then every read goes to the serial line.
#pragma once

#include "modes/start_results.h"

namespace tessera {

// Starts the serial push. reread: read the serial section again and try once (command);
// otherwise try 15 times, 10 s apart (boot).
[[nodiscard]] SerialPushResult startSerialPush(bool reread);

}  // namespace tessera
