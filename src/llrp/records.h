// src/llrp/records.h — LLRP 1.0.1 messages and parameters as plain typed records.
//
// One struct per parameter, one per message; field names follow the LLRP field names. A
// parameter that may appear at most once is a std::optional, one that may repeat is a
// std::vector, one that must appear once is a plain member. Enumerated fields use an enum
// class whose underlying type is the field's width, so an unknown value read from a reader
// survives a decode/encode round trip. Bit-field widths below 8 bits (u1, u2) are noted on the
// member; the encoder refuses values that do not fit.
//
// Custom parameters (type 1023) are kept wherever LLRP allows them, as vendor + subtype +
// bytes. Parameters this codec does not model are skipped by the decoder and not kept.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace tessera::llrp {

// ---------------------------------------------------------------------------------------------
// Enumerations
// ---------------------------------------------------------------------------------------------

enum class MessageType : uint16_t {
  kGetReaderCapabilities = 1,
  kGetReaderConfig = 2,
  kSetReaderConfig = 3,
  kCloseConnectionResponse = 4,
  kGetReaderCapabilitiesResponse = 11,
  kGetReaderConfigResponse = 12,
  kSetReaderConfigResponse = 13,
  kCloseConnection = 14,
  kAddROSpec = 20,
  kDeleteROSpec = 21,
  kStartROSpec = 22,
  kStopROSpec = 23,
  kEnableROSpec = 24,
  kDisableROSpec = 25,
  kAddROSpecResponse = 30,
  kDeleteROSpecResponse = 31,
  kStartROSpecResponse = 32,
  kStopROSpecResponse = 33,
  kEnableROSpecResponse = 34,
  kDisableROSpecResponse = 35,
  kDeleteAccessSpec = 41,
  kDeleteAccessSpecResponse = 51,
  kGetReport = 60,
  kROAccessReport = 61,
  kKeepalive = 62,
  kReaderEventNotification = 63,
  kEnableEventsAndReports = 64,
  kKeepaliveAck = 72,
  kErrorMessage = 100,
  kCustomMessage = 1023,
};

enum class StatusCode : uint16_t {
  kSuccess = 0,
  kMParameterError = 100,
  kMFieldError = 101,
  kMUnexpectedParameter = 102,
  kMMissingParameter = 103,
  kMDuplicateParameter = 104,
  kMOverflowParameter = 105,
  kMOverflowField = 106,
  kMUnknownParameter = 107,
  kMUnknownField = 108,
  kMUnsupportedMessage = 109,
  kMUnsupportedVersion = 110,
  kMUnsupportedParameter = 111,
  kPParameterError = 200,
  kPFieldError = 201,
  kPUnexpectedParameter = 202,
  kPMissingParameter = 203,
  kPDuplicateParameter = 204,
  kPOverflowParameter = 205,
  kPOverflowField = 206,
  kPUnknownParameter = 207,
  kPUnknownField = 208,
  kPUnsupportedParameter = 209,
  kAInvalid = 300,
  kAOutOfRange = 301,
  kRDeviceError = 401,
};

enum class AirProtocol : uint8_t { kUnspecified = 0, kEPCGlobalClass1Gen2 = 1 };

enum class GetReaderCapabilitiesRequestedData : uint8_t {
  kAll = 0,
  kGeneralDeviceCapabilities = 1,
  kLLRPCapabilities = 2,
  kRegulatoryCapabilities = 3,
  kAirProtocolCapabilities = 4,
};

enum class GetReaderConfigRequestedData : uint8_t {
  kAll = 0,
  kIdentification = 1,
  kAntennaProperties = 2,
  kAntennaConfiguration = 3,
  kROReportSpec = 4,
  kReaderEventNotificationSpec = 5,
  kAccessReportSpec = 6,
  kLLRPConfigurationStateValue = 7,
  kKeepaliveSpec = 8,
  kGPIPortCurrentState = 9,
  kGPOWriteData = 10,
  kEventsAndReports = 11,
};

