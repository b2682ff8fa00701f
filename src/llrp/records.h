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
// bytes. Every parameter of LLRP 1.0.1 is modelled, so a frame from a conformant peer
// survives decode and encode whole; the one reordering left is a Custom placed between two
// AISpecs of a ROSpec or between two OpSpec results of a TagReportData, which is kept after
// them (the members that hold them predate the lists of choices).
//
// The records are split by area: records_common.h (enumerations, shared parameters),
// records_config.h (capabilities, configuration, ROSpec), records_access.h (AccessSpec,
// OpSpecs and their results, RF survey); this file holds reports, events and messages.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "llrp/records_access.h"
#include "llrp/records_common.h"
#include "llrp/records_config.h"

namespace tessera::llrp {

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
  std::vector<OpSpecResult> opSpecResults;  // on the wire before the Custom parameters
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

// A request naming one AccessSpec (0 = all).
template <MessageType kType>
struct AccessSpecIdRequest {
  static constexpr MessageType kMessageType = kType;
  uint32_t accessSpecId = 0;
  bool operator==(const AccessSpecIdRequest&) const = default;
};

struct GetROSpecsResponse {
  static constexpr MessageType kMessageType = MessageType::kGetROSpecsResponse;
  LLRPStatus llrpStatus;
  std::vector<ROSpec> roSpecs;
  bool operator==(const GetROSpecsResponse&) const = default;
};

struct AddAccessSpec {
  static constexpr MessageType kMessageType = MessageType::kAddAccessSpec;
  AccessSpec accessSpec;
  bool operator==(const AddAccessSpec&) const = default;
};

struct GetAccessSpecsResponse {
  static constexpr MessageType kMessageType = MessageType::kGetAccessSpecsResponse;
  LLRPStatus llrpStatus;
  std::vector<AccessSpec> accessSpecs;
  bool operator==(const GetAccessSpecsResponse&) const = default;
};

struct ROAccessReport {
  static constexpr MessageType kMessageType = MessageType::kROAccessReport;
  std::vector<TagReportData> tagReportData;
  std::vector<Custom> customs;
  std::vector<RFSurveyReportData> rfSurveyReportData;  // on the wire before the Custom ones
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
using GetROSpecs = EmptyMessage<MessageType::kGetROSpecs>;
using AddAccessSpecResponse = StatusResponse<MessageType::kAddAccessSpecResponse>;
using EnableAccessSpec = AccessSpecIdRequest<MessageType::kEnableAccessSpec>;
using EnableAccessSpecResponse = StatusResponse<MessageType::kEnableAccessSpecResponse>;
using DisableAccessSpec = AccessSpecIdRequest<MessageType::kDisableAccessSpec>;
using DisableAccessSpecResponse = StatusResponse<MessageType::kDisableAccessSpecResponse>;
using GetAccessSpecs = EmptyMessage<MessageType::kGetAccessSpecs>;
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
                 KeepaliveAck, ErrorMessage, CustomMessage, GetROSpecs, GetROSpecsResponse,
                 AddAccessSpec, AddAccessSpecResponse, EnableAccessSpec, EnableAccessSpecResponse,
                 DisableAccessSpec, DisableAccessSpecResponse, GetAccessSpecs,
                 GetAccessSpecsResponse>;

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
    case MessageType::kGetROSpecs:
      return "GET_ROSPECS";
    case MessageType::kGetROSpecsResponse:
      return "GET_ROSPECS_RESPONSE";
    case MessageType::kAddAccessSpec:
      return "ADD_ACCESSSPEC";
    case MessageType::kAddAccessSpecResponse:
      return "ADD_ACCESSSPEC_RESPONSE";
    case MessageType::kEnableAccessSpec:
      return "ENABLE_ACCESSSPEC";
    case MessageType::kEnableAccessSpecResponse:
      return "ENABLE_ACCESSSPEC_RESPONSE";
    case MessageType::kDisableAccessSpec:
      return "DISABLE_ACCESSSPEC";
    case MessageType::kDisableAccessSpecResponse:
      return "DISABLE_ACCESSSPEC_RESPONSE";
    case MessageType::kGetAccessSpecs:
      return "GET_ACCESSSPECS";
    case MessageType::kGetAccessSpecsResponse:
      return "GET_ACCESSSPECS_RESPONSE";
  }
  return "UNKNOWN";
}
// The LLRP name of a status code ("M_Success"), or "Unknown".
const char* statusCodeName(StatusCode code);
// The EPC bytes of a tag report's EPC parameter, whichever form it takes.
std::span<const uint8_t> epcBytes(const EPCParameter& epc);

}  // namespace tessera::llrp
