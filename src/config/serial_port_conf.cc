#include "config/serial_port_conf.h"

#include <cstring>

#include "config/inventory_control.h"
#include "platform/logger.h"

namespace tessera {
namespace {

constexpr const char* kSection = "SerialPortConf";
constexpr const char* kNotPresent = "Serial Port configuration not present in the config file\n";

void clearHeader(SerialPortConfig& serial) {
  std::memset(serial.TagMetaString, 0, sizeof serial.TagMetaString);
}

void noteNumber(ConfigNotes* notes, const char* key, long value) {
  if (notes) notes->value(kSection, key, std::to_string(value).c_str());
}

// Reads the keys of the section line after its name.
void readSection(Tokens& tokens, SerialPortConfig& serial, InventoryControlConfig& inventory,
                 ConfigNotes* notes) {
  while (char* key = tokens.next(kDelimWithSlash)) {
    // IsAutostart's value may be followed directly by the "/>" that closes the element.
    const char* delimiters = std::strcmp(key, "IsAutostart") == 0 ? kDelimNoSlash : kDelimWithSlash;
    bool known = std::strcmp(key, "Mode") == 0 || std::strcmp(key, "Baudrate") == 0 ||
                 std::strcmp(key, "Databits") == 0 || std::strcmp(key, "Parity") == 0 ||
                 std::strcmp(key, "Stopbits") == 0 || std::strcmp(key, "Flowcontrol") == 0 ||
                 std::strcmp(key, "TagMetaData") == 0 ||
                 std::strcmp(key, "InventoryControl") == 0 || std::strcmp(key, "IsAutostart") == 0;
    if (!known) {
      Logger::log(LogLevel::kInfo, "Unknown argument in SerialPortConf - %s", key);
      if (notes) notes->unknownToken(kSection, key);
      continue;
    }
    char* token = tokens.next(delimiters);
    if (token == nullptr) return;  // a key without a value ends the section
    if (std::strcmp(key, "Mode") == 0) {
      // Mode drops only its opening quote; strtol stops at the closing one.
      serial.Mode = static_cast<int32_t>(decimal(token + 1));
      noteNumber(notes, key, serial.Mode);
      continue;
    }
    char* value = unquote(token);
    if (std::strcmp(key, "Baudrate") == 0) {
      serial.Baudrate = static_cast<int32_t>(decimal(value));
      noteNumber(notes, key, serial.Baudrate);
    } else if (std::strcmp(key, "Databits") == 0) {
      serial.Databits = static_cast<int32_t>(decimal(value));
      noteNumber(notes, key, serial.Databits);
    } else if (std::strcmp(key, "Parity") == 0) {
      storeText(serial.Parity, value, kSection, key, notes);
    } else if (std::strcmp(key, "Stopbits") == 0) {
      serial.Stopbits = static_cast<int32_t>(decimal(value));
      noteNumber(notes, key, serial.Stopbits);
    } else if (std::strcmp(key, "Flowcontrol") == 0) {
      storeText(serial.Flowcontrol, value, kSection, key, notes);
    } else if (std::strcmp(key, "TagMetaData") == 0) {
      serial.TagMetaData = static_cast<int32_t>(decimal(value));
      noteNumber(notes, key, serial.TagMetaData);
    } else if (std::strcmp(key, "InventoryControl") == 0) {
      const char* failure = nullptr;
      if (parseInventoryControl(inventory, value, &failure) != 0) {
        Logger::log(LogLevel::kInfo, "SerialPortConf: Unable to process InventoryControl.\n");
        if (notes) {
          notes->value(kSection, key, value);
          notes->refused(kSection, key, value, failure);
        }
      } else if (notes) {
        notes->value(kSection, key, value);
      }
    } else {  // IsAutostart
      serial.IsAutostart = decimal(value) != 0;
      noteNumber(notes, key, serial.IsAutostart ? 1 : 0);
    }
  }
}

}  // namespace

void buildTagMetaString(SerialPortConfig& serial) {
  static constexpr const char* kColumns[8] = {
      "EPC,", "PC,", "AntennaID,", "RSSI,", "SeenCount,", "TimeStamp,", "Phase,", "ChannelIndex,"};
  std::string header;
  if (serial.TagMetaData == 0) {
    header = "EPC,PC,AntennaID,RSSI,SeenCount,";
  } else {
    for (int bit = 0; bit < 8; ++bit) {
      if (serial.TagMetaData & (1 << bit)) header += kColumns[bit];
    }
  }
  header += "<CRC>\r\n";
  (void)copyBounded(serial.TagMetaString, sizeof serial.TagMetaString, header.c_str());
}

void readSerialPortConf(SerialPortConfig& serial, InventoryControlConfig& inventory,
                        ConfigNotes* notes) {
  serial.IsAutostart = false;
  char line[256];
  ConfigLines lines(line, sizeof line);
  if (!lines.opened()) {
    clearHeader(serial);
    Logger::log(LogLevel::kInfo, "%s", kNotPresent);
    return;
  }
  if (notes) notes->fileOpened = true;
  bool found = false;
  while (!found && lines.next()) {
    Tokens tokens(line);
    const char* first = tokens.next(kDelimWithSlash);
    if (first == nullptr || std::strcmp(first, kSection) != 0) continue;
    found = true;
    if (notes) notes->sections.push_back(kSection);
    readSection(tokens, serial, inventory, notes);
  }
  clearHeader(serial);
  if (!found) {
    Logger::log(LogLevel::kInfo, "%s", kNotPresent);
    return;
  }
  buildTagMetaString(serial);
  Logger::log(LogLevel::kInfo, "Serial Port Config - Parsed values %d, %d, %d, %s, %d, %s %d", serial.Mode,
              serial.Baudrate, serial.Databits, serial.Parity, serial.Stopbits, serial.Flowcontrol,
              serial.TagMetaData);
  Logger::log(LogLevel::kInfo, "TagMetaString -- %s\n", serial.TagMetaString);
}

}  // namespace tessera
