// src/reader/reader_connection.h — opening the reader session: connect, register the events the
// event thread handles, and print the reader API's explanation of a failure.
#pragma once

#include <cstdint>

#include "readerapi/rfid_types.h"

namespace tessera {

// Connects to the reader and records its antenna count; 0 or the failing call's status.
[[nodiscard]] uint32_t connectReader(ReaderHandle* handle, const wchar_t* host, uint32_t port,
                                     uint8_t option);
// Registers onReaderEvent for the twelve reader events of readerHandle.
void registerReaderEvents();
// Prints "Error: <description>\n\t<text>\n\t<text>" for a failed call on standard output.
void reportReaderError(ReaderHandle handle, uint32_t status);
// The host the service connects to: 127.0.0.1 on the appliance, --reader-host on a PC.
const wchar_t* readerHost();
// The port for a mode's connection: the mode's port, or --reader-port when given.
uint32_t readerPort(int32_t modePort);

}  // namespace tessera
