// src/output/serial_port.h — the appliance's serial line, opened for the serial push mode.
// The handle lives in serviceState.serialPortDescriptor (-1 while closed): the main
// thread opens and closes the port, the event thread writes tag records to it.
#pragma once

#include "rs232/rs232.h"

namespace tessera {

struct SerialPortConfig;

// Opens the configured device and sets its line parameters; 0 or -1.
[[nodiscard]] int serialOpen();
// Writes a NUL-terminated text; the transmit queue fill level in bytes, or -1.
[[nodiscard]] int serialWrite(const char* text);
// Closes the port if it is open; always 0.
int serialClose();
// The line parameters of the configuration, as the serial port library takes them.
SerialSettings serialSettingsOf(const SerialPortConfig& config);

}  // namespace tessera