enum class CommunicationsStandard : uint16_t {
  kUnspecified = 0,
  kUSFCCPart15 = 1,
  kETSI302208 = 2,
  kETSI300220 = 3,
  kAustraliaLIPD1W = 4,
  kAustraliaLIPD4W = 5,
  kJapanARIBSTDT89 = 6,
  kHongKongOFTA1049 = 7,
  kTaiwanDGTLP0002 = 8,
  kKoreaMICArticle52 = 9,
};

enum class ROSpecState : uint8_t { kDisabled = 0, kInactive = 1, kActive = 2 };
enum class ROSpecStartTriggerType : uint8_t { kNull = 0, kImmediate = 1, kPeriodic = 2, kGPI = 3 };
enum class ROSpecStopTriggerType : uint8_t { kNull = 0, kDuration = 1, kGPIWithTimeout = 2 };
enum class AISpecStopTriggerType : uint8_t {
  kNull = 0,
  kDuration = 1,
  kGPIWithTimeout = 2,
  kTagObservation = 3,
};
enum class TagObservationTriggerType : uint8_t {
  kUponSeeingNTagsOrTimeout = 0,
  kUponSeeingNoMoreNewTagsForTmsOrTimeout = 1,
  kNAttemptsToSeeAllTagsInFOVOrTimeout = 2,
};
enum class IdentificationType : uint8_t { kMACAddress = 0, kEPC = 1 };
enum class KeepaliveTriggerType : uint8_t { kNull = 0, kPeriodic = 1 };
enum class GPIPortState : uint8_t { kLow = 0, kHigh = 1, kUnknown = 2 };
enum class ROReportTriggerType : uint8_t {
  kNone = 0,
  kUponNTagsOrEndOfAISpec = 1,
  kUponNTagsOrEndOfROSpec = 2,
};
enum class AccessReportTriggerType : uint8_t {
  kWheneverROReportIsGenerated = 0,
  kEndOfAccessSpec = 1,
};
enum class NotificationEventType : uint16_t {
  kUponHoppingToNextChannel = 0,
  kGPIEvent = 1,
  kROSpecEvent = 2,
  kReportBufferFillWarning = 3,
  kReaderExceptionEvent = 4,
  kRFSurveyEvent = 5,
  kAISpecEvent = 6,
  kAISpecEventWithDetails = 7,
  kAntennaEvent = 8,
};
enum class ROSpecEventType : uint8_t {
  kStartOfROSpec = 0,
  kEndOfROSpec = 1,
  kPreemptionOfROSpec = 2,
};
enum class RFSurveyEventType : uint8_t { kStartOfRFSurvey = 0, kEndOfRFSurvey = 1 };
enum class AISpecEventType : uint8_t { kEndOfAISpec = 0 };
enum class AntennaEventType : uint8_t { kAntennaDisconnected = 0, kAntennaConnected = 1 };
enum class ConnectionAttemptStatus : uint16_t {
  kSuccess = 0,
  kFailedReaderInitiatedConnectionExists = 1,
  kFailedClientInitiatedConnectionExists = 2,
  kFailedOtherReason = 3,
  kAnotherConnectionAttempted = 4,
};
// u2 on the wire.
enum class C1G2TruncateAction : uint8_t { kUnspecified = 0, kDoNotTruncate = 1, kTruncate = 2 };
enum class C1G2StateAwareTarget : uint8_t {
  kSL = 0,
  kInventoriedS0 = 1,
  kInventoriedS1 = 2,
  kInventoriedS2 = 3,
  kInventoriedS3 = 4,
};
enum class C1G2StateAwareAction : uint8_t {
  kAssertSLOrADeassertSLOrB = 0,
  kAssertSLOrANoop = 1,
  kNoopDeassertSLOrB = 2,
  kNegateSLOrABBANoop = 3,
  kDeassertSLOrBAssertSLOrA = 4,
  kDeassertSLOrBNoop = 5,
  kNoopAssertSLOrA = 6,
  kNoopNegateSLOrABBA = 7,
};
enum class C1G2StateUnawareAction : uint8_t {
  kSelectUnselect = 0,
  kSelectDoNothing = 1,
  kDoNothingUnselect = 2,
  kUnselectDoNothing = 3,
  kUnselectSelect = 4,
  kDoNothingSelect = 5,
};

