#include "config/inventory_control.h"

#include <cstdlib>
#include <cstring>

#include "config/config_scan.h"
#include "platform/logger.h"

namespace tessera {
namespace {

bool startsWith(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// Cuts the text at its last comma; the part after it, or nullptr when there is no comma.
char* takeLastField(char* text) {
  char* comma = std::strrchr(text, ',');
  if (comma == nullptr) return nullptr;
  *comma = '\0';
  return comma + 1;
}

int fail(const char* message, const char** failure) {
  Logger::log(LogLevel::kError, "%s", message);
  if (failure) *failure = message;
  return -1;
}

constexpr const char* kIncorrect = "Incorrect Inventory Control parameters\n";

}  // namespace

int parseInventoryControl(InventoryControlConfig& config, const char* text, const char** failure) {
  char work[1024];
  (void)copyBounded(work, sizeof work, text);
  config.StartDelay = 0;
  config.TriggerRecord = TriggerRecord{};
  TriggerRecord& record = config.TriggerRecord;

  char* number = takeLastField(work);
  if (number == nullptr) return fail(kIncorrect, failure);
  record.valueBlock = TriggerValueBlock{};
  record.valueBlock.value = static_cast<uint32_t>(decimal(number));
  record.hasValueBlock = true;

  char* stop = takeLastField(work);
  if (stop == nullptr) return fail(kIncorrect, failure);
  if (startsWith(stop, "TAG")) {
    if (stop[3] != ':') return fail("TAG value not found in Stop Trigger\n", failure);
    record.stop.type = StopTriggerType::TagCount;
    record.stop.tagCount = static_cast<uint16_t>(decimal(stop + 4));
    record.stop.timeoutMs = 0;
  } else if (startsWith(stop, "Delay")) {
    if (stop[5] != ':') return fail("Delay value not found in Stop Trigger\n", failure);
    record.stop.type = StopTriggerType::Duration;
    record.stop.durationMs = static_cast<uint32_t>(decimal(stop + 6));
  } else if (startsWith(stop, "GPI")) {
    if (stop[3] != ':') return fail("GPI value not found in Stop Trigger\n", failure);
    record.stop.type = StopTriggerType::Gpi;
    record.stop.gpiPort = static_cast<uint16_t>(decimal(stop + 4));
    record.stop.gpiEvent = false;
    record.stop.timeoutMs = 0;
  } else if (startsWith(stop, "Round")) {
    if (stop[5] != ':') return fail("Round value not found in Stop Trigger\n", failure);
    record.stop.type = StopTriggerType::RoundCount;
    record.stop.roundCount = static_cast<uint16_t>(decimal(stop + 6));
    record.stop.timeoutMs = 0;
  } else {
    return fail("Invalid Stop Trigger Type.\n", failure);
  }

  char* start = takeLastField(work);
  if (start == nullptr) return fail(kIncorrect, failure);
  if (startsWith(start, "Periodic")) {
    if (start[8] != ':') return fail("Periodic value not found in Start Trigger\n", failure);
    record.start.type = StartTriggerType::Periodic;
    record.start.periodMs = static_cast<uint32_t>(decimal(start + 9));
  } else if (std::strcmp(start, "Immediate") == 0) {
    record.start.type = StartTriggerType::Immediate;
  } else if (startsWith(start, "Delay")) {
    if (start[5] != ':') return fail("Delay value not found in Start Trigger\n", failure);
    record.start.type = StartTriggerType::Immediate;
    config.StartDelay = static_cast<uint32_t>(decimal(start + 6));
  } else if (startsWith(start, "GPI")) {
    if (start[3] != ':') return fail("GPI value not found in Start Trigger\n", failure);
    record.start.type = StartTriggerType::Gpi;
    record.start.gpiPort = static_cast<uint16_t>(decimal(start + 4));
    record.start.gpiEvent = false;
    record.start.gpiTimeoutMs = 0;
  } else {
    return fail("Invalid Start Trigger Type.\n", failure);
  }

  if (std::strchr(work, ',') != nullptr) return fail(kIncorrect, failure);
  static constexpr const char* kSessions[] = {"S0", "S1", "S2", "S3"};
  for (int32_t session = 0; session < 4; ++session) {
    if (std::strcmp(work, kSessions[session]) == 0) {
      config.Session = session;
      return 0;
    }
  }
  return fail("Invalid Session Type.\n", failure);
}

}  // namespace tessera
