#include "command/antenna_commands.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "command/command_fields.h"
#include "command/dispatcher.h"
#include "state/console.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "output/data_channel.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

constexpr size_t kSetResultSize = 256;
constexpr size_t kGetResultSize = 1536;

struct AntennaSetting {
  uint8_t antennaId = 0;
  uint8_t persist = 0;
  uint16_t powerIndex = 0;
};

// Appends a formatted piece only when all of it fits, so that a long report ends with whole
// entries instead of a cut number.
void appendPiece(char* text, size_t capacity, const char* format, ...) {
  size_t used = std::strlen(text);
  char piece[64];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(piece, sizeof piece, format, args);
  va_end(args);
  if (n < 0 || static_cast<size_t>(n) >= sizeof piece || used + n + 1 > capacity) return;
  std::memcpy(text + used, piece, static_cast<size_t>(n) + 1);
}

void setText(char* text, size_t capacity, const char* format, uint32_t status) {
  std::snprintf(text, capacity, format, status);
}

void sendResult(const char* text) {
  if (serviceState.dataChannelClientFd > 0) dataChannelWrite(text, std::strlen(text));
}

bool readAntenna(uint16_t antennaId, uint16_t* first, uint16_t* power, uint16_t* third,
                 uint32_t* status) {
  *status = RFID_GetAntennaConfig(serviceState.readerHandle, antennaId, first, power, third);
  return *status == RFID_API_SUCCESS;
}

}  // namespace

void handleSetAntennaConfig(int clientSocket, const std::string& command) {
  ServiceState& s = serviceState;
  sendReply(clientSocket, "ok\r\n\r\n");
  std::vector<AntennaSetting> entries;
  AntennaSetting current;
  for (const std::vector<long>& fields : parseCommandFields(command)) {
    if (fields.size() > 0) current.antennaId = static_cast<uint8_t>(fields[0]);
    if (fields.size() > 1) current.powerIndex = static_cast<uint16_t>(fields[1]);
    if (fields.size() > 2) current.persist = static_cast<uint8_t>(fields[2]);
    entries.push_back(current);
  }
  if (!entries.empty()) entries.erase(entries.begin());

  char text[kSetResultSize] = {};
  const size_t count = entries.size();
  bool saveWanted = false;
  for (size_t n = 1; n <= count; ++n) {
    const AntennaSetting& entry = entries[n - 1];
    if (entry.antennaId == 0) continue;
    uint16_t first = 0, power = 0, third = 0;
    uint32_t status;
    if (!readAntenna(entry.antennaId, &first, &power, &third, &status)) {
      consolePrint(L"\n Antenna Configuration NOT set...%d %d\n", status, entry.antennaId);
      setText(text, sizeof text, "SetAntennaInfo:Error RFID_GetAntennaConfig Failed%2d", status);
      break;
    }
    status = RFID_SetAntennaConfig(s.readerHandle, entry.antennaId, first, entry.powerIndex, third);
    if (status != RFID_API_SUCCESS) {
      consolePrint(L"\n Antenna Configuration NOT set...%d %d\n", status, entry.antennaId);
      setText(text, sizeof text, "SetAntennaInfo:Error RFID_SetAntennaConfig Failed%2d", status);
      break;
    }
    if (n < count && entry.persist != 0) saveWanted = true;
    if (n == count) {
      bool saved = false;
      uint32_t saveStatus = RFID_API_SUCCESS;
      if (entry.persist != 0) {
        saveStatus = RFID_SaveLlrpConfig(s.readerHandle, nullptr);
        saved = true;
        Logger::log(LogLevel::kInfo, "Antenna %d Configuration Persisted\n", entry.antennaId);
      } else if (saveWanted) {
        saveStatus = RFID_SaveLlrpConfig(s.readerHandle, nullptr);
        saved = true;
        Logger::log(LogLevel::kInfo, "Last Antenna %d Configuration Persisted\n", entry.antennaId);
      }
      std::snprintf(text, sizeof text, "%s",
                    saved && saveStatus != RFID_API_SUCCESS
                        ? "SetAntennaInfo:Error RFID_SaveLlrpConfig Failed"
                        : "SetAntennaInfo:Success ");
    }
  }

  for (uint32_t i = 1; i <= s.antennaCount; ++i) {
    uint16_t first = 0, power = 0, third = 0;
    uint32_t status;
    if (!readAntenna(static_cast<uint16_t>(i), &first, &power, &third, &status)) {
      consolePrint(L"\n Antenna Configuration NOT set...%d %d\n", status, i);
      setText(text, sizeof text, "SetAntennaInfo:Error RFID_GetAntennaConfig Failed%2d", status);
      break;
    }
    consolePrint(L"\n Antenna %d %d\r\n", i, power);
    appendPiece(text, sizeof text, "%1d %2d,", i, power);
  }
  sendResult(text);
}

void handleGetAntennaConfig(int clientSocket, const std::string& command) {
  ServiceState& s = serviceState;
  sendReply(clientSocket, "ok\r\n\r\n");
  char text[kGetResultSize] = {};
  if (command == "setup.get_antenna_config=Init") {
    std::snprintf(text, sizeof text, "AntennaInitData:%2d,", s.antennaCount);
    ReaderCaps caps;
    if (RFID_GetReaderCapsW(s.readerHandle, &caps) == RFID_API_SUCCESS) {
      for (uint16_t i = 0; i < caps.numTransmitPowerLevels && i < kMaxPowerLevels; ++i) {
        appendPiece(text, sizeof text, " %.1f",
                    static_cast<double>(static_cast<float>(caps.transmitPowerLevels[i]) / 100.0f));
      }
    } else {
      std::snprintf(text, sizeof text, "%s", "Error: AntennaInitData: Get Failed!!!!");
      consolePrint(L"\n Antenna Power set Failed\n");
    }
    sendResult(text);
    return;
  }
  std::snprintf(text, sizeof text, "%s", "AntennaData:");
  bool failed = false;
  for (uint32_t i = 1; i <= s.antennaCount; ++i) {
    uint16_t first = 0, power = 0, third = 0;
    uint32_t status;
    if (!readAntenna(static_cast<uint16_t>(i), &first, &power, &third, &status)) {
      failed = true;
      continue;
    }
    appendPiece(text, sizeof text, "%1d %2d,", i, power);
  }
  if (failed) {
    consolePrint(L"\n Antenna Power set Failed\n");
    sendResult("Error: AntennaData: Get Failed!!!!");
    return;
  }
  sendResult(text);
}

}  // namespace tessera