// ---------------------------------------------------------------------------------------------
// Shared parameters
// ---------------------------------------------------------------------------------------------

// A u1v field: bitCount bits, most significant first, in (bitCount + 7) / 8 bytes.
struct BitString {
  uint16_t bitCount = 0;
  std::vector<uint8_t> bytes;
  bool operator==(const BitString&) const = default;
};

// Custom (1023): a vendor's parameter, kept opaque.
struct Custom {
  uint32_t vendorId = 0;
  uint32_t subtype = 0;
  std::vector<uint8_t> data;
  bool operator==(const Custom&) const = default;
};

// FieldError (288).
struct FieldError {
  uint16_t fieldNum = 0;
  StatusCode errorCode = StatusCode::kSuccess;
  bool operator==(const FieldError&) const = default;
};

// ParameterError (289), without its nested ParameterError (see LLRPStatus::parameterErrors).
struct ParameterError {
  uint16_t parameterType = 0;
  StatusCode errorCode = StatusCode::kSuccess;
  std::optional<FieldError> fieldError;
  bool operator==(const ParameterError&) const = default;
};

// LLRPStatus (287). The nested ParameterError chain is flattened: parameterErrors[0] is the
// status's own ParameterError and parameterErrors[i + 1] is nested inside parameterErrors[i].
struct LLRPStatus {
  StatusCode statusCode = StatusCode::kSuccess;
  std::string errorDescription;  // utf8v
  std::optional<FieldError> fieldError;
  std::vector<ParameterError> parameterErrors;
  bool operator==(const LLRPStatus&) const = default;
};

// UTCTimestamp (128) or Uptime (129), where LLRP lets the reader choose.
struct Timestamp {
  bool uptime = false;  // false: UTCTimestamp, true: Uptime
  uint64_t microseconds = 0;
  bool operator==(const Timestamp&) const = default;
};

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

struct ROSpec {  // 177
  uint32_t roSpecId = 0;
  uint8_t priority = 0;
  ROSpecState currentState = ROSpecState::kDisabled;
  ROBoundarySpec roBoundarySpec;
  std::vector<AISpec> aiSpecs;
  std::vector<Custom> customs;  // Custom parameters listed among the AISpecs, kept after them
  std::optional<ROReportSpec> roReportSpec;
  bool operator==(const ROSpec&) const = default;
};

// ---------------------------------------------------------------------------------------------
// Reports and events
// ---------------------------------------------------------------------------------------------

// EPC_96 (TV 13): the common 96-bit EPC, kept inline.
struct EPC96 {
  std::array<uint8_t, 12> epc{};
  bool operator==(const EPC96&) const = default;
};

// EPCData (241): an EPC of any bit length.
struct EPCData {
  BitString epc;
  bool operator==(const EPCData&) const = default;
};

using EPCParameter = std::variant<EPC96, EPCData>;

struct TagReportData {  // 240
  EPCParameter epc;
  std::optional<uint32_t> roSpecId;
  std::optional<uint16_t> specIndex;
  std::optional<uint16_t> inventoryParameterSpecId;
  std::optional<uint16_t> antennaId;
  std::optional<int8_t> peakRSSI;  // dBm
  std::optional<uint16_t> channelIndex;
  std::optional<uint64_t> firstSeenTimestampUTC;  // microseconds since the epoch
  std::optional<uint64_t> firstSeenTimestampUptime;
  std::optional<uint64_t> lastSeenTimestampUTC;
  std::optional<uint64_t> lastSeenTimestampUptime;
  std::optional<uint16_t> tagSeenCount;
  std::optional<uint16_t> c1g2PC;
  std::optional<uint16_t> c1g2CRC;
  std::optional<uint32_t> accessSpecId;
  std::vector<Custom> customs;
  bool operator==(const TagReportData&) const = default;
};

