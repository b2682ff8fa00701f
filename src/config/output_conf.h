// src/config/output_conf.h — the two small sections of the relay outputs: TCPIPConfig (the port
// of the TCP/IP output server) and TagrelayDataFormat (the text shape of the relay records).
#pragma once

#include <cstdint>

#include "config/config_records.h"
#include "config/config_scan.h"

namespace tessera {

// Sets format.Format to "JSON", then reads TCPIPConfig into `tcp`: 1 read, 0 no file,
// -1 no section (logged).
[[nodiscard]] int32_t readTcpIpConfig(TcpIpConfig& tcp, DataFormatConfig& format,
                                      ConfigNotes* notes = nullptr);

// Clears delimiter, line ending, prefix and suffix, then reads TagrelayDataFormat into `format`:
// 1 read, 0 no file, -1 no section (logged).
[[nodiscard]] int32_t readDataFormatConfig(DataFormatConfig& format, ConfigNotes* notes = nullptr);

}  // namespace tessera
