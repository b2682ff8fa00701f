// src/llrp/records_common.h — LLRP enumerations and the parameters many records share.
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
  kGetROSpecs = 26,
  kAddROSpecResponse = 30,
  kDeleteROSpecResponse = 31,
  kStartROSpecResponse = 32,
  kStopROSpecResponse = 33,
  kEnableROSpecResponse = 34,
  kDisableROSpecResponse = 35,
  kGetROSpecsResponse = 36,
  kAddAccessSpec = 40,
  kDeleteAccessSpec = 41,
  kEnableAccessSpec = 42,
  kDisableAccessSpec = 43,
  kGetAccessSpecs = 44,
  kAddAccessSpecResponse = 50,
  kDeleteAccessSpecResponse = 51,
  kEnableAccessSpecResponse = 52,
  kDisableAccessSpecResponse = 53,
  kGetAccessSpecsResponse = 54,
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

}  // namespace tessera::llrp