struct HoppingEvent {  // 247
  uint16_t hopTableId = 0;
  uint16_t nextChannelIndex = 0;
  bool operator==(const HoppingEvent&) const = default;
};

struct GPIEvent {  // 248
  uint16_t gpiPortNumber = 0;
  bool gpiEvent = false;
  bool operator==(const GPIEvent&) const = default;
};

struct ROSpecEvent {  // 249
  ROSpecEventType eventType = ROSpecEventType::kStartOfROSpec;
  uint32_t roSpecId = 0;
  uint32_t preemptingROSpecId = 0;
  bool operator==(const ROSpecEvent&) const = default;
};

struct ReportBufferLevelWarningEvent {  // 250
  uint8_t reportBufferPercentageFull = 0;
  bool operator==(const ReportBufferLevelWarningEvent&) const = default;
};

struct ReportBufferOverflowErrorEvent {  // 251
  bool operator==(const ReportBufferOverflowErrorEvent&) const = default;
};

struct ReaderExceptionEvent {  // 252
  std::string message;         // utf8v
  std::optional<uint32_t> roSpecId;
  std::optional<uint16_t> specIndex;
  std::optional<uint16_t> inventoryParameterSpecId;
  std::optional<uint16_t> antennaId;
  std::optional<uint32_t> accessSpecId;
  std::optional<uint16_t> opSpecId;
  std::vector<Custom> customs;
  bool operator==(const ReaderExceptionEvent&) const = default;
};

struct RFSurveyEvent {  // 253
  RFSurveyEventType eventType = RFSurveyEventType::kStartOfRFSurvey;
  uint32_t roSpecId = 0;
  uint16_t specIndex = 0;
  bool operator==(const RFSurveyEvent&) const = default;
};

struct C1G2SingulationDetails {  // TV 18
  uint16_t numCollisionSlots = 0;
  uint16_t numEmptySlots = 0;
  bool operator==(const C1G2SingulationDetails&) const = default;
};

struct AISpecEvent {  // 254
  AISpecEventType eventType = AISpecEventType::kEndOfAISpec;
  uint32_t roSpecId = 0;
  uint16_t specIndex = 0;
  std::optional<C1G2SingulationDetails> singulationDetails;
  bool operator==(const AISpecEvent&) const = default;
};

struct AntennaEvent {  // 255
  AntennaEventType eventType = AntennaEventType::kAntennaDisconnected;
  uint16_t antennaId = 0;
  bool operator==(const AntennaEvent&) const = default;
};

struct ConnectionAttemptEvent {  // 256
  ConnectionAttemptStatus status = ConnectionAttemptStatus::kSuccess;
  bool operator==(const ConnectionAttemptEvent&) const = default;
};

struct ConnectionCloseEvent {  // 257
  bool operator==(const ConnectionCloseEvent&) const = default;
};

struct ReaderEventNotificationData {  // 246
  Timestamp timestamp;
  std::optional<HoppingEvent> hoppingEvent;
  std::optional<GPIEvent> gpiEvent;
  std::optional<ROSpecEvent> roSpecEvent;
  std::optional<ReportBufferLevelWarningEvent> reportBufferLevelWarningEvent;
  std::optional<ReportBufferOverflowErrorEvent> reportBufferOverflowErrorEvent;
  std::optional<ReaderExceptionEvent> readerExceptionEvent;
  std::optional<RFSurveyEvent> rfSurveyEvent;
  std::optional<AISpecEvent> aiSpecEvent;
  std::optional<AntennaEvent> antennaEvent;
  std::optional<ConnectionAttemptEvent> connectionAttemptEvent;
  std::optional<ConnectionCloseEvent> connectionCloseEvent;
  std::vector<Custom> customs;
  bool operator==(const ReaderEventNotificationData&) const = default;
};

