// tools/readersim/model.h — the simulator's own view of the reader configuration and of
// ROSpecs, independent of the wire encoding (llrp_bridge converts both ways).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tessera::readersim {

// C1G2TagInventoryMask plus the action of the filter that carries it.
struct TagFilter {
  uint8_t truncate = 0;           // C1G2Filter T (kept, not acted upon)
  uint8_t memoryBank = 1;         // MB
  uint16_t pointer = 0;           // bit address in the bank
  std::vector<uint8_t> mask;      // mask bits, MSB first
  uint16_t maskBits = 0;          // number of valid bits in mask
  bool hasStateAware = false;     // C1G2TagInventoryStateAwareFilterAction present
  uint8_t target = 0;             // state-aware target: 0 SL, 1..4 inventoried S0..S3
  uint8_t stateAwareAction = 0;   // 0..7
  bool hasStateUnaware = false;   // C1G2TagInventoryStateUnawareFilterAction present
  uint8_t stateUnawareAction = 0; // 0..5
};

// C1G2InventoryCommand of one antenna.
struct InventoryCommand {
  bool present = false;           // an InventoryCommand was ever given for the antenna
  bool stateAware = false;        // TagInventoryStateAware
  std::vector<TagFilter> filters;
  bool hasRfControl = false;
  uint16_t modeIndex = 0;
  uint16_t tari = 0;
  bool hasSingulation = false;
  uint8_t session = 0;
  uint16_t tagPopulation = 32;
  uint32_t tagTransitTime = 0;
  bool hasSingulationAction = false;
  uint8_t stateI = 0;             // 0 A, 1 B
  uint8_t stateS = 0;             // 0 SL, 1 not SL
};

struct AntennaSettings {
  uint16_t id = 0;
  uint16_t receiverSensitivity = 1;  // index into the sensitivity table
  uint16_t hopTableId = 1;
  uint16_t channelIndex = 1;         // kept; reads follow the hop table
  uint16_t transmitPower = 1;        // index into the power table
  InventoryCommand inventory;
};

// An AntennaConfiguration as given in SET_READER_CONFIG or an InventoryParameterSpec: only the
// parts present override.
struct AntennaOverride {
  uint16_t id = 0;  // 0 = every antenna
  bool hasReceiver = false;
  uint16_t receiverSensitivity = 0;
  bool hasTransmitter = false;
  uint16_t hopTableId = 0;
  uint16_t channelIndex = 0;
  uint16_t transmitPower = 0;
  bool hasInventory = false;
  InventoryCommand inventory;
};

struct ContentSelector {
  bool roSpecId = false;
  bool specIndex = false;
  bool inventoryParameterSpecId = false;
  bool antennaId = true;
  bool channelIndex = false;
  bool peakRssi = true;
  bool firstSeen = true;
  bool lastSeen = true;
  bool seenCount = true;
  bool accessSpecId = false;
  bool hasEpcSelector = false;  // C1G2EPCMemorySelector present
  bool enableCrc = false;
  bool enablePc = true;
  bool anyEnabled() const {
    return roSpecId || specIndex || inventoryParameterSpecId || antennaId || channelIndex ||
           peakRssi || firstSeen || lastSeen || seenCount || accessSpecId || enableCrc || enablePc;
  }
};

struct RoReportDef {
  uint8_t trigger = 2;  // 0 none (GET_REPORT only), 1 N or end of AISpec, 2 N or end of ROSpec
  uint16_t n = 1;       // 0: no count limit
  ContentSelector content;
};

// NotificationEventType values 0..8.
inline constexpr int kEventTypes = 9;

struct GpiPort {
  bool enabled = true;  // GPIPortCurrentState Config
  uint8_t state = 0;    // 0 low, 1 high, 2 unknown
};

struct ReaderConfig {
  std::vector<AntennaSettings> antennas;     // index = id - 1
  std::vector<bool> antennaConnected;        // index = id - 1
  RoReportDef roReport;
  uint8_t accessReportTrigger = 0;
  std::array<bool, kEventTypes> events{};    // ReaderEventNotificationSpec
  uint32_t keepaliveMs = 0;                  // 0: no keepalives
  std::vector<GpiPort> gpis;                 // index = port - 1
  std::vector<bool> gpos;                    // index = port - 1
  bool holdEventsAndReports = false;         // EventsAndReports
};

struct GpiTrigger {
  uint16_t port = 0;
  bool event = false;  // level that fires: true high, false low
  uint32_t timeoutMs = 0;
};

struct StartTrigger {
  uint8_t type = 0;  // 0 null, 1 immediate, 2 periodic, 3 GPI
  uint32_t offsetMs = 0;
  uint32_t periodMs = 0;
  bool hasUtc = false;
  uint64_t utcUs = 0;
  GpiTrigger gpi;
};

struct StopTrigger {
  uint8_t type = 0;  // 0 null, 1 duration, 2 GPI with time-out
  uint32_t durationMs = 0;
  GpiTrigger gpi;
};

struct TagObservation {
  uint8_t type = 0;  // 0 N tags, 1 no new tag for T ms, 2 N attempts
  uint16_t numberOfTags = 0;
  uint16_t numberOfAttempts = 0;
  uint16_t tMs = 0;
  uint32_t timeoutMs = 0;
};

struct AiStopTrigger {
  uint8_t type = 0;  // 0 null, 1 duration, 2 GPI with time-out, 3 tag observation
  uint32_t durationMs = 0;
  GpiTrigger gpi;
  TagObservation observation;
};

struct InventoryParams {
  uint16_t id = 0;
  std::vector<AntennaOverride> antennas;
};

struct AiSpecDef {
  std::vector<uint16_t> antennaIds;  // 0 alone = every antenna
  AiStopTrigger stop;
  std::vector<InventoryParams> inventory;
};

struct RoSpecDef {
  uint32_t id = 0;
  uint8_t priority = 0;
  StartTrigger start;
  StopTrigger stop;
  std::vector<AiSpecDef> aiSpecs;
  bool hasReport = false;
  RoReportDef report;
};

// One tag read as the engine hands it to the session for encoding.
struct TagRead {
  uint32_t tagIndex = 0;
  uint32_t roSpecId = 0;
  uint16_t specIndex = 0;
  uint16_t inventoryParameterSpecId = 0;
  uint16_t antenna = 0;
  int8_t rssi = 0;
  uint16_t channel = 0;
  uint64_t firstSeenUs = 0;
  uint64_t lastSeenUs = 0;
  uint16_t seenCount = 0;
  int16_t phase = 0;
};

// LLRP status codes the simulator answers with.
enum StatusCode : uint16_t {
  kSuccess = 0,
  kParameterError = 100,
  kFieldError = 101,
  kUnexpectedParameter = 102,
  kMissingParameter = 103,
  kUnknownParameter = 107,
  kUnsupportedMessage = 109,
  kUnsupportedVersion = 110,
  kUnsupportedParameter = 111,
  kPFieldError = 201,
  kPMissingParameter = 203,
  kPOverflowParameter = 205,
  kPUnsupportedParameter = 209,
  kInvalid = 300,
  kOutOfRange = 301,
  kDeviceError = 401,
};

struct Status {
  uint16_t code = kSuccess;
  std::string text = "Success";
  static Status ok() { return {}; }
  static Status error(uint16_t c, std::string t) { return {c, std::move(t)}; }
  bool isOk() const { return code == kSuccess; }
};

}  // namespace tessera::readersim
