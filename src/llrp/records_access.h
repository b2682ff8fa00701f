// src/llrp/records_access.h — LLRP tag access (AccessSpec, OpSpecs, their results) and the RF
// survey, as plain typed records.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "llrp/records_common.h"
#include "llrp/records_config.h"

namespace tessera::llrp {

enum class AccessSpecState : uint8_t { kDisabled = 0, kActive = 1 };  // u1 on the wire
enum class AccessSpecStopTriggerType : uint8_t { kNull = 0, kOperationCount = 1 };
enum class C1G2LockPrivilege : uint8_t {
  kReadWrite = 0,
  kPermaLock = 1,
  kPermaUnlock = 2,
  kUnlock = 3,
};
enum class C1G2LockDataField : uint8_t {
  kKillPassword = 0,
  kAccessPassword = 1,
  kEPCMemory = 2,
  kTIDMemory = 3,
  kUserMemory = 4,
};
// The result codes of the OpSpecs that read or write tag memory; kill and lock share the
// first and last values and number the rest as LLRP lists them.
enum class C1G2ReadResultType : uint8_t {
  kSuccess = 0,
  kNonspecificTagError = 1,
  kNoResponseFromTag = 2,
  kNonspecificReaderError = 3,
};
enum class C1G2WriteResultType : uint8_t {
  kSuccess = 0,
  kTagMemoryOverrunError = 1,
  kTagMemoryLockedError = 2,
  kInsufficientPower = 3,
  kNonspecificTagError = 4,
  kNoResponseFromTag = 5,
  kNonspecificReaderError = 6,
};
enum class C1G2KillResultType : uint8_t {
  kSuccess = 0,
  kZeroKillPasswordError = 1,
  kInsufficientPower = 2,
  kNonspecificTagError = 3,
  kNoResponseFromTag = 4,
  kNonspecificReaderError = 5,
};
enum class C1G2LockResultType : uint8_t {
  kSuccess = 0,
  kInsufficientPower = 1,
  kNonspecificTagError = 2,
  kNoResponseFromTag = 3,
  kNonspecificReaderError = 4,
};

// ---------------------------------------------------------------------------------------------
// RF survey reports
// ---------------------------------------------------------------------------------------------

struct FrequencyRSSILevelEntry {  // 243
  uint32_t frequency = 0;         // kHz
  uint32_t bandwidth = 0;         // kHz
  int8_t averageRSSI = 0;         // dBm
  int8_t peakRSSI = 0;            // dBm
  Timestamp timestamp;
  bool operator==(const FrequencyRSSILevelEntry&) const = default;
};

struct RFSurveyReportData {  // 242
  std::optional<uint32_t> roSpecId;
  std::optional<uint16_t> specIndex;
  std::vector<FrequencyRSSILevelEntry> frequencyRSSILevelEntries;
  std::vector<Custom> customs;
  bool operator==(const RFSurveyReportData&) const = default;
};

// ---------------------------------------------------------------------------------------------
// Tag access
// ---------------------------------------------------------------------------------------------

struct C1G2TargetTag {  // 339
  uint8_t mb = 0;       // u2 memory bank
  bool match = false;
  uint16_t pointer = 0;
  BitString tagMask;
  BitString tagData;
  bool operator==(const C1G2TargetTag&) const = default;
};

struct C1G2TagSpec {  // 338
  std::vector<C1G2TargetTag> targetTags;
  bool operator==(const C1G2TagSpec&) const = default;
};

struct C1G2Read {  // 341
  uint16_t opSpecId = 0;
  uint32_t accessPassword = 0;
  uint8_t mb = 0;  // u2
  uint16_t wordPointer = 0;
  uint16_t wordCount = 0;
  bool operator==(const C1G2Read&) const = default;
};

struct C1G2Write {  // 342
  uint16_t opSpecId = 0;
  uint32_t accessPassword = 0;
  uint8_t mb = 0;  // u2
  uint16_t wordPointer = 0;
  std::vector<uint16_t> writeData;  // u16v
  bool operator==(const C1G2Write&) const = default;
};

struct C1G2Kill {  // 343
  uint16_t opSpecId = 0;
  uint32_t killPassword = 0;
  bool operator==(const C1G2Kill&) const = default;
};

struct C1G2LockPayload {  // 345
  C1G2LockPrivilege privilege = C1G2LockPrivilege::kReadWrite;
  C1G2LockDataField dataField = C1G2LockDataField::kKillPassword;
  bool operator==(const C1G2LockPayload&) const = default;
};

struct C1G2Lock {  // 344
  uint16_t opSpecId = 0;
  uint32_t accessPassword = 0;
  std::vector<C1G2LockPayload> payloads;
  bool operator==(const C1G2Lock&) const = default;
};

struct C1G2BlockErase {  // 346
  uint16_t opSpecId = 0;
  uint32_t accessPassword = 0;
  uint8_t mb = 0;  // u2
  uint16_t wordPointer = 0;
  uint16_t wordCount = 0;
  bool operator==(const C1G2BlockErase&) const = default;
};

struct C1G2BlockWrite {  // 347
  uint16_t opSpecId = 0;
  uint32_t accessPassword = 0;
  uint8_t mb = 0;  // u2
  uint16_t wordPointer = 0;
  std::vector<uint16_t> writeData;  // u16v
  bool operator==(const C1G2BlockWrite&) const = default;
};

// One operation of an AccessCommand, or a vendor's, in the order the command lists them.
using OpSpec =
    std::variant<C1G2Read, C1G2Write, C1G2Kill, C1G2Lock, C1G2BlockErase, C1G2BlockWrite, Custom>;

struct AccessCommand {  // 209
  C1G2TagSpec tagSpec;
  std::vector<OpSpec> opSpecs;  // Custom parameters after the OpSpecs are kept here too
  bool operator==(const AccessCommand&) const = default;
};

struct AccessSpecStopTrigger {  // 208
  AccessSpecStopTriggerType accessSpecStopTrigger = AccessSpecStopTriggerType::kNull;
  uint16_t operationCountValue = 0;
  bool operator==(const AccessSpecStopTrigger&) const = default;
};

struct AccessSpec {  // 207
  uint32_t accessSpecId = 0;
  uint16_t antennaId = 0;  // 0: every antenna
  AirProtocol protocolId = AirProtocol::kEPCGlobalClass1Gen2;
  AccessSpecState currentState = AccessSpecState::kDisabled;
  uint32_t roSpecId = 0;  // 0: any ROSpec
  AccessSpecStopTrigger accessSpecStopTrigger;
  AccessCommand accessCommand;
  std::optional<AccessReportSpec> accessReportSpec;
  std::vector<Custom> customs;
  bool operator==(const AccessSpec&) const = default;
};

// ---------------------------------------------------------------------------------------------
// OpSpec results, carried in TagReportData
// ---------------------------------------------------------------------------------------------

struct C1G2ReadOpSpecResult {  // 349
  C1G2ReadResultType result = C1G2ReadResultType::kSuccess;
  uint16_t opSpecId = 0;
  std::vector<uint16_t> readData;  // u16v
  bool operator==(const C1G2ReadOpSpecResult&) const = default;
};

struct C1G2WriteOpSpecResult {  // 350
  C1G2WriteResultType result = C1G2WriteResultType::kSuccess;
  uint16_t opSpecId = 0;
  uint16_t numWordsWritten = 0;
  bool operator==(const C1G2WriteOpSpecResult&) const = default;
};

struct C1G2KillOpSpecResult {  // 351
  C1G2KillResultType result = C1G2KillResultType::kSuccess;
  uint16_t opSpecId = 0;
  bool operator==(const C1G2KillOpSpecResult&) const = default;
};

struct C1G2LockOpSpecResult {  // 352
  C1G2LockResultType result = C1G2LockResultType::kSuccess;
  uint16_t opSpecId = 0;
  bool operator==(const C1G2LockOpSpecResult&) const = default;
};

struct C1G2BlockEraseOpSpecResult {  // 353
  C1G2WriteResultType result = C1G2WriteResultType::kSuccess;  // same codes as a write
  uint16_t opSpecId = 0;
  bool operator==(const C1G2BlockEraseOpSpecResult&) const = default;
};

struct C1G2BlockWriteOpSpecResult {  // 354
  C1G2WriteResultType result = C1G2WriteResultType::kSuccess;
  uint16_t opSpecId = 0;
  uint16_t numWordsWritten = 0;
  bool operator==(const C1G2BlockWriteOpSpecResult&) const = default;
};

// The result of one OpSpec. A vendor's result (Custom) is kept in TagReportData::customs.
using OpSpecResult =
    std::variant<C1G2ReadOpSpecResult, C1G2WriteOpSpecResult, C1G2KillOpSpecResult,
                 C1G2LockOpSpecResult, C1G2BlockEraseOpSpecResult, C1G2BlockWriteOpSpecResult>;

}  // namespace tessera::llrp