// ---------------------------------------------------------------------------------------------
// Messages
// ---------------------------------------------------------------------------------------------

// A message that carries nothing but its header.
template <MessageType kType>
struct EmptyMessage {
  static constexpr MessageType kMessageType = kType;
  bool operator==(const EmptyMessage&) const = default;
};

// A response that carries only an LLRPStatus.
template <MessageType kType>
struct StatusResponse {
  static constexpr MessageType kMessageType = kType;
  LLRPStatus llrpStatus;
  bool operator==(const StatusResponse&) const = default;
};

// A request naming one ROSpec (0 = all for DELETE, ENABLE and DISABLE).
template <MessageType kType>
struct ROSpecIdRequest {
  static constexpr MessageType kMessageType = kType;
  uint32_t roSpecId = 0;
  bool operator==(const ROSpecIdRequest&) const = default;
};

struct GetReaderCapabilities {
  static constexpr MessageType kMessageType = MessageType::kGetReaderCapabilities;
  GetReaderCapabilitiesRequestedData requestedData = GetReaderCapabilitiesRequestedData::kAll;
  std::vector<Custom> customs;
  bool operator==(const GetReaderCapabilities&) const = default;
};

struct GetReaderCapabilitiesResponse {
  static constexpr MessageType kMessageType = MessageType::kGetReaderCapabilitiesResponse;
  LLRPStatus llrpStatus;
  std::optional<GeneralDeviceCapabilities> generalDeviceCapabilities;
  std::optional<LLRPCapabilities> llrpCapabilities;
  std::optional<RegulatoryCapabilities> regulatoryCapabilities;
  std::optional<C1G2LLRPCapabilities> c1g2LLRPCapabilities;
  std::vector<Custom> customs;
  bool operator==(const GetReaderCapabilitiesResponse&) const = default;
};

struct GetReaderConfig {
  static constexpr MessageType kMessageType = MessageType::kGetReaderConfig;
  uint16_t antennaId = 0;  // 0: every antenna
  GetReaderConfigRequestedData requestedData = GetReaderConfigRequestedData::kAll;
  uint16_t gpiPortNum = 0;
  uint16_t gpoPortNum = 0;
  std::vector<Custom> customs;
  bool operator==(const GetReaderConfig&) const = default;
};

struct GetReaderConfigResponse {
  static constexpr MessageType kMessageType = MessageType::kGetReaderConfigResponse;
  LLRPStatus llrpStatus;
  std::optional<Identification> identification;
  std::vector<AntennaProperties> antennaProperties;
  std::vector<AntennaConfiguration> antennaConfigurations;
  std::optional<ReaderEventNotificationSpec> readerEventNotificationSpec;
  std::optional<ROReportSpec> roReportSpec;
  std::optional<AccessReportSpec> accessReportSpec;
  std::optional<uint32_t> llrpConfigurationStateValue;  // LLRPConfigurationStateValue (217)
  std::optional<KeepaliveSpec> keepaliveSpec;
  std::vector<GPIPortCurrentState> gpiPortCurrentStates;
  std::vector<GPOWriteData> gpoWriteData;
  std::optional<EventsAndReports> eventsAndReports;
  std::vector<Custom> customs;
  bool operator==(const GetReaderConfigResponse&) const = default;
};

struct SetReaderConfig {
  static constexpr MessageType kMessageType = MessageType::kSetReaderConfig;
  bool resetToFactoryDefault = false;
  std::optional<ReaderEventNotificationSpec> readerEventNotificationSpec;
  std::vector<AntennaProperties> antennaProperties;
  std::vector<AntennaConfiguration> antennaConfigurations;
  std::optional<ROReportSpec> roReportSpec;
  std::optional<AccessReportSpec> accessReportSpec;
  std::optional<KeepaliveSpec> keepaliveSpec;
  std::vector<GPOWriteData> gpoWriteData;
  std::vector<GPIPortCurrentState> gpiPortCurrentStates;
  std::optional<EventsAndReports> eventsAndReports;
  std::vector<Custom> customs;
  bool operator==(const SetReaderConfig&) const = default;
};

