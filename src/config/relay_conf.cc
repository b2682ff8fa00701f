#include "config/relay_conf.h"

#include <cstring>
#include <string>

#include "config/inventory_control.h"
#include "platform/logger.h"

namespace tessera {
namespace {

enum class LineResult { kDone, kRelayOff };

void noteNumber(ConfigNotes* notes, const char* section, const char* key, long value) {
  if (notes) notes->value(section, key, std::to_string(value).c_str());
}

// A list value that does not fit is refused rather than cut: a cut list would mean something else.
bool storeList(char (&field)[256], const char* value, const char* section, const char* key,
               ConfigNotes* notes) {
  if (std::strlen(value) >= sizeof field) {
    Logger::log(LogLevel::kInfo, "%s: value of %s longer than %zu characters refused\n", section, key,
                sizeof field - 1);
    if (notes) notes->refused(section, key, value, "longer than 255 characters");
    field[0] = '\0';
    return false;
  }
  (void)copyBounded(field, sizeof field, value);
  if (notes) notes->value(section, key, field);
  return true;
}

// Reads the keys of the relay section line after its name; RelayOff when the mode is 0.
LineResult readSection(Tokens& tokens, const char* section, RelayConfig& relay,
                       InventoryControlConfig& inventory, int32_t& result, ConfigNotes* notes) {
  while (char* key = tokens.next(kDelimWithSlash)) {
    auto is = [key](const char* name) { return std::strcmp(key, name) == 0; };
    bool known = is("TagrelayMode") || is("EasyTagrelayMode") || is("TagMetaData") ||
                 is("InventoryControl") || is("HeartBeatPeriod") || is("IsAutostart") ||
                 is("PreFilterMode") || is("PreFilters");
    if (!known) {
      if (notes) notes->unknownToken(section, key);
      continue;
    }
    // These two values may be followed directly by the "/>" that closes the element.
    const char* delimiters =
        is("IsAutostart") || is("PreFilterMode") ? kDelimNoSlash : kDelimWithSlash;
    char* token = tokens.next(delimiters);
    if (token == nullptr) break;
    char* value = unquote(token);
    if (is("TagrelayMode") || is("EasyTagrelayMode")) {
      relay.relayMode = static_cast<int32_t>(decimal(value));
      noteNumber(notes, section, key, relay.relayMode);
      if (relay.relayMode == 0) return LineResult::kRelayOff;
    } else if (is("TagMetaData")) {
      relay.TagMetaData = static_cast<int32_t>(decimal(value));
      noteNumber(notes, section, key, relay.TagMetaData);
    } else if (is("InventoryControl")) {
      if (!storeList(relay.InventoryControl, value, section, key, notes)) {
        Logger::log(LogLevel::kInfo, "Tagrelay: Unable to process InventoryControl.\n");
        result = -1;
        continue;
      }
      const char* failure = nullptr;
      if (parseInventoryControl(inventory, relay.InventoryControl, &failure) != 0) {
        Logger::log(LogLevel::kInfo, "Tagrelay: Unable to process InventoryControl.\n");
        if (notes) notes->refused(section, key, relay.InventoryControl, failure);
        result = -1;
      }
    } else if (is("HeartBeatPeriod")) {
      relay.HeartBeatPeriod = static_cast<int32_t>(decimal(value));
      noteNumber(notes, section, key, relay.HeartBeatPeriod);
    } else if (is("IsAutostart")) {
      relay.IsAutostart = decimal(value) != 0;
      noteNumber(notes, section, key, relay.IsAutostart ? 1 : 0);
    } else if (is("PreFilterMode")) {
      long mode = decimal(value);
      relay.PreFilterMode = mode == 1 || mode == 2 ? static_cast<int32_t>(mode) : 0;
      noteNumber(notes, section, key, relay.PreFilterMode);
    } else {  // PreFilters
      (void)storeList(relay.PreFilters, value, section, key, notes);
    }
  }
  return LineResult::kDone;
}

// Reads one AntennaConfig line into `entry`, which keeps the values of the previous line.
void readAntenna(Tokens& tokens, AntennaEntry& entry, size_t index, ConfigNotes* notes) {
  std::string section = "AntennaConfig #" + std::to_string(index + 1);
  while (char* key = tokens.next(kDelimWithSlash)) {
    bool id = std::strcmp(key, "AntennaId") == 0;
    bool power = std::strcmp(key, "AntennaTxPower") == 0;
    if (!id && !power) {
      if (notes) notes->unknownToken(section.c_str(), key);
      continue;
    }
    char* token = tokens.next(kDelimWithSlash);
    if (token == nullptr) break;
    long number = decimal(unquote(token));
    if (id) {
      entry.AntennaId = static_cast<uint8_t>(number);
      noteNumber(notes, section.c_str(), key, entry.AntennaId);
    } else {
      entry.TxPower = static_cast<uint16_t>(number);
      noteNumber(notes, section.c_str(), key, entry.TxPower);
    }
  }
}

}  // namespace

int32_t readRelayConfig(RelayConfig& relay, InventoryControlConfig& inventory, ConfigNotes* notes) {
  relay.Antennas.clear();
  relay.HeartbeatEnabled = false;
  relay.IsAutostart = false;
  relay.PreFilterMode = 0;
  int32_t result = 0;
  char line[1024];
  {
    ConfigLines lines(line, sizeof line);
    if (lines.opened()) {
      if (notes) notes->fileOpened = true;
      bool sectionRead = false;
      AntennaEntry antenna;  // a key an antenna line leaves out keeps the previous line's value
      while (lines.next()) {
        Tokens tokens(line);
        const char* first = tokens.next(kDelimWithSlash);
        if (first == nullptr) continue;
        bool relayLine = std::strcmp(first, "TagrelayConfig") == 0 ||
                         std::strcmp(first, "EasyTagrelayConfig") == 0;
        if (relayLine && !sectionRead) {
          sectionRead = true;
          if (notes) notes->sections.push_back(first);
          std::string section = first;
          if (readSection(tokens, section.c_str(), relay, inventory, result, notes) ==
              LineResult::kRelayOff) {
            return 0;
          }
        } else if (std::strcmp(first, "AntennaConfig") == 0) {
          readAntenna(tokens, antenna, relay.Antennas.size(), notes);
          relay.Antennas.push_back(antenna);
        }
      }
    }
  }
  relay.HeartbeatEnabled = relay.HeartBeatPeriod != 0;
  return result;
}

}  // namespace tessera
