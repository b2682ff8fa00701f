// src/llrp/records_config.h — LLRP reader capabilities, reader configuration and the ROSpec.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "llrp/records_common.h"

namespace tessera::llrp {

// ---------------------------------------------------------------------------------------------
// Reader capabilities
// ---------------------------------------------------------------------------------------------

struct ReceiveSensitivityTableEntry {  // 139
  uint16_t index = 0;
  int16_t receiveSensitivityValue = 0;
  bool operator==(const ReceiveSensitivityTableEntry&) const = default;
};

struct PerAntennaReceiveSensitivityRange {  // 149
  uint16_t antennaId = 0;
  uint16_t receiveSensitivityIndexMin = 0;
  uint16_t receiveSensitivityIndexMax = 0;
  bool operator==(const PerAntennaReceiveSensitivityRange&) const = default;
};

struct PerAntennaAirProtocol {  // 140
  uint16_t antennaId = 0;
  std::vector<AirProtocol> protocolIds;  // u8v
  bool operator==(const PerAntennaAirProtocol&) const = default;
};

struct GPIOCapabilities {  // 141
  uint16_t numGPIs = 0;
  uint16_t numGPOs = 0;
  bool operator==(const GPIOCapabilities&) const = default;
};

struct GeneralDeviceCapabilities {  // 137
  uint16_t maxNumberOfAntennaSupported = 0;
  bool canSetAntennaProperties = false;
  bool hasUTCClockCapability = false;
  uint32_t deviceManufacturerName = 0;
  uint32_t modelName = 0;
  std::string readerFirmwareVersion;  // utf8v
  std::vector<ReceiveSensitivityTableEntry> receiveSensitivityTable;
  std::vector<PerAntennaReceiveSensitivityRange> perAntennaReceiveSensitivityRanges;
  GPIOCapabilities gpioCapabilities;
  std::vector<PerAntennaAirProtocol> perAntennaAirProtocols;
  bool operator==(const GeneralDeviceCapabilities&) const = default;
};

struct LLRPCapabilities {  // 142
  bool canDoRFSurvey = false;
  bool canReportBufferFillWarning = false;
  bool supportsClientRequestOpSpec = false;
  bool canDoTagInventoryStateAwareSingulation = false;
  bool supportsEventAndReportHolding = false;
  uint8_t maxNumPriorityLevelsSupported = 0;
  uint16_t clientRequestOpSpecTimeout = 0;
  uint32_t maxNumROSpecs = 0;
  uint32_t maxNumSpecsPerROSpec = 0;
  uint32_t maxNumInventoryParameterSpecsPerAISpec = 0;
  uint32_t maxNumAccessSpecs = 0;
  uint32_t maxNumOpSpecsPerAccessSpec = 0;
  bool operator==(const LLRPCapabilities&) const = default;
};

struct TransmitPowerLevelTableEntry {  // 145
  uint16_t index = 0;
  int16_t transmitPowerValue = 0;  // hundredths of dBm
  bool operator==(const TransmitPowerLevelTableEntry&) const = default;
};

struct FrequencyHopTable {  // 147
  uint8_t hopTableId = 0;
  std::vector<uint32_t> frequencies;  // u32v, kHz
  bool operator==(const FrequencyHopTable&) const = default;
};

struct FixedFrequencyTable {          // 148
  std::vector<uint32_t> frequencies;  // u32v, kHz
  bool operator==(const FixedFrequencyTable&) const = default;
};

struct FrequencyInformation {  // 146
  bool hopping = false;
  std::vector<FrequencyHopTable> hopTables;
  std::optional<FixedFrequencyTable> fixedFrequencyTable;
  bool operator==(const FrequencyInformation&) const = default;
};

struct C1G2UHFRFModeTableEntry {  // 329
  uint32_t modeIdentifier = 0;
  bool drValue = false;  // u1: 0 DRV_8, 1 DRV_64_3
  bool epcHAGTCConformance = false;
  uint8_t mValue = 0;                 // 0 FM0, 1 M2, 2 M4, 3 M8
  uint8_t forwardLinkModulation = 0;  // 0 PR_ASK, 1 SSB_ASK, 2 DSB_ASK
  uint8_t spectralMaskIndicator = 0;  // 0 unknown, 1 SI, 2 MI, 3 DI
  uint32_t bdrValue = 0;
  uint32_t pieValue = 0;
  uint32_t minTariValue = 0;
  uint32_t maxTariValue = 0;
  uint32_t stepTariValue = 0;
  bool operator==(const C1G2UHFRFModeTableEntry&) const = default;
};

struct C1G2UHFRFModeTable {  // 328
  std::vector<C1G2UHFRFModeTableEntry> entries;
  bool operator==(const C1G2UHFRFModeTable&) const = default;
};

struct UHFBandCapabilities {  // 144
  std::vector<TransmitPowerLevelTableEntry> transmitPowerLevels;
  FrequencyInformation frequencyInformation;
  std::optional<C1G2UHFRFModeTable> c1g2RFModeTable;
  bool operator==(const UHFBandCapabilities&) const = default;
};

struct RegulatoryCapabilities {  // 143
  uint16_t countryCode = 0;
  CommunicationsStandard communicationsStandard = CommunicationsStandard::kUnspecified;
  std::optional<UHFBandCapabilities> uhfBandCapabilities;
  std::vector<Custom> customs;
  bool operator==(const RegulatoryCapabilities&) const = default;
};

struct C1G2LLRPCapabilities {  // 327
  bool canSupportBlockErase = false;
  bool canSupportBlockWrite = false;
  uint16_t maxNumSelectFiltersPerQuery = 0;
  bool operator==(const C1G2LLRPCapabilities&) const = default;
};

// ---------------------------------------------------------------------------------------------
// Reader configuration
// ---------------------------------------------------------------------------------------------

struct Identification {  // 218
  IdentificationType idType = IdentificationType::kMACAddress;
  std::vector<uint8_t> readerId;  // u8v
  bool operator==(const Identification&) const = default;
};

struct AntennaProperties {  // 221
  bool antennaConnected = false;
  uint16_t antennaId = 0;
  int16_t antennaGain = 0;
  bool operator==(const AntennaProperties&) const = default;
};

struct RFReceiver {  // 223
  uint16_t receiverSensitivity = 0;
  bool operator==(const RFReceiver&) const = default;
};

struct RFTransmitter {  // 224
  uint16_t hopTableId = 0;
  uint16_t channelIndex = 0;
  uint16_t transmitPower = 0;  // index into the TransmitPowerLevelTableEntry list
  bool operator==(const RFTransmitter&) const = default;
};

struct C1G2TagInventoryMask {  // 332
  uint8_t mb = 0;              // u2 memory bank
  uint16_t pointer = 0;
  BitString tagMask;
  bool operator==(const C1G2TagInventoryMask&) const = default;
};

struct C1G2TagInventoryStateAwareFilterAction {  // 333
  C1G2StateAwareTarget target = C1G2StateAwareTarget::kSL;
  C1G2StateAwareAction action = C1G2StateAwareAction::kAssertSLOrADeassertSLOrB;
  bool operator==(const C1G2TagInventoryStateAwareFilterAction&) const = default;
};

struct C1G2TagInventoryStateUnawareFilterAction {  // 334
  C1G2StateUnawareAction action = C1G2StateUnawareAction::kSelectUnselect;
  bool operator==(const C1G2TagInventoryStateUnawareFilterAction&) const = default;
};

struct C1G2Filter {                                         // 331
  C1G2TruncateAction t = C1G2TruncateAction::kUnspecified;  // u2
  C1G2TagInventoryMask tagInventoryMask;
  std::optional<C1G2TagInventoryStateAwareFilterAction> stateAwareAction;
  std::optional<C1G2TagInventoryStateUnawareFilterAction> stateUnawareAction;
  bool operator==(const C1G2Filter&) const = default;
};

struct C1G2RFControl {  // 335
  uint16_t modeIndex = 0;
  uint16_t tari = 0;
  bool operator==(const C1G2RFControl&) const = default;
};

struct C1G2TagInventoryStateAwareSingulationAction {  // 337
  bool i = false;                                     // u1: 0 State_A, 1 State_B
  bool s = false;                                     // u1: 0 SL, 1 Not_SL
  bool operator==(const C1G2TagInventoryStateAwareSingulationAction&) const = default;
};

struct C1G2SingulationControl {  // 336
  uint8_t session = 0;           // u2
  uint16_t tagPopulation = 0;
  uint32_t tagTransitTime = 0;
  std::optional<C1G2TagInventoryStateAwareSingulationAction> stateAwareAction;
  bool operator==(const C1G2SingulationControl&) const = default;
};

struct C1G2InventoryCommand {  // 330
  bool tagInventoryStateAware = false;
  std::vector<C1G2Filter> filters;
  std::optional<C1G2RFControl> rfControl;
  std::optional<C1G2SingulationControl> singulationControl;
  std::vector<Custom> customs;
  bool operator==(const C1G2InventoryCommand&) const = default;
};

struct AntennaConfiguration {  // 222
  uint16_t antennaId = 0;      // 0: every antenna
  std::optional<RFReceiver> rfReceiver;
  std::optional<RFTransmitter> rfTransmitter;
  std::vector<C1G2InventoryCommand> inventoryCommands;
  bool operator==(const AntennaConfiguration&) const = default;
};

struct GPIPortCurrentState {  // 225
  uint16_t gpiPortNum = 0;
  bool config = false;
  GPIPortState state = GPIPortState::kLow;
  bool operator==(const GPIPortCurrentState&) const = default;
};

struct GPOWriteData {  // 219
  uint16_t gpoPortNumber = 0;
  bool gpoData = false;
  bool operator==(const GPOWriteData&) const = default;
};

struct KeepaliveSpec {  // 220
  KeepaliveTriggerType keepaliveTriggerType = KeepaliveTriggerType::kNull;
  uint32_t periodicTriggerValue = 0;  // milliseconds
  bool operator==(const KeepaliveSpec&) const = default;
};

struct EventsAndReports {  // 226
  bool holdEventsAndReportsUponReconnect = false;
  bool operator==(const EventsAndReports&) const = default;
};

struct C1G2EPCMemorySelector {  // 348
  bool enableCRC = false;
  bool enablePCBits = false;
  bool operator==(const C1G2EPCMemorySelector&) const = default;
};

struct TagReportContentSelector {  // 238
  bool enableROSpecId = false;
  bool enableSpecIndex = false;
  bool enableInventoryParameterSpecId = false;
  bool enableAntennaId = false;
  bool enableChannelIndex = false;
  bool enablePeakRSSI = false;
  bool enableFirstSeenTimestamp = false;
  bool enableLastSeenTimestamp = false;
  bool enableTagSeenCount = false;
  bool enableAccessSpecId = false;
  std::vector<C1G2EPCMemorySelector> epcMemorySelectors;
  bool operator==(const TagReportContentSelector&) const = default;
};

struct ROReportSpec {  // 237
  ROReportTriggerType roReportTrigger = ROReportTriggerType::kNone;
  uint16_t n = 0;
  TagReportContentSelector tagReportContentSelector;
  std::vector<Custom> customs;
  bool operator==(const ROReportSpec&) const = default;
};

struct AccessReportSpec {  // 239
  AccessReportTriggerType accessReportTrigger =
      AccessReportTriggerType::kWheneverROReportIsGenerated;
  bool operator==(const AccessReportSpec&) const = default;
};

struct EventNotificationState {  // 245
  NotificationEventType eventType = NotificationEventType::kUponHoppingToNextChannel;
  bool notificationState = false;
  bool operator==(const EventNotificationState&) const = default;
};

struct ReaderEventNotificationSpec {  // 244
  std::vector<EventNotificationState> eventNotificationStates;
  bool operator==(const ReaderEventNotificationSpec&) const = default;
};

// ---------------------------------------------------------------------------------------------
// Reader operations (ROSpec)
// ---------------------------------------------------------------------------------------------

struct PeriodicTriggerValue {            // 180
  uint32_t offset = 0;                   // milliseconds
  uint32_t period = 0;                   // milliseconds
  std::optional<uint64_t> utcTimestamp;  // UTCTimestamp (128), microseconds
  bool operator==(const PeriodicTriggerValue&) const = default;
};

struct GPITriggerValue {  // 181
  uint16_t gpiPortNum = 0;
  bool gpiEvent = false;
  uint32_t timeout = 0;  // milliseconds
  bool operator==(const GPITriggerValue&) const = default;
};

struct ROSpecStartTrigger {  // 179
  ROSpecStartTriggerType roSpecStartTriggerType = ROSpecStartTriggerType::kNull;
  std::optional<PeriodicTriggerValue> periodicTriggerValue;
  std::optional<GPITriggerValue> gpiTriggerValue;
  bool operator==(const ROSpecStartTrigger&) const = default;
};

struct ROSpecStopTrigger {  // 182
  ROSpecStopTriggerType roSpecStopTriggerType = ROSpecStopTriggerType::kNull;
  uint32_t durationTriggerValue = 0;  // milliseconds
  std::optional<GPITriggerValue> gpiTriggerValue;
  bool operator==(const ROSpecStopTrigger&) const = default;
};

struct ROBoundarySpec {  // 178
  ROSpecStartTrigger roSpecStartTrigger;
  ROSpecStopTrigger roSpecStopTrigger;
  bool operator==(const ROBoundarySpec&) const = default;
};

struct TagObservationTrigger {  // 185
  TagObservationTriggerType triggerType = TagObservationTriggerType::kUponSeeingNTagsOrTimeout;
  uint16_t numberOfTags = 0;
  uint16_t numberOfAttempts = 0;
  uint16_t t = 0;        // milliseconds
  uint32_t timeout = 0;  // milliseconds
  bool operator==(const TagObservationTrigger&) const = default;
};

struct AISpecStopTrigger {  // 184
  AISpecStopTriggerType aiSpecStopTriggerType = AISpecStopTriggerType::kNull;
  uint32_t durationTrigger = 0;  // milliseconds
  std::optional<GPITriggerValue> gpiTriggerValue;
  std::optional<TagObservationTrigger> tagObservationTrigger;
  bool operator==(const AISpecStopTrigger&) const = default;
};

struct InventoryParameterSpec {  // 186
  uint16_t inventoryParameterSpecId = 0;
  AirProtocol protocolId = AirProtocol::kEPCGlobalClass1Gen2;
  std::vector<AntennaConfiguration> antennaConfigurations;
  std::vector<Custom> customs;
  bool operator==(const InventoryParameterSpec&) const = default;
};

struct AISpec {                      // 183
  std::vector<uint16_t> antennaIds;  // u16v; {0} means every antenna
  AISpecStopTrigger aiSpecStopTrigger;
  std::vector<InventoryParameterSpec> inventoryParameterSpecs;
  std::vector<Custom> customs;
  bool operator==(const AISpec&) const = default;
};

enum class RFSurveySpecStopTriggerType : uint8_t {
  kNull = 0,
  kDuration = 1,
  kNIterationsThroughFrequencyRange = 2,
};

struct RFSurveySpecStopTrigger {  // 188
  RFSurveySpecStopTriggerType stopTriggerType = RFSurveySpecStopTriggerType::kNull;
  uint32_t durationPeriod = 0;  // milliseconds
  uint32_t n = 0;
  bool operator==(const RFSurveySpecStopTrigger&) const = default;
};

struct RFSurveySpec {  // 187
  uint16_t antennaId = 0;
  uint32_t startFrequency = 0;  // kHz
  uint32_t endFrequency = 0;    // kHz
  RFSurveySpecStopTrigger rfSurveySpecStopTrigger;
  std::vector<Custom> customs;
  bool operator==(const RFSurveySpec&) const = default;
};

struct ROSpec {  // 177
  uint32_t roSpecId = 0;
  uint8_t priority = 0;
  ROSpecState currentState = ROSpecState::kDisabled;
  ROBoundarySpec roBoundarySpec;
  std::vector<AISpec> aiSpecs;
  std::vector<Custom> customs;  // Custom parameters listed among the AISpecs, kept after them
  std::optional<ROReportSpec> roReportSpec;
  std::vector<RFSurveySpec> rfSurveySpecs;  // on the wire after the AISpecs
  bool operator==(const ROSpec&) const = default;
};

}  // namespace tessera::llrp