struct AddROSpec {
  static constexpr MessageType kMessageType = MessageType::kAddROSpec;
  ROSpec roSpec;
  bool operator==(const AddROSpec&) const = default;
};

struct DeleteAccessSpec {
  static constexpr MessageType kMessageType = MessageType::kDeleteAccessSpec;
  uint32_t accessSpecId = 0;  // 0: all
  bool operator==(const DeleteAccessSpec&) const = default;
};

struct ROAccessReport {
  static constexpr MessageType kMessageType = MessageType::kROAccessReport;
  std::vector<TagReportData> tagReportData;
  std::vector<Custom> customs;
  bool operator==(const ROAccessReport&) const = default;
};

struct ReaderEventNotification {
  static constexpr MessageType kMessageType = MessageType::kReaderEventNotification;
  ReaderEventNotificationData readerEventNotificationData;
  bool operator==(const ReaderEventNotification&) const = default;
};

struct CustomMessage {
  static constexpr MessageType kMessageType = MessageType::kCustomMessage;
  uint32_t vendorId = 0;
  uint8_t subtype = 0;
  std::vector<uint8_t> data;
  bool operator==(const CustomMessage&) const = default;
};

using SetReaderConfigResponse = StatusResponse<MessageType::kSetReaderConfigResponse>;
using CloseConnection = EmptyMessage<MessageType::kCloseConnection>;
using CloseConnectionResponse = StatusResponse<MessageType::kCloseConnectionResponse>;
using AddROSpecResponse = StatusResponse<MessageType::kAddROSpecResponse>;
using DeleteROSpec = ROSpecIdRequest<MessageType::kDeleteROSpec>;
using DeleteROSpecResponse = StatusResponse<MessageType::kDeleteROSpecResponse>;
using StartROSpec = ROSpecIdRequest<MessageType::kStartROSpec>;
using StartROSpecResponse = StatusResponse<MessageType::kStartROSpecResponse>;
using StopROSpec = ROSpecIdRequest<MessageType::kStopROSpec>;
using StopROSpecResponse = StatusResponse<MessageType::kStopROSpecResponse>;
using EnableROSpec = ROSpecIdRequest<MessageType::kEnableROSpec>;
using EnableROSpecResponse = StatusResponse<MessageType::kEnableROSpecResponse>;
using DisableROSpec = ROSpecIdRequest<MessageType::kDisableROSpec>;
using DisableROSpecResponse = StatusResponse<MessageType::kDisableROSpecResponse>;
using DeleteAccessSpecResponse = StatusResponse<MessageType::kDeleteAccessSpecResponse>;
using GetReport = EmptyMessage<MessageType::kGetReport>;
using Keepalive = EmptyMessage<MessageType::kKeepalive>;
using KeepaliveAck = EmptyMessage<MessageType::kKeepaliveAck>;
using EnableEventsAndReports = EmptyMessage<MessageType::kEnableEventsAndReports>;
using ErrorMessage = StatusResponse<MessageType::kErrorMessage>;

// Every message the codec knows; each alternative has a static kMessageType.
using MessageBody =
    std::variant<GetReaderCapabilities, GetReaderCapabilitiesResponse, GetReaderConfig,
                 GetReaderConfigResponse, SetReaderConfig, SetReaderConfigResponse, CloseConnection,
                 CloseConnectionResponse, AddROSpec, AddROSpecResponse, DeleteROSpec,
                 DeleteROSpecResponse, StartROSpec, StartROSpecResponse, StopROSpec,
                 StopROSpecResponse, EnableROSpec, EnableROSpecResponse, DisableROSpec,
                 DisableROSpecResponse, DeleteAccessSpec, DeleteAccessSpecResponse, GetReport,
                 ROAccessReport, Keepalive, ReaderEventNotification, EnableEventsAndReports,
                 KeepaliveAck, ErrorMessage, CustomMessage>;

