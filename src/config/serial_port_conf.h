// src/config/serial_port_conf.h — the SerialPortConf section: line parameters, push mode,
// autostart, the serial record's TagMetaData and the CSV header built from it.
#pragma once

#include "config/config_records.h"
#include "config/config_scan.h"

namespace tessera {

// Reads the section into `serial` (and its InventoryControl into `inventory`), rebuilds the
// header and logs the values; a missing file or section leaves an empty header and is logged.
void readSerialPortConf(SerialPortConfig& serial, InventoryControlConfig& inventory,
                        ConfigNotes* notes = nullptr);

// Rebuilds serial.TagMetaString from serial.TagMetaData: the column names of the selected
// fields (or the five default ones), then "<CRC>\r\n".
void buildTagMetaString(SerialPortConfig& serial);

}  // namespace tessera
