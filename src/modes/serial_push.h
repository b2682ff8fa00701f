// src/modes/serial_push.h — starting the serial push mode: serial port, header line, reader
// connection, session, pre-filters and triggers, then every read goes to the serial line.
#pragma once

#include <cstdint>

namespace tessera {

// Starts the serial push; 0, or -1 port, -2 not push mode, -3 connected already, -4 reader
// unreachable, -5 header not written. reread: read the serial section again and try once
// (command); otherwise try 15 times, 10 s apart (boot).
[[nodiscard]] int32_t startSerialPush(bool reread);

}  // namespace tessera
