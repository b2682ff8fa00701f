#include "reader/prefilters.h"

#include <cstring>

#include "platform/logger.h"
#include "state/service_state.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

bool isHexDigit(char c) { return c != '\0' && std::strchr("0123456789ABCDEFabcdef", c) != nullptr; }

// The pattern part of a filter text: without a leading "*", else without a trailing "*".
std::string filterBody(const std::string& piece, bool* endMatch) {
  if (!piece.empty() && piece.front() == '*') {
    *endMatch = true;
    return piece.substr(1);
  }
  *endMatch = false;
  if (!piece.empty() && piece.back() == '*') return piece.substr(0, piece.size() - 1);
  return piece;
}

// Action codes by singulation, position (first or later) and mode (1 or 2).
uint32_t actionCode(const SingulationControl& singulation, bool first, int32_t mode) {
  const bool mode2 = mode == 2;
  if (!singulation.stateAware) return first ? (mode2 ? 4 : 0) : (mode2 ? 3 : 1);
  if (singulation.inventoryState == 1) return first ? (mode2 ? 0 : 4) : (mode2 ? 1 : 5);
  return first ? (mode2 ? 4 : 0) : (mode2 ? 5 : 1);
}

}  // namespace

std::vector<std::string> splitText(const std::string& text, const std::string& separator) {
  std::vector<std::string> pieces;
  if (separator.empty()) {
    pieces.push_back(text);
    return pieces;
  }
  size_t start = 0;
  for (;;) {
    size_t at = text.find(separator, start);
    if (at == std::string::npos) {
      pieces.push_back(text.substr(start));
      return pieces;
    }
    pieces.push_back(text.substr(start, at - start));
    start = at + separator.size();
  }
}

int32_t hexToBytes(const std::string& hex, std::vector<uint8_t>& out) {
  for (char c : hex) {
    if (!isHexDigit(c)) return -1;
  }
  auto value = [](char c) -> uint8_t {
    if (c <= '9') return static_cast<uint8_t>(c - '0');
    return static_cast<uint8_t>((c | 0x20) - 'a' + 10);
  };
  size_t i = 0;
  // An odd count puts the lone digit in the first byte, as a number conversion would.
  if (hex.size() % 2 == 1) out.push_back(value(hex[i++]));
  for (; i < hex.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(value(hex[i]) << 4 | value(hex[i + 1])));
  }
  return 0;
}

bool isByteStringFilter(const std::string& filter) {
  bool endMatch = false;
  std::string body = filterBody(filter, &endMatch);
  bool ok = body.size() % 2 == 0;
  for (char c : body) ok = ok && isHexDigit(c);
  if (!ok) Logger::log(LogLevel::kError, "Invalid Filter String %s: Expected Byte String\n", body.c_str());
  return ok;
}

PreFilterPlan planPreFilter(const std::string& piece, size_t position, int32_t preFilterMode,
                            const SingulationControl& singulation) {
  PreFilterPlan plan;
  bool endMatch = false;
  std::string body = filterBody(piece, &endMatch);
  if (hexToBytes(body, plan.pattern) != 0) plan.pattern.clear();
  const size_t n = plan.pattern.size();
  PreFilter& r = plan.record;
  r.memoryBank = 1;
  r.patternBitCount = static_cast<uint16_t>(8 * n);
  // An end match longer than a 96-bit EPC cannot be placed; it is anchored at the EPC's start.
  r.bitOffset = static_cast<uint16_t>(endMatch && n <= 12 ? 128 - 8 * n : 32);
  const bool first = position == 0;
  if (singulation.stateAware) {
    r.filterType = PREFILTER_STATE_AWARE;
    r.target = singulation.session + 1;
    r.stateAwareAction = actionCode(singulation, first, preFilterMode);
  } else {
    r.filterType = PREFILTER_STATE_UNAWARE;
    r.stateUnawareAction = actionCode(singulation, first, preFilterMode);
  }
  return plan;
}

int32_t applyPreFilters(ReaderHandle handle) {
  const RelayConfig& config = serviceState.relayConfig;
  RFID_DeletePreFilter(handle, 0, 0);
  if (config.PreFilterMode == 0) return 0;
  if (config.PreFilters[0] == '\0') {
    Logger::log(LogLevel::kError, "Received Empty Filters\n");
    return -1;
  }
  std::vector<std::string> pieces = splitText(config.PreFilters, ",");
  if (pieces.size() > kMaxPreFilterTexts) {
    Logger::log(LogLevel::kError, "Tagrelay support max 2 prefilters\n");
    return -1;
  }
  for (const std::string& piece : pieces) {
    if (!isByteStringFilter(piece)) return -1;
  }
  SingulationControl singulation;
  if (RFID_GetSingulationControl(handle, 1, &singulation) != RFID_API_SUCCESS) {
    singulation = SingulationControl{};
  }
  for (size_t i = 0; i < pieces.size(); ++i) {
    PreFilterPlan plan = planPreFilter(pieces[i], i, config.PreFilterMode, singulation);
    plan.record.pattern = plan.pattern.empty() ? nullptr : plan.pattern.data();
    uint32_t index = 0;
    if (RFID_AddPreFilter(handle, 0, &plan.record, &index) == RFID_API_SUCCESS) {
      Logger::log(LogLevel::kError, "Added prefilter %s at index %u\n", pieces[i].c_str(), index);
    } else {
      Logger::log(LogLevel::kError, "Failed to Add prefilter %s\n", pieces[i].c_str());
    }
  }
  return 0;
}

}  // namespace tessera
