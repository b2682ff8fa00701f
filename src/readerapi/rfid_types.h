// src/readerapi/rfid_types.h — the reader API library's own records: statuses, event codes and
// the records its calls fill or take (capabilities, tag storage, singulation, pre-filters, event
// data, error information, connection options). The tag record and the trigger record are shared
// with the service and live in rfid_records.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "readerapi/rfid_records.h"

namespace tessera {

// The handle of one reader connection; 0 means not connected.
using ReaderHandle = uint32_t;

// Result of every call: 0 is success. Numbers are stable (callers print and compare them).
enum RfidStatus : uint32_t {
  RFID_API_SUCCESS = 0,
  RFID_API_INVALID_HANDLE = 1,      // the handle is 0, unknown or already disconnected
  RFID_API_PARAM_ERROR = 2,         // a null pointer or an argument that makes no sense
  RFID_API_PARAM_OUT_OF_RANGE = 3,  // an antenna, index or value the reader does not have
  RFID_API_NO_DATA = 4,             // no buffered tag read, no event data of that kind
  RFID_API_NOT_SUPPORTED = 5,       // the reader does not offer this (e.g. saving its config)
  RFID_API_CALLBACK_CONTEXT = 6,    // a call that waits for the reader, made from the callback
  RFID_API_COMMAND_TIMEOUT = 7,     // the reader did not answer a request in time
  RFID_API_READER_ERROR = 8,        // the reader answered with an error status (see error info)
  RFID_API_PROTOCOL_ERROR = 9,      // the reader's answer could not be understood
  RFID_API_NOT_CONNECTED = 10,      // the connection is lost; RFID_Reconnect restores it
  RFID_API_RESOURCE_LIMIT = 11,     // a library table is full (pre-filters)
  RFID_CONNECTION_REFUSED = 100,    // nothing listens at host:port (TCP refused)
  RFID_CONNECTION_DENIED = 101,     // the reader answered and refused this client
  RFID_CONNECTION_TIMEOUT = 102,    // no TCP connection or no greeting from the reader in time
  RFID_HOST_UNRESOLVED = 103,       // the host text is not an address or known name
  RFID_CONNECTION_FAILED = 104,     // any other socket failure while connecting
  RFID_NOT_AN_LLRP_READER = 105,    // the peer spoke, but not LLRP 1.0.1
};

// Event codes given to RFID_RegisterEventNotificationCallback and passed to the callback.
enum RfidEventType : uint32_t {
  GPI_EVENT = 0,                  // a general-purpose input changed; data: GpiEventData
  TAG_READ_EVENT = 1,             // tag reads were added to the buffer; RFID_GetReadTag them
  BUFFER_FULL_WARNING_EVENT = 2,  // the tag buffer passed 80 % of its size; data: BufferEventData
  ANTENNA_EVENT = 3,            // an antenna was connected or disconnected; data: AntennaEventData
  INVENTORY_START_EVENT = 4,    // the inventory (ROSpec) started; data: InventoryEventData
  INVENTORY_STOP_EVENT = 5,     // the inventory ended or was preempted; data: InventoryEventData
  ACCESS_START_EVENT = 6,       // reserved: this library runs no access operations
  ACCESS_STOP_EVENT = 7,        // reserved: this library runs no access operations
  DISCONNECTION_EVENT = 8,      // the connection ended; data: DisconnectionEventData
  BUFFER_FULL_EVENT = 9,        // the tag buffer is full, new reads are discarded; BufferEventData
  READER_EXCEPTION_EVENT = 10,  // the reader reported an exception; data: ReaderExceptionEventData
  READER_BUFFER_EVENT = 11,  // the reader's own report buffer fills or overflowed; BufferEventData
};
inline constexpr uint32_t kRfidEventTypeCount = 12;

// Called on the library's receive thread ("rfidRecv") with no library lock held. It may call
// RFID_GetReadTag and RFID_GetEventData; calls that wait for the reader return
// RFID_API_CALLBACK_CONTEXT there.
using RfidEventCallback = void (*)(ReaderHandle handle, uint32_t eventType);
// The same with the context pointer given at registration.
using RfidEventContextCallback = void (*)(ReaderHandle handle, uint32_t eventType, void* context);

// Optional tuning of a connection. A block whose flags are 0 means "library defaults" and the
// rest of it is not read, so a caller may hand over a block with only its first byte set.
struct ConnectionSettings {
  uint8_t flags = 0;               // kConnectionUseSettings: read the members below
  uint32_t keepaliveMs = 0;        // reader keepalive period; 0: default (5000 ms)
  uint32_t keepaliveMisses = 0;    // periods of silence that mean a lost link; 0: default (3)
  uint32_t responseTimeoutMs = 0;  // wait for each reply; 0: default (5000 ms)
  uint32_t greetingTimeoutMs =
      0;  // wait for the reader's ConnectionAttemptEvent; 0: default (5000 ms)
};
inline constexpr uint8_t kConnectionUseSettings = 0x01;
static_assert(sizeof(ConnectionSettings) <= 56, "callers allocate 56 bytes for the settings block");

// The fifth argument of RFID_ConnectW.
struct ConnectionOptions {
  uint32_t version = 2;                    // layout version; 2 is the only one
  ConnectionSettings* settings = nullptr;  // may be null: defaults
};

// Reader capabilities, filled at connect from GET_READER_CAPABILITIES.
inline constexpr uint32_t kMaxPowerLevels = 256;
inline constexpr uint32_t kMaxSensitivityLevels = 128;
struct ReaderCaps {
  uint16_t numAntennas = 0;          // antenna ports 1..numAntennas
  uint16_t numGpis = 0;              // general-purpose inputs 1..numGpis
  uint16_t numGpos = 0;              // general-purpose outputs 1..numGpos
  uint32_t manufacturerId = 0;       // IANA enterprise number of the reader's maker
  uint32_t modelId = 0;              // the maker's model number
  wchar_t firmwareVersion[64] = {};  // zero-terminated, cut to fit
  bool hasUtcClock = false;
  bool canSetAntennaProperties = false;
  bool stateAwareSingulation = false;  // C1G2 state-aware filters and singulation possible
  bool canReportBufferFillWarning = false;
  uint32_t maxRoSpecs = 0;  // 0: no limit announced
  uint32_t maxAccessSpecs = 0;
  uint16_t maxSelectFiltersPerQuery = 0;  // pre-filters the reader applies at once; 0: unknown
  uint16_t countryCode = 0;
  uint16_t communicationsStandard = 0;  // LLRP CommunicationsStandard number
  bool hopping = false;                 // frequency hopping region
  uint16_t numChannels = 0;             // channels of the first hop table or the fixed table
  uint16_t numRfModes = 0;              // entries of the C1G2 RF mode table
  // Transmit power table in table order: value n in hundredths of dBm (negative values read as 0)
  // has the power index transmitPowerIndexes[n], the number RFID_SetAntennaConfig takes.
  uint16_t numTransmitPowerLevels = 0;
  uint16_t transmitPowerLevels[kMaxPowerLevels] = {};
  uint16_t transmitPowerIndexes[kMaxPowerLevels] = {};
  // Receive sensitivity table in table order (dB relative to the best sensitivity).
  uint16_t numReceiveSensitivities = 0;
  int16_t receiveSensitivities[kMaxSensitivityLevels] = {};
};

// Which optional fields RFID_GetReadTag fills (TagStorageSettings::tagFields).
enum TagFieldBits : uint16_t {
  TAG_FIELD_ANTENNA_ID = 0x0001,
  TAG_FIELD_FIRST_SEEN_TIME_STAMP = 0x0002,
  TAG_FIELD_LAST_SEEN_TIME_STAMP = 0x0004,
  TAG_FIELD_PC = 0x0008,
  TAG_FIELD_PEAK_RSSI = 0x0010,
  TAG_FIELD_TAG_SEEN_COUNT = 0x0020,
  TAG_FIELD_CRC = 0x0040,
  TAG_FIELD_PHASE_INFO = 0x0100,  // vendor-reported RF phase (readers that send one)
  TAG_FIELD_CHANNEL_INDEX = 0x1000,
};
inline constexpr uint16_t kDefaultTagFields =
    TAG_FIELD_ANTENNA_ID | TAG_FIELD_FIRST_SEEN_TIME_STAMP | TAG_FIELD_LAST_SEEN_TIME_STAMP |
    TAG_FIELD_PC | TAG_FIELD_PEAK_RSSI | TAG_FIELD_TAG_SEEN_COUNT;

// How the library keeps tag reads between the reader and RFID_GetReadTag.
struct TagStorageSettings {
  uint32_t maxTagCount = 4096;  // reads kept; when full, new reads are discarded (1..262144)
  uint32_t maxSizeEpc = kMaxTagIdBytes;  // EPC bytes kept per read (longer EPCs are cut)
  uint32_t maxSizeMemoryBank = 0;        // memory bank bytes kept per read (no access ops: unused)
  uint16_t tagFields = kDefaultTagFields;   // TagFieldBits: what the reader is asked to report
  bool discardTagsOnInventoryStop = false;  // drop unread reads when an inventory is stopped
};
static_assert(offsetof(TagStorageSettings, tagFields) == 12, "tag field mask sits at byte 12");

// Gen2 singulation of one antenna; applied to the next RFID_PerformInventory.
struct SingulationControl {
  uint32_t session = 0;           // Gen2 session 0..3
  uint16_t tagPopulation = 32;    // expected tags in the field
  uint32_t tagTransitTimeMs = 0;  // expected time a tag stays in the field; 0: unknown
  bool stateAware = false;        // state-aware singulation and pre-filters (reader must support)
  uint32_t inventoryState = 0;    // state-aware: 0 tags in state A take part, 1 state B
  uint32_t slFlag = 0;            // state-aware: 0 tags with SL asserted, 1 not asserted
};

// One pre-filter: a Gen2 Select on a memory bank pattern, applied to the next inventory.
inline constexpr uint32_t kMaxPreFilters = 32;
inline constexpr uint32_t kMaxPreFilterBits = 512;
enum PreFilterType : uint32_t {
  PREFILTER_STATE_AWARE =
      1,  // target + stateAwareAction (LLRP C1G2TagInventoryStateAwareFilterAction)
  PREFILTER_STATE_UNAWARE =
      2,  // stateUnawareAction (LLRP C1G2TagInventoryStateUnawareFilterAction)
};
struct PreFilter {
  uint32_t memoryBank = 1;           // 0 reserved, 1 EPC, 2 TID, 3 user
  const uint8_t* pattern = nullptr;  // pattern bytes, most significant first (copied by the call)
  uint16_t patternBitCount = 0;      // bits of the pattern (at most kMaxPreFilterBits)
  uint16_t bitOffset = 0;            // first bit in the bank (EPC bank: 32 is the first EPC bit)
  uint32_t filterType = PREFILTER_STATE_UNAWARE;
  union {
    uint32_t target;              // state-aware: 0 SL flag, 1..4 inventoried flag of S0..S3
    uint32_t stateUnawareAction;  // state-unaware: 0 select/unselect .. 5 nothing/select (LLRP)
  };
  uint32_t stateAwareAction = 0;  // state-aware: LLRP C1G2StateAwareAction 0..7
};

// A filter applied by the library to arriving reads (RFID_PerformInventory's first argument).
struct PostFilter {
  const uint8_t* epcPattern = nullptr;  // reads whose EPC has these bits at epcBitOffset pass
  uint16_t patternBitCount = 0;         // 0: no EPC match
  uint16_t epcBitOffset = 0;            // counted from the first EPC bit
  bool matchRssi = false;               // reads with peak RSSI in [rssiMin, rssiMax] pass
  int8_t rssiMin = -128;
  int8_t rssiMax = 127;
};

// The antennas of an inventory (RFID_PerformInventory's second argument); null: every antenna.
struct AntennaInfo {
  const uint16_t* antennaIds = nullptr;
  uint32_t count = 0;
};

// Event data, filled by RFID_GetEventData for the latest event of a kind.
enum GpiState : uint8_t {
  GPI_PORT_STATE_LOW = 0,
  GPI_PORT_STATE_HIGH = 1,
  GPI_PORT_STATE_UNKNOWN = 2
};
struct GpiEventData {
  uint16_t port = 0;  // 1-based GPI port
  uint8_t state = 0;  // GpiState
};
static_assert(offsetof(GpiEventData, state) == 2);

enum DisconnectionReason : uint32_t {
  READER_INITIATED_DISCONNECTION = 0,  // the reader closed the connection and said so
  CONNECTION_LOST = 1,                 // TCP error, end of stream or keepalives missing
};
struct DisconnectionEventData {
  uint32_t reason = READER_INITIATED_DISCONNECTION;  // DisconnectionReason
};

enum AntennaState : uint8_t { ANTENNA_DISCONNECTED = 0, ANTENNA_CONNECTED = 1 };
struct AntennaEventData {
  uint16_t antennaId = 0;
  uint8_t state = ANTENNA_DISCONNECTED;  // AntennaState
};

enum InventoryEventKind : uint32_t {
  INVENTORY_STARTED = 0,
  INVENTORY_ENDED = 1,
  INVENTORY_PREEMPTED = 2
};
struct InventoryEventData {
  uint32_t roSpecId = 0;
  uint32_t kind = INVENTORY_STARTED;  // InventoryEventKind
};

struct BufferEventData {
  uint32_t tagCount = 0;    // reads held when the event was raised
  uint32_t capacity = 0;    // TagStorageSettings::maxTagCount (0 for the reader's own buffer)
  uint32_t discarded = 0;   // reads discarded since the connection was made
  uint8_t percentFull = 0;  // 0..100 (the reader's own figure for READER_BUFFER_EVENT)
};

struct ReaderExceptionEventData {
  wchar_t message[256] = {};  // the reader's text, zero-terminated, cut to fit
};

// Details of the last failed call of a handle (handle 0: of this thread's last failed connect).
inline constexpr uint32_t kErrorTextChars = 260;
struct ErrorInfo {
  uint32_t status = 0;                          // RfidStatus of the failed call
  uint32_t llrpStatusCode = 0;                  // the reader's LLRPStatus code, 0 when none
  uint16_t fieldNum = 0;                        // FieldError: field number
  uint16_t fieldErrorCode = 0;                  // FieldError: its code
  uint16_t parameterType = 0;                   // ParameterError: LLRP parameter type number
  uint16_t parameterErrorCode = 0;              // ParameterError: its code
  uint32_t messageType = 0;                     // LLRP message that failed, 0 when none
  wchar_t statusDesc[kErrorTextChars] = {};     // what happened: the reader's text or ours
  wchar_t vendorMessage[kErrorTextChars] = {};  // where: message, parameter and field
};
static_assert(offsetof(ErrorInfo, statusDesc) == 20);
static_assert(offsetof(ErrorInfo, vendorMessage) == 1060);

}  // namespace tessera