// One LLRP message: the header's message ID and the typed body (the type is the alternative).
struct Message {
  uint32_t id = 0;
  MessageBody body;
  bool operator==(const Message&) const = default;
};

// The message type of a body.
MessageType messageType(const MessageBody& body);
// The LLRP name of a message type ("RO_ACCESS_REPORT"), or "UNKNOWN".
constexpr const char* messageName(MessageType type) {
  switch (type) {
    case MessageType::kGetReaderCapabilities:
      return "GET_READER_CAPABILITIES";
    case MessageType::kGetReaderConfig:
      return "GET_READER_CONFIG";
    case MessageType::kSetReaderConfig:
      return "SET_READER_CONFIG";
    case MessageType::kCloseConnectionResponse:
      return "CLOSE_CONNECTION_RESPONSE";
    case MessageType::kGetReaderCapabilitiesResponse:
      return "GET_READER_CAPABILITIES_RESPONSE";
    case MessageType::kGetReaderConfigResponse:
      return "GET_READER_CONFIG_RESPONSE";
    case MessageType::kSetReaderConfigResponse:
      return "SET_READER_CONFIG_RESPONSE";
    case MessageType::kCloseConnection:
      return "CLOSE_CONNECTION";
    case MessageType::kAddROSpec:
      return "ADD_ROSPEC";
    case MessageType::kDeleteROSpec:
      return "DELETE_ROSPEC";
    case MessageType::kStartROSpec:
      return "START_ROSPEC";
    case MessageType::kStopROSpec:
      return "STOP_ROSPEC";
    case MessageType::kEnableROSpec:
      return "ENABLE_ROSPEC";
    case MessageType::kDisableROSpec:
      return "DISABLE_ROSPEC";
    case MessageType::kAddROSpecResponse:
      return "ADD_ROSPEC_RESPONSE";
    case MessageType::kDeleteROSpecResponse:
      return "DELETE_ROSPEC_RESPONSE";
    case MessageType::kStartROSpecResponse:
      return "START_ROSPEC_RESPONSE";
    case MessageType::kStopROSpecResponse:
      return "STOP_ROSPEC_RESPONSE";
    case MessageType::kEnableROSpecResponse:
      return "ENABLE_ROSPEC_RESPONSE";
    case MessageType::kDisableROSpecResponse:
      return "DISABLE_ROSPEC_RESPONSE";
    case MessageType::kDeleteAccessSpec:
      return "DELETE_ACCESSSPEC";
    case MessageType::kDeleteAccessSpecResponse:
      return "DELETE_ACCESSSPEC_RESPONSE";
    case MessageType::kGetReport:
      return "GET_REPORT";
    case MessageType::kROAccessReport:
      return "RO_ACCESS_REPORT";
    case MessageType::kKeepalive:
      return "KEEPALIVE";
    case MessageType::kReaderEventNotification:
      return "READER_EVENT_NOTIFICATION";
    case MessageType::kEnableEventsAndReports:
      return "ENABLE_EVENTS_AND_REPORTS";
    case MessageType::kKeepaliveAck:
      return "KEEPALIVE_ACK";
    case MessageType::kErrorMessage:
      return "ERROR_MESSAGE";
    case MessageType::kCustomMessage:
      return "CUSTOM_MESSAGE";
  }
  return "UNKNOWN";
}
// The LLRP name of a status code ("M_Success"), or "Unknown".
const char* statusCodeName(StatusCode code);
// The EPC bytes of a tag report's EPC parameter, whichever form it takes.
std::span<const uint8_t> epcBytes(const EPCParameter& epc);

}  // namespace tessera::llrp
