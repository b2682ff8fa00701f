// src/llrp/codec.cc — LLRP binary encoder and decoder.
//
// The decoder walks the frame with offsets into the caller's bytes; every read is checked
// against the end of the innermost parameter, every sub-parameter's length against its parent.
// The first failure is recorded in the Decoder and every function then returns false up the
// chain. The encoder appends to the caller's vector and patches each TLV length once the
// parameter's body is written.
#include "llrp/codec.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace tessera::llrp {
namespace {

// TLV parameter type numbers.
enum : uint16_t {
  kUTCTimestamp = 128,
  kUptime = 129,
  kGeneralDeviceCapabilities = 137,
  kReceiveSensitivityTableEntry = 139,
  kPerAntennaAirProtocol = 140,
  kGPIOCapabilities = 141,
  kLLRPCapabilities = 142,
  kRegulatoryCapabilities = 143,
  kUHFBandCapabilities = 144,
  kTransmitPowerLevelTableEntry = 145,
  kFrequencyInformation = 146,
  kFrequencyHopTable = 147,
  kFixedFrequencyTable = 148,
  kPerAntennaReceiveSensitivityRange = 149,
  kROSpec = 177,
  kROBoundarySpec = 178,
  kROSpecStartTrigger = 179,
  kPeriodicTriggerValue = 180,
  kGPITriggerValue = 181,
  kROSpecStopTrigger = 182,
  kAISpec = 183,
  kAISpecStopTrigger = 184,
  kTagObservationTrigger = 185,
  kInventoryParameterSpec = 186,
  kLLRPConfigurationStateValue = 217,
  kIdentification = 218,
  kGPOWriteData = 219,
  kKeepaliveSpec = 220,
  kAntennaProperties = 221,
  kAntennaConfiguration = 222,
  kRFReceiver = 223,
  kRFTransmitter = 224,
  kGPIPortCurrentState = 225,
  kEventsAndReports = 226,
  kROReportSpec = 237,
  kTagReportContentSelector = 238,
  kAccessReportSpec = 239,
  kTagReportData = 240,
  kEPCData = 241,
  kReaderEventNotificationSpec = 244,
  kEventNotificationState = 245,
  kReaderEventNotificationData = 246,
  kHoppingEvent = 247,
  kGPIEvent = 248,
  kROSpecEvent = 249,
  kReportBufferLevelWarningEvent = 250,
  kReportBufferOverflowErrorEvent = 251,
  kReaderExceptionEvent = 252,
  kRFSurveyEvent = 253,
  kAISpecEvent = 254,
  kAntennaEvent = 255,
  kConnectionAttemptEvent = 256,
  kConnectionCloseEvent = 257,
  kLLRPStatus = 287,
  kFieldError = 288,
  kParameterError = 289,
  kC1G2LLRPCapabilities = 327,
  kC1G2UHFRFModeTable = 328,
  kC1G2UHFRFModeTableEntry = 329,
  kC1G2InventoryCommand = 330,
  kC1G2Filter = 331,
  kC1G2TagInventoryMask = 332,
  kC1G2TagInventoryStateAwareFilterAction = 333,
  kC1G2TagInventoryStateUnawareFilterAction = 334,
  kC1G2RFControl = 335,
  kC1G2SingulationControl = 336,
  kC1G2TagInventoryStateAwareSingulationAction = 337,
  kC1G2EPCMemorySelector = 348,
  kCustom = 1023,
};

// TV parameter type numbers.
enum : uint8_t {
  kTvAntennaID = 1,
  kTvFirstSeenTimestampUTC = 2,
  kTvFirstSeenTimestampUptime = 3,
  kTvLastSeenTimestampUTC = 4,
  kTvLastSeenTimestampUptime = 5,
  kTvPeakRSSI = 6,
  kTvChannelIndex = 7,
  kTvTagSeenCount = 8,
  kTvROSpecID = 9,
  kTvInventoryParameterSpecID = 10,
  kTvC1G2CRC = 11,
  kTvC1G2PC = 12,
  kTvEPC96 = 13,
  kTvSpecIndex = 14,
  kTvAccessSpecID = 16,
  kTvOpSpecID = 17,
  kTvC1G2SingulationDetails = 18,
};

// Value width of each TV type; 0 for types LLRP 1.0.1 does not define.
constexpr uint8_t kTvWidth[128] = {
    0, 2, 8, 8, 8, 8, 1, 2, 2, 4, 2, 2, 2, 12, 2, 0, 4, 2, 4,
};

// TLV types below this number do not exist: the range belongs to TV parameters.
constexpr uint16_t kFirstTlvType = 128;

inline uint16_t load16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }
inline uint32_t load32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
inline uint64_t load64(const uint8_t* p) { return (uint64_t{load32(p)} << 32) | load32(p + 4); }

// ----------------------------------------------------------------------------------------------
// Decoding
// ----------------------------------------------------------------------------------------------

// A half-open byte range of the frame.
struct Range {
  uint32_t begin = 0;
  uint32_t end = 0;
};

struct Decoder {
  const uint8_t* frame = nullptr;
  Error err;
  int depth = 0;

  bool fail(ErrorCode code, uint32_t offset, const char* parameter, const char* field,
            uint16_t parameterType = 0) {
    if (err.ok()) {
      err.code = code;
      err.offset = offset;
      err.parameter = parameter;
      err.field = field;
      err.parameterType = parameterType;
    }
    return false;
  }
};

// Reads the fixed fields at the start of a parameter or message body.
class Fields {
 public:
  Fields(Decoder& d, Range r, const char* name) : d_(d), pos_(r.begin), end_(r.end), name_(name) {}

  uint32_t pos() const { return pos_; }

  bool u8(const char* field, uint8_t& v) {
    if (!need(1, field)) return false;
    v = d_.frame[pos_++];
    return true;
  }
  bool s8(const char* field, int8_t& v) {
    uint8_t u = 0;
    if (!u8(field, u)) return false;
    v = static_cast<int8_t>(u);
    return true;
  }
  bool u16(const char* field, uint16_t& v) {
    if (!need(2, field)) return false;
    v = load16(d_.frame + pos_);
    pos_ += 2;
    return true;
  }
  bool s16(const char* field, int16_t& v) {
    uint16_t u = 0;
    if (!u16(field, u)) return false;
    v = static_cast<int16_t>(u);
    return true;
  }
  bool u32(const char* field, uint32_t& v) {
    if (!need(4, field)) return false;
    v = load32(d_.frame + pos_);
    pos_ += 4;
    return true;
  }
  bool u64(const char* field, uint64_t& v) {
    if (!need(8, field)) return false;
    v = load64(d_.frame + pos_);
    pos_ += 8;
    return true;
  }
  // A u1 field in the top bit of a byte whose other bits are reserved or read separately.
  bool flag8(const char* field, bool& v) {
    uint8_t b = 0;
    if (!u8(field, b)) return false;
    v = (b & 0x80) != 0;
    return true;
  }
  template <typename E>
  bool enum8(const char* field, E& v) {
    uint8_t u = 0;
    if (!u8(field, u)) return false;
    v = static_cast<E>(u);
    return true;
  }
  template <typename E>
  bool enum16(const char* field, E& v) {
    uint16_t u = 0;
    if (!u16(field, u)) return false;
    v = static_cast<E>(u);
    return true;
  }
  bool utf8v(const char* field, std::string& v) {
    uint16_t n = 0;
    if (!u16(field, n) || !need(n, field)) return false;
    v.assign(reinterpret_cast<const char*>(d_.frame + pos_), n);
    pos_ += n;
    return true;
  }
  bool u1v(const char* field, BitString& v) {
    if (!u16(field, v.bitCount)) return false;
    const uint32_t n = (uint32_t{v.bitCount} + 7) / 8;
    if (!need(n, field)) return false;
    v.bytes.assign(d_.frame + pos_, d_.frame + pos_ + n);
    pos_ += n;
    return true;
  }
  bool bytesToEnd(std::vector<uint8_t>& v) {
    v.assign(d_.frame + pos_, d_.frame + end_);
    pos_ = end_;
    return true;
  }
  template <typename T>
  bool vector8(const char* field, std::vector<T>& v) {
    uint16_t n = 0;
    if (!u16(field, n) || !need(n, field)) return false;
    v.resize(n);
    for (uint16_t i = 0; i < n; ++i) v[i] = static_cast<T>(d_.frame[pos_ + i]);
    pos_ += n;
    return true;
  }
  bool u16v(const char* field, std::vector<uint16_t>& v) {
    uint16_t n = 0;
    if (!u16(field, n) || !need(uint32_t{n} * 2, field)) return false;
    v.resize(n);
    for (uint16_t i = 0; i < n; ++i) v[i] = load16(d_.frame + pos_ + 2u * i);
    pos_ += uint32_t{n} * 2;
    return true;
  }
  bool u32v(const char* field, std::vector<uint32_t>& v) {
    uint16_t n = 0;
    if (!u16(field, n) || !need(uint32_t{n} * 4, field)) return false;
    v.resize(n);
    for (uint16_t i = 0; i < n; ++i) v[i] = load32(d_.frame + pos_ + 4u * i);
    pos_ += uint32_t{n} * 4;
    return true;
  }
  // The parameter must end exactly after its fields.
  bool done() {
    if (pos_ == end_) return true;
    return d_.fail(ErrorCode::kBadLength, pos_, name_, "bytes after the last field");
  }

 private:
  bool need(uint32_t n, const char* field) {
    if (end_ - pos_ >= n) return true;
    return d_.fail(ErrorCode::kTruncated, pos_, name_, field);
  }

  Decoder& d_;
  uint32_t pos_;
  uint32_t end_;
  const char* name_;
};

// Walks the sub-parameters of a parameter or message body, one nesting level deeper.
class Params {
 public:
  Params(Decoder& d, uint32_t begin, uint32_t end, const char* name)
      : d_(d), pos_(begin), end_(end), name_(name) {
    if (++d_.depth > kMaxDepth) {
      d_.fail(ErrorCode::kTooDeep, begin, name, "");
      end_ = pos_;  // nothing to walk
    }
  }
  ~Params() { --d_.depth; }
  Params(const Params&) = delete;
  Params& operator=(const Params&) = delete;

  // Steps to the next sub-parameter of a known shape: TV types are checked for a known width,
  // TLV lengths against the header size and the parent. False at the end or on failure.
  // Callers stop at the first failure of their own, so the loop only has to stop at its own.
  [[gnu::always_inline]] bool next() {
    while (pos_ < end_) {
      start = pos_;
      const uint8_t* p = d_.frame + pos_;
      if (p[0] & 0x80) {
        type = p[0] & 0x7f;
        tv = true;
        const uint8_t width = kTvWidth[type];
        if (width == 0) return d_.fail(ErrorCode::kUnknownTvType, pos_, name_, "", type);
        if (end_ - pos_ - 1 < width)
          return d_.fail(ErrorCode::kBadLength, pos_, name_, "TV value past the parent", type);
        body = Range{pos_ + 1, pos_ + 1 + width};
        pos_ = body.end;
        return true;
      }
      if (end_ - pos_ < 4) return d_.fail(ErrorCode::kTruncated, pos_, name_, "parameter header");
      type = load16(p) & 0x3ff;
      tv = false;
      const uint16_t length = load16(p + 2);
      if (length < 4)
        return d_.fail(ErrorCode::kBadLength, pos_ + 2, name_, "parameter length below 4", type);
      if (length > end_ - pos_)
        return d_.fail(ErrorCode::kBadLength, pos_ + 2, name_, "parameter longer than its parent",
                       type);
      body = Range{pos_ + 4, pos_ + length};
      pos_ += length;
      if (type >= kFirstTlvType) return true;
      // A TLV in the TV number range is no parameter of ours: skip it.
    }
    return false;
  }
  bool ok() const { return d_.err.ok(); }
  // Records that a sub-parameter allowed once appears again.
  bool duplicate(const char* field) {
    return d_.fail(ErrorCode::kDuplicateParameter, start, name_, field, type);
  }
  // Reads the fixed value of the current TV parameter.
  const uint8_t* value() const { return d_.frame + body.begin; }

  uint16_t type = 0;
  bool tv = false;
  uint32_t start = 0;
  Range body;

 private:
  Decoder& d_;
  uint32_t pos_;
  uint32_t end_;
  const char* name_;
};

// Claims an optional sub-parameter slot; false (duplicate) when it is already filled.
template <typename T>
bool claim(Params& it, std::optional<T>& slot, const char* field) {
  if (slot) return it.duplicate(field);
  slot.emplace();
  return true;
}

// The next element of a list being decoded. An element left from an earlier decode into the
// same Message is reused, keeping its buffers, so that a client decoding report after report
// into one Message stops allocating once the first reports have been seen; trim() drops what
// this decode did not use.
template <typename T>
T& slot(std::vector<T>& list, size_t& used) {
  if (used < list.size()) return list[used++];
  ++used;
  return list.emplace_back();
}
template <typename T>
void trim(std::vector<T>& list, size_t used) {
  if (used < list.size()) list.erase(list.begin() + static_cast<std::ptrdiff_t>(used), list.end());
}

bool missing(Decoder& d, Range r, const char* parameter, const char* field) {
  return d.fail(ErrorCode::kMissingParameter, r.begin >= 4 ? r.begin - 4 : r.begin, parameter,
                field);
}

// A TV value stored into an optional member.
template <typename T>
bool tvValue(Params& it, std::optional<T>& slot, const char* field) {
  if (slot) return it.duplicate(field);
  const uint8_t* p = it.value();
  if constexpr (sizeof(T) == 1) {
    slot = static_cast<T>(p[0]);
  } else if constexpr (sizeof(T) == 2) {
    slot = static_cast<T>(load16(p));
  } else if constexpr (sizeof(T) == 4) {
    slot = static_cast<T>(load32(p));
  } else {
    slot = static_cast<T>(load64(p));
  }
  return true;
}

bool decodeCustom(Decoder& d, Range r, Custom& out) {
  Fields f(d, r, "Custom");
  return f.u32("VendorIdentifier", out.vendorId) && f.u32("ParameterSubtype", out.subtype) &&
         f.bytesToEnd(out.data);
}

bool decodeFieldError(Decoder& d, Range r, FieldError& out) {
  Fields f(d, r, "FieldError");
  return f.u16("FieldNum", out.fieldNum) && f.enum16("ErrorCode", out.errorCode) && f.done();
}

bool decodeParameterError(Decoder& d, Range r, std::vector<ParameterError>& chain) {
  // The nested levels are appended behind this one and may move it: address it by index.
  const size_t at = chain.size();
  chain.emplace_back();
  Fields f(d, r, "ParameterError");
  if (!f.u16("ParameterType", chain[at].parameterType) ||
      !f.enum16("ErrorCode", chain[at].errorCode))
    return false;
  bool nested = false;
  Params it(d, f.pos(), r.end, "ParameterError");
  while (it.next()) {
    if (it.type == kFieldError) {
      if (!claim(it, chain[at].fieldError, "FieldError") ||
          !decodeFieldError(d, it.body, *chain[at].fieldError))
        return false;
    } else if (it.type == kParameterError) {
      if (nested) return it.duplicate("ParameterError");
      nested = true;
      if (!decodeParameterError(d, it.body, chain)) return false;
    }
  }
  return it.ok();
}

bool decodeLLRPStatus(Decoder& d, Range r, LLRPStatus& out) {
  Fields f(d, r, "LLRPStatus");
  if (!f.enum16("StatusCode", out.statusCode) || !f.utf8v("ErrorDescription", out.errorDescription))
    return false;
  bool haveParameterError = false;
  Params it(d, f.pos(), r.end, "LLRPStatus");
  while (it.next()) {
    if (it.type == kFieldError) {
      if (!claim(it, out.fieldError, "FieldError") ||
          !decodeFieldError(d, it.body, *out.fieldError))
        return false;
    } else if (it.type == kParameterError) {
      if (haveParameterError) return it.duplicate("ParameterError");
      haveParameterError = true;
      if (!decodeParameterError(d, it.body, out.parameterErrors)) return false;
    }
  }
  return it.ok();
}

bool decodeU64Param(Decoder& d, Range r, const char* name, uint64_t& out) {
  Fields f(d, r, name);
  return f.u64("Microseconds", out) && f.done();
}

// ---- capabilities ----

bool decodeGPIOCapabilities(Decoder& d, Range r, GPIOCapabilities& out) {
  Fields f(d, r, "GPIOCapabilities");
  return f.u16("NumGPIs", out.numGPIs) && f.u16("NumGPOs", out.numGPOs) && f.done();
}

bool decodeGeneralDeviceCapabilities(Decoder& d, Range r, GeneralDeviceCapabilities& out) {
  Fields f(d, r, "GeneralDeviceCapabilities");
  uint16_t flags = 0;
  if (!f.u16("MaxNumberOfAntennaSupported", out.maxNumberOfAntennaSupported) ||
      !f.u16("CanSetAntennaProperties", flags) ||
      !f.u32("DeviceManufacturerName", out.deviceManufacturerName) ||
      !f.u32("ModelName", out.modelName) ||
      !f.utf8v("ReaderFirmwareVersion", out.readerFirmwareVersion))
    return false;
  out.canSetAntennaProperties = (flags & 0x8000) != 0;
  out.hasUTCClockCapability = (flags & 0x4000) != 0;
  bool haveGpio = false;
  Params it(d, f.pos(), r.end, "GeneralDeviceCapabilities");
  while (it.next()) {
    switch (it.type) {
      case kReceiveSensitivityTableEntry: {
        auto& e = out.receiveSensitivityTable.emplace_back();
        Fields g(d, it.body, "ReceiveSensitivityTableEntry");
        if (!g.u16("Index", e.index) ||
            !g.s16("ReceiveSensitivityValue", e.receiveSensitivityValue) || !g.done())
          return false;
        break;
      }
      case kPerAntennaReceiveSensitivityRange: {
        auto& e = out.perAntennaReceiveSensitivityRanges.emplace_back();
        Fields g(d, it.body, "PerAntennaReceiveSensitivityRange");
        if (!g.u16("AntennaID", e.antennaId) ||
            !g.u16("ReceiveSensitivityIndexMin", e.receiveSensitivityIndexMin) ||
            !g.u16("ReceiveSensitivityIndexMax", e.receiveSensitivityIndexMax) || !g.done())
          return false;
        break;
      }
      case kGPIOCapabilities:
        if (haveGpio) return it.duplicate("GPIOCapabilities");
        haveGpio = true;
        if (!decodeGPIOCapabilities(d, it.body, out.gpioCapabilities)) return false;
        break;
      case kPerAntennaAirProtocol: {
        auto& e = out.perAntennaAirProtocols.emplace_back();
        Fields g(d, it.body, "PerAntennaAirProtocol");
        if (!g.u16("AntennaID", e.antennaId) || !g.vector8("ProtocolID", e.protocolIds) ||
            !g.done())
          return false;
        break;
      }
      default:
        break;
    }
  }
  if (!it.ok()) return false;
  if (!haveGpio) return missing(d, r, "GeneralDeviceCapabilities", "GPIOCapabilities");
  return true;
}

bool decodeLLRPCapabilities(Decoder& d, Range r, LLRPCapabilities& out) {
  Fields f(d, r, "LLRPCapabilities");
  uint8_t flags = 0;
  if (!f.u8("CanDoRFSurvey", flags)) return false;
  out.canDoRFSurvey = flags & 0x80;
  out.canReportBufferFillWarning = flags & 0x40;
  out.supportsClientRequestOpSpec = flags & 0x20;
  out.canDoTagInventoryStateAwareSingulation = flags & 0x10;
  out.supportsEventAndReportHolding = flags & 0x08;
  return f.u8("MaxNumPriorityLevelsSupported", out.maxNumPriorityLevelsSupported) &&
         f.u16("ClientRequestOpSpecTimeout", out.clientRequestOpSpecTimeout) &&
         f.u32("MaxNumROSpecs", out.maxNumROSpecs) &&
         f.u32("MaxNumSpecsPerROSpec", out.maxNumSpecsPerROSpec) &&
         f.u32("MaxNumInventoryParameterSpecsPerAISpec",
               out.maxNumInventoryParameterSpecsPerAISpec) &&
         f.u32("MaxNumAccessSpecs", out.maxNumAccessSpecs) &&
         f.u32("MaxNumOpSpecsPerAccessSpec", out.maxNumOpSpecsPerAccessSpec) && f.done();
}

bool decodeFrequencyInformation(Decoder& d, Range r, FrequencyInformation& out) {
  Fields f(d, r, "FrequencyInformation");
  if (!f.flag8("Hopping", out.hopping)) return false;
  Params it(d, f.pos(), r.end, "FrequencyInformation");
  while (it.next()) {
    if (it.type == kFrequencyHopTable) {
      auto& e = out.hopTables.emplace_back();
      Fields g(d, it.body, "FrequencyHopTable");
      uint8_t reserved = 0;
      if (!g.u8("HopTableID", e.hopTableId) || !g.u8("Reserved", reserved) ||
          !g.u32v("Frequency", e.frequencies) || !g.done())
        return false;
    } else if (it.type == kFixedFrequencyTable) {
      if (!claim(it, out.fixedFrequencyTable, "FixedFrequencyTable")) return false;
      Fields g(d, it.body, "FixedFrequencyTable");
      if (!g.u32v("Frequency", out.fixedFrequencyTable->frequencies) || !g.done()) return false;
    }
  }
  return it.ok();
}

bool decodeC1G2UHFRFModeTable(Decoder& d, Range r, C1G2UHFRFModeTable& out) {
  Params it(d, r.begin, r.end, "C1G2UHFRFModeTable");
  while (it.next()) {
    if (it.type != kC1G2UHFRFModeTableEntry) continue;
    auto& e = out.entries.emplace_back();
    Fields g(d, it.body, "C1G2UHFRFModeTableEntry");
    uint8_t flags = 0;
    if (!g.u32("ModeIdentifier", e.modeIdentifier) || !g.u8("DRValue", flags) ||
        !g.u8("MValue", e.mValue) || !g.u8("ForwardLinkModulation", e.forwardLinkModulation) ||
        !g.u8("SpectralMaskIndicator", e.spectralMaskIndicator) || !g.u32("BDRValue", e.bdrValue) ||
        !g.u32("PIEValue", e.pieValue) || !g.u32("MinTariValue", e.minTariValue) ||
        !g.u32("MaxTariValue", e.maxTariValue) || !g.u32("StepTariValue", e.stepTariValue) ||
        !g.done())
      return false;
    e.drValue = flags & 0x80;
    e.epcHAGTCConformance = flags & 0x40;
  }
  return it.ok();
}

bool decodeUHFBandCapabilities(Decoder& d, Range r, UHFBandCapabilities& out) {
  bool haveFrequency = false;
  Params it(d, r.begin, r.end, "UHFBandCapabilities");
  while (it.next()) {
    switch (it.type) {
      case kTransmitPowerLevelTableEntry: {
        auto& e = out.transmitPowerLevels.emplace_back();
        Fields g(d, it.body, "TransmitPowerLevelTableEntry");
        if (!g.u16("Index", e.index) || !g.s16("TransmitPowerValue", e.transmitPowerValue) ||
            !g.done())
          return false;
        break;
      }
      case kFrequencyInformation:
        if (haveFrequency) return it.duplicate("FrequencyInformation");
        haveFrequency = true;
        if (!decodeFrequencyInformation(d, it.body, out.frequencyInformation)) return false;
        break;
      case kC1G2UHFRFModeTable:
        if (!claim(it, out.c1g2RFModeTable, "C1G2UHFRFModeTable") ||
            !decodeC1G2UHFRFModeTable(d, it.body, *out.c1g2RFModeTable))
          return false;
        break;
      default:
        break;
    }
  }
  if (!it.ok()) return false;
  if (!haveFrequency) return missing(d, r, "UHFBandCapabilities", "FrequencyInformation");
  return true;
}

bool decodeRegulatoryCapabilities(Decoder& d, Range r, RegulatoryCapabilities& out) {
  Fields f(d, r, "RegulatoryCapabilities");
  if (!f.u16("CountryCode", out.countryCode) ||
      !f.enum16("CommunicationsStandard", out.communicationsStandard))
    return false;
  Params it(d, f.pos(), r.end, "RegulatoryCapabilities");
  while (it.next()) {
    if (it.type == kUHFBandCapabilities) {
      if (!claim(it, out.uhfBandCapabilities, "UHFBandCapabilities") ||
          !decodeUHFBandCapabilities(d, it.body, *out.uhfBandCapabilities))
        return false;
    } else if (it.type == kCustom) {
      if (!decodeCustom(d, it.body, out.customs.emplace_back())) return false;
    }
  }
  return it.ok();
}

bool decodeC1G2LLRPCapabilities(Decoder& d, Range r, C1G2LLRPCapabilities& out) {
  Fields f(d, r, "C1G2LLRPCapabilities");
  uint8_t flags = 0;
  if (!f.u8("CanSupportBlockErase", flags)) return false;
  out.canSupportBlockErase = flags & 0x80;
  out.canSupportBlockWrite = flags & 0x40;
  return f.u16("MaxNumSelectFiltersPerQuery", out.maxNumSelectFiltersPerQuery) && f.done();
}

// ---- configuration ----

bool decodeC1G2Filter(Decoder& d, Range r, C1G2Filter& out) {
  Fields f(d, r, "C1G2Filter");
  uint8_t t = 0;
  if (!f.u8("T", t)) return false;
  out.t = static_cast<C1G2TruncateAction>(t >> 6);
  bool haveMask = false;
  Params it(d, f.pos(), r.end, "C1G2Filter");
  while (it.next()) {
    switch (it.type) {
      case kC1G2TagInventoryMask: {
        if (haveMask) return it.duplicate("C1G2TagInventoryMask");
        haveMask = true;
        auto& m = out.tagInventoryMask;
        Fields g(d, it.body, "C1G2TagInventoryMask");
        uint8_t mb = 0;
        if (!g.u8("MB", mb) || !g.u16("Pointer", m.pointer) || !g.u1v("TagMask", m.tagMask) ||
            !g.done())
          return false;
        m.mb = mb >> 6;
        break;
      }
      case kC1G2TagInventoryStateAwareFilterAction: {
        if (!claim(it, out.stateAwareAction, "C1G2TagInventoryStateAwareFilterAction"))
          return false;
        Fields g(d, it.body, "C1G2TagInventoryStateAwareFilterAction");
        if (!g.enum8("Target", out.stateAwareAction->target) ||
            !g.enum8("Action", out.stateAwareAction->action) || !g.done())
          return false;
        break;
      }
      case kC1G2TagInventoryStateUnawareFilterAction: {
        if (!claim(it, out.stateUnawareAction, "C1G2TagInventoryStateUnawareFilterAction"))
          return false;
        Fields g(d, it.body, "C1G2TagInventoryStateUnawareFilterAction");
        if (!g.enum8("Action", out.stateUnawareAction->action) || !g.done()) return false;
        break;
      }
      default:
        break;
    }
  }
  if (!it.ok()) return false;
  if (!haveMask) return missing(d, r, "C1G2Filter", "C1G2TagInventoryMask");
  return true;
}

bool decodeC1G2SingulationControl(Decoder& d, Range r, C1G2SingulationControl& out) {
  Fields f(d, r, "C1G2SingulationControl");
  uint8_t session = 0;
  if (!f.u8("Session", session) || !f.u16("TagPopulation", out.tagPopulation) ||
      !f.u32("TagTransitTime", out.tagTransitTime))
    return false;
  out.session = session >> 6;
  Params it(d, f.pos(), r.end, "C1G2SingulationControl");
  while (it.next()) {
    if (it.type != kC1G2TagInventoryStateAwareSingulationAction) continue;
    if (!claim(it, out.stateAwareAction, "C1G2TagInventoryStateAwareSingulationAction"))
      return false;
    Fields g(d, it.body, "C1G2TagInventoryStateAwareSingulationAction");
    uint8_t flags = 0;
    if (!g.u8("I", flags) || !g.done()) return false;
    out.stateAwareAction->i = flags & 0x80;
    out.stateAwareAction->s = flags & 0x40;
  }
  return it.ok();
}

bool decodeC1G2InventoryCommand(Decoder& d, Range r, C1G2InventoryCommand& out) {
  Fields f(d, r, "C1G2InventoryCommand");
  if (!f.flag8("TagInventoryStateAware", out.tagInventoryStateAware)) return false;
  Params it(d, f.pos(), r.end, "C1G2InventoryCommand");
  while (it.next()) {
    switch (it.type) {
      case kC1G2Filter:
        if (!decodeC1G2Filter(d, it.body, out.filters.emplace_back())) return false;
        break;
      case kC1G2RFControl: {
        if (!claim(it, out.rfControl, "C1G2RFControl")) return false;
        Fields g(d, it.body, "C1G2RFControl");
        if (!g.u16("ModeIndex", out.rfControl->modeIndex) || !g.u16("Tari", out.rfControl->tari) ||
            !g.done())
          return false;
        break;
      }
      case kC1G2SingulationControl:
        if (!claim(it, out.singulationControl, "C1G2SingulationControl") ||
            !decodeC1G2SingulationControl(d, it.body, *out.singulationControl))
          return false;
        break;
      case kCustom:
        if (!decodeCustom(d, it.body, out.customs.emplace_back())) return false;
        break;
      default:
        break;
    }
  }
  return it.ok();
}

bool decodeAntennaConfiguration(Decoder& d, Range r, AntennaConfiguration& out) {
  Fields f(d, r, "AntennaConfiguration");
  if (!f.u16("AntennaID", out.antennaId)) return false;
  Params it(d, f.pos(), r.end, "AntennaConfiguration");
  while (it.next()) {
    switch (it.type) {
      case kRFReceiver: {
        if (!claim(it, out.rfReceiver, "RFReceiver")) return false;
        Fields g(d, it.body, "RFReceiver");
        if (!g.u16("ReceiverSensitivity", out.rfReceiver->receiverSensitivity) || !g.done())
          return false;
        break;
      }
      case kRFTransmitter: {
        if (!claim(it, out.rfTransmitter, "RFTransmitter")) return false;
        Fields g(d, it.body, "RFTransmitter");
        auto& t = *out.rfTransmitter;
        if (!g.u16("HopTableID", t.hopTableId) || !g.u16("ChannelIndex", t.channelIndex) ||
            !g.u16("TransmitPower", t.transmitPower) || !g.done())
          return false;
        break;
      }
      case kC1G2InventoryCommand:
        if (!decodeC1G2InventoryCommand(d, it.body, out.inventoryCommands.emplace_back()))
          return false;
        break;
      default:
        break;
    }
  }
  return it.ok();
}

bool decodeAntennaProperties(Decoder& d, Range r, AntennaProperties& out) {
  Fields f(d, r, "AntennaProperties");
  return f.flag8("AntennaConnected", out.antennaConnected) && f.u16("AntennaID", out.antennaId) &&
         f.s16("AntennaGain", out.antennaGain) && f.done();
}

bool decodeIdentification(Decoder& d, Range r, Identification& out) {
  Fields f(d, r, "Identification");
  return f.enum8("IDType", out.idType) && f.vector8("ReaderID", out.readerId) && f.done();
}

bool decodeGPIPortCurrentState(Decoder& d, Range r, GPIPortCurrentState& out) {
  Fields f(d, r, "GPIPortCurrentState");
  return f.u16("GPIPortNum", out.gpiPortNum) && f.flag8("Config", out.config) &&
         f.enum8("State", out.state) && f.done();
}

bool decodeGPOWriteData(Decoder& d, Range r, GPOWriteData& out) {
  Fields f(d, r, "GPOWriteData");
  return f.u16("GPOPortNumber", out.gpoPortNumber) && f.flag8("GPOData", out.gpoData) && f.done();
}

bool decodeKeepaliveSpec(Decoder& d, Range r, KeepaliveSpec& out) {
  Fields f(d, r, "KeepaliveSpec");
  return f.enum8("KeepaliveTriggerType", out.keepaliveTriggerType) &&
         f.u32("PeriodicTriggerValue", out.periodicTriggerValue) && f.done();
}

bool decodeEventsAndReports(Decoder& d, Range r, EventsAndReports& out) {
  Fields f(d, r, "EventsAndReports");
  return f.flag8("HoldEventsAndReportsUponReconnect", out.holdEventsAndReportsUponReconnect) &&
         f.done();
}

bool decodeAccessReportSpec(Decoder& d, Range r, AccessReportSpec& out) {
  Fields f(d, r, "AccessReportSpec");
  return f.enum8("AccessReportTrigger", out.accessReportTrigger) && f.done();
}

bool decodeLLRPConfigurationStateValue(Decoder& d, Range r, uint32_t& out) {
  Fields f(d, r, "LLRPConfigurationStateValue");
  return f.u32("LLRPConfigurationStateValue", out) && f.done();
}

bool decodeTagReportContentSelector(Decoder& d, Range r, TagReportContentSelector& out) {
  Fields f(d, r, "TagReportContentSelector");
  uint16_t flags = 0;
  if (!f.u16("EnableROSpecID", flags)) return false;
  out.enableROSpecId = flags & 0x8000;
  out.enableSpecIndex = flags & 0x4000;
  out.enableInventoryParameterSpecId = flags & 0x2000;
  out.enableAntennaId = flags & 0x1000;
  out.enableChannelIndex = flags & 0x0800;
  out.enablePeakRSSI = flags & 0x0400;
  out.enableFirstSeenTimestamp = flags & 0x0200;
  out.enableLastSeenTimestamp = flags & 0x0100;
  out.enableTagSeenCount = flags & 0x0080;
  out.enableAccessSpecId = flags & 0x0040;
  Params it(d, f.pos(), r.end, "TagReportContentSelector");
  while (it.next()) {
    if (it.type != kC1G2EPCMemorySelector) continue;
    auto& s = out.epcMemorySelectors.emplace_back();
    Fields g(d, it.body, "C1G2EPCMemorySelector");
    uint8_t bits = 0;
    if (!g.u8("EnableCRC", bits) || !g.done()) return false;
    s.enableCRC = bits & 0x80;
    s.enablePCBits = bits & 0x40;
  }
  return it.ok();
}

bool decodeROReportSpec(Decoder& d, Range r, ROReportSpec& out) {
  Fields f(d, r, "ROReportSpec");
  if (!f.enum8("ROReportTrigger", out.roReportTrigger) || !f.u16("N", out.n)) return false;
  bool haveSelector = false;
  Params it(d, f.pos(), r.end, "ROReportSpec");
  while (it.next()) {
    if (it.type == kTagReportContentSelector) {
      if (haveSelector) return it.duplicate("TagReportContentSelector");
      haveSelector = true;
      if (!decodeTagReportContentSelector(d, it.body, out.tagReportContentSelector)) return false;
    } else if (it.type == kCustom) {
      if (!decodeCustom(d, it.body, out.customs.emplace_back())) return false;
    }
  }
  if (!it.ok()) return false;
  if (!haveSelector) return missing(d, r, "ROReportSpec", "TagReportContentSelector");
  return true;
}

bool decodeReaderEventNotificationSpec(Decoder& d, Range r, ReaderEventNotificationSpec& out) {
  Params it(d, r.begin, r.end, "ReaderEventNotificationSpec");
  while (it.next()) {
    if (it.type != kEventNotificationState) continue;
    auto& s = out.eventNotificationStates.emplace_back();
    Fields g(d, it.body, "EventNotificationState");
    if (!g.enum16("EventType", s.eventType) || !g.flag8("NotificationState", s.notificationState) ||
        !g.done())
      return false;
  }
  return it.ok();
}

// ---- ROSpec ----

bool decodeGPITriggerValue(Decoder& d, Range r, GPITriggerValue& out) {
  Fields f(d, r, "GPITriggerValue");
  return f.u16("GPIPortNum", out.gpiPortNum) && f.flag8("GPIEvent", out.gpiEvent) &&
         f.u32("Timeout", out.timeout) && f.done();
}

bool decodeROSpecStartTrigger(Decoder& d, Range r, ROSpecStartTrigger& out) {
  Fields f(d, r, "ROSpecStartTrigger");
  if (!f.enum8("ROSpecStartTriggerType", out.roSpecStartTriggerType)) return false;
  Params it(d, f.pos(), r.end, "ROSpecStartTrigger");
  while (it.next()) {
    if (it.type == kPeriodicTriggerValue) {
      if (!claim(it, out.periodicTriggerValue, "PeriodicTriggerValue")) return false;
      auto& p = *out.periodicTriggerValue;
      Fields g(d, it.body, "PeriodicTriggerValue");
      if (!g.u32("Offset", p.offset) || !g.u32("Period", p.period)) return false;
      Params sub(d, g.pos(), it.body.end, "PeriodicTriggerValue");
      while (sub.next()) {
        if (sub.type != kUTCTimestamp) continue;
        if (!claim(sub, p.utcTimestamp, "UTCTimestamp") ||
            !decodeU64Param(d, sub.body, "UTCTimestamp", *p.utcTimestamp))
          return false;
      }
      if (!sub.ok()) return false;
    } else if (it.type == kGPITriggerValue) {
      if (!claim(it, out.gpiTriggerValue, "GPITriggerValue") ||
          !decodeGPITriggerValue(d, it.body, *out.gpiTriggerValue))
        return false;
    }
  }
  return it.ok();
}

bool decodeROSpecStopTrigger(Decoder& d, Range r, ROSpecStopTrigger& out) {
  Fields f(d, r, "ROSpecStopTrigger");
  if (!f.enum8("ROSpecStopTriggerType", out.roSpecStopTriggerType) ||
      !f.u32("DurationTriggerValue", out.durationTriggerValue))
    return false;
  Params it(d, f.pos(), r.end, "ROSpecStopTrigger");
  while (it.next()) {
    if (it.type != kGPITriggerValue) continue;
    if (!claim(it, out.gpiTriggerValue, "GPITriggerValue") ||
        !decodeGPITriggerValue(d, it.body, *out.gpiTriggerValue))
      return false;
  }
  return it.ok();
}

bool decodeROBoundarySpec(Decoder& d, Range r, ROBoundarySpec& out) {
  bool haveStart = false;
  bool haveStop = false;
  Params it(d, r.begin, r.end, "ROBoundarySpec");
  while (it.next()) {
    if (it.type == kROSpecStartTrigger) {
      if (haveStart) return it.duplicate("ROSpecStartTrigger");
      haveStart = true;
      if (!decodeROSpecStartTrigger(d, it.body, out.roSpecStartTrigger)) return false;
    } else if (it.type == kROSpecStopTrigger) {
      if (haveStop) return it.duplicate("ROSpecStopTrigger");
      haveStop = true;
      if (!decodeROSpecStopTrigger(d, it.body, out.roSpecStopTrigger)) return false;
    }
  }
  if (!it.ok()) return false;
  if (!haveStart) return missing(d, r, "ROBoundarySpec", "ROSpecStartTrigger");
  if (!haveStop) return missing(d, r, "ROBoundarySpec", "ROSpecStopTrigger");
  return true;
}

bool decodeAISpecStopTrigger(Decoder& d, Range r, AISpecStopTrigger& out) {
  Fields f(d, r, "AISpecStopTrigger");
  if (!f.enum8("AISpecStopTriggerType", out.aiSpecStopTriggerType) ||
      !f.u32("DurationTrigger", out.durationTrigger))
    return false;
  Params it(d, f.pos(), r.end, "AISpecStopTrigger");
  while (it.next()) {
    if (it.type == kGPITriggerValue) {
      if (!claim(it, out.gpiTriggerValue, "GPITriggerValue") ||
          !decodeGPITriggerValue(d, it.body, *out.gpiTriggerValue))
        return false;
    } else if (it.type == kTagObservationTrigger) {
      if (!claim(it, out.tagObservationTrigger, "TagObservationTrigger")) return false;
      auto& t = *out.tagObservationTrigger;
      Fields g(d, it.body, "TagObservationTrigger");
      uint8_t reserved = 0;
      if (!g.enum8("TriggerType", t.triggerType) || !g.u8("Reserved", reserved) ||
          !g.u16("NumberOfTags", t.numberOfTags) ||
          !g.u16("NumberOfAttempts", t.numberOfAttempts) || !g.u16("T", t.t) ||
          !g.u32("Timeout", t.timeout) || !g.done())
        return false;
    }
  }
  return it.ok();
}

bool decodeInventoryParameterSpec(Decoder& d, Range r, InventoryParameterSpec& out) {
  Fields f(d, r, "InventoryParameterSpec");
  if (!f.u16("InventoryParameterSpecID", out.inventoryParameterSpecId) ||
      !f.enum8("ProtocolID", out.protocolId))
    return false;
  Params it(d, f.pos(), r.end, "InventoryParameterSpec");
  while (it.next()) {
    if (it.type == kAntennaConfiguration) {
      if (!decodeAntennaConfiguration(d, it.body, out.antennaConfigurations.emplace_back()))
        return false;
    } else if (it.type == kCustom) {
      if (!decodeCustom(d, it.body, out.customs.emplace_back())) return false;
    }
  }
  return it.ok();
}

bool decodeAISpec(Decoder& d, Range r, AISpec& out) {
  Fields f(d, r, "AISpec");
  if (!f.u16v("AntennaIDs", out.antennaIds)) return false;
  bool haveStop = false;
  Params it(d, f.pos(), r.end, "AISpec");
  while (it.next()) {
    switch (it.type) {
      case kAISpecStopTrigger:
        if (haveStop) return it.duplicate("AISpecStopTrigger");
        haveStop = true;
        if (!decodeAISpecStopTrigger(d, it.body, out.aiSpecStopTrigger)) return false;
        break;
      case kInventoryParameterSpec:
        if (!decodeInventoryParameterSpec(d, it.body, out.inventoryParameterSpecs.emplace_back()))
          return false;
        break;
      case kCustom:
        if (!decodeCustom(d, it.body, out.customs.emplace_back())) return false;
        break;
      default:
        break;
    }
  }
  if (!it.ok()) return false;
  if (!haveStop) return missing(d, r, "AISpec", "AISpecStopTrigger");
  return true;
}

bool decodeROSpec(Decoder& d, Range r, ROSpec& out) {
  Fields f(d, r, "ROSpec");
  if (!f.u32("ROSpecID", out.roSpecId) || !f.u8("Priority", out.priority) ||
      !f.enum8("CurrentState", out.currentState))
    return false;
  bool haveBoundary = false;
  Params it(d, f.pos(), r.end, "ROSpec");
  while (it.next()) {
    switch (it.type) {
      case kROBoundarySpec:
        if (haveBoundary) return it.duplicate("ROBoundarySpec");
        haveBoundary = true;
        if (!decodeROBoundarySpec(d, it.body, out.roBoundarySpec)) return false;
        break;
      case kAISpec:
        if (!decodeAISpec(d, it.body, out.aiSpecs.emplace_back())) return false;
        break;
      case kCustom:
        if (!decodeCustom(d, it.body, out.customs.emplace_back())) return false;
        break;
      case kROReportSpec:
        if (!claim(it, out.roReportSpec, "ROReportSpec") ||
            !decodeROReportSpec(d, it.body, *out.roReportSpec))
          return false;
        break;
      default:
        break;
    }
  }
  if (!it.ok()) return false;
  if (!haveBoundary) return missing(d, r, "ROSpec", "ROBoundarySpec");
  return true;
}

// ---- reports and events ----

// Decodes into a TagReportData that may hold an earlier tag: every field is reset here, and
// its Custom list is reused element by element.
bool decodeTagReportData(Decoder& d, Range r, TagReportData& out) {
  out.roSpecId.reset();
  out.specIndex.reset();
  out.inventoryParameterSpecId.reset();
  out.antennaId.reset();
  out.peakRSSI.reset();
  out.channelIndex.reset();
  out.firstSeenTimestampUTC.reset();
  out.firstSeenTimestampUptime.reset();
  out.lastSeenTimestampUTC.reset();
  out.lastSeenTimestampUptime.reset();
  out.tagSeenCount.reset();
  out.c1g2PC.reset();
  out.c1g2CRC.reset();
  out.accessSpecId.reset();
  size_t customs = 0;
  bool haveEpc = false;
  Params it(d, r.begin, r.end, "TagReportData");
  while (it.next()) {
    bool ok = true;
    switch (it.type) {
      case kTvEPC96: {
        if (haveEpc) return it.duplicate("EPC_96");
        haveEpc = true;
        EPC96* e96 = std::get_if<EPC96>(&out.epc);
        if (e96 == nullptr) e96 = &out.epc.emplace<EPC96>();
        std::memcpy(e96->epc.data(), it.value(), 12);
        break;
      }
      case kEPCData: {
        if (haveEpc) return it.duplicate("EPCData");
        haveEpc = true;
        EPCData* data = std::get_if<EPCData>(&out.epc);
        if (data == nullptr) data = &out.epc.emplace<EPCData>();
        Fields g(d, it.body, "EPCData");
        ok = g.u1v("EPC", data->epc) && g.done();
        break;
      }
      case kTvROSpecID:
        ok = tvValue(it, out.roSpecId, "ROSpecID");
        break;
      case kTvSpecIndex:
        ok = tvValue(it, out.specIndex, "SpecIndex");
        break;
      case kTvInventoryParameterSpecID:
        ok = tvValue(it, out.inventoryParameterSpecId, "InventoryParameterSpecID");
        break;
      case kTvAntennaID:
        ok = tvValue(it, out.antennaId, "AntennaID");
        break;
      case kTvPeakRSSI:
        ok = tvValue(it, out.peakRSSI, "PeakRSSI");
        break;
      case kTvChannelIndex:
        ok = tvValue(it, out.channelIndex, "ChannelIndex");
        break;
      case kTvFirstSeenTimestampUTC:
        ok = tvValue(it, out.firstSeenTimestampUTC, "FirstSeenTimestampUTC");
        break;
      case kTvFirstSeenTimestampUptime:
        ok = tvValue(it, out.firstSeenTimestampUptime, "FirstSeenTimestampUptime");
        break;
      case kTvLastSeenTimestampUTC:
        ok = tvValue(it, out.lastSeenTimestampUTC, "LastSeenTimestampUTC");
        break;
      case kTvLastSeenTimestampUptime:
        ok = tvValue(it, out.lastSeenTimestampUptime, "LastSeenTimestampUptime");
        break;
      case kTvTagSeenCount:
        ok = tvValue(it, out.tagSeenCount, "TagSeenCount");
        break;
      case kTvC1G2PC:
        ok = tvValue(it, out.c1g2PC, "C1G2_PC");
        break;
      case kTvC1G2CRC:
        ok = tvValue(it, out.c1g2CRC, "C1G2_CRC");
        break;
      case kTvAccessSpecID:
        ok = tvValue(it, out.accessSpecId, "AccessSpecID");
        break;
      case kCustom:
        ok = decodeCustom(d, it.body, slot(out.customs, customs));
        break;
      default:
        break;
    }
    if (!ok) return false;
  }
  if (!it.ok()) return false;
  trim(out.customs, customs);
  if (!haveEpc) return missing(d, r, "TagReportData", "EPCParameter");
  return true;
}

bool decodeReaderExceptionEvent(Decoder& d, Range r, ReaderExceptionEvent& out) {
  Fields f(d, r, "ReaderExceptionEvent");
  if (!f.utf8v("Message", out.message)) return false;
  Params it(d, f.pos(), r.end, "ReaderExceptionEvent");
  while (it.next()) {
    bool ok = true;
    switch (it.type) {
      case kTvROSpecID:
        ok = tvValue(it, out.roSpecId, "ROSpecID");
        break;
      case kTvSpecIndex:
        ok = tvValue(it, out.specIndex, "SpecIndex");
        break;
      case kTvInventoryParameterSpecID:
        ok = tvValue(it, out.inventoryParameterSpecId, "InventoryParameterSpecID");
        break;
      case kTvAntennaID:
        ok = tvValue(it, out.antennaId, "AntennaID");
        break;
      case kTvAccessSpecID:
        ok = tvValue(it, out.accessSpecId, "AccessSpecID");
        break;
      case kTvOpSpecID:
        ok = tvValue(it, out.opSpecId, "OpSpecID");
        break;
      case kCustom:
        ok = decodeCustom(d, it.body, out.customs.emplace_back());
        break;
      default:
        break;
    }
    if (!ok) return false;
  }
  return it.ok();
}

bool decodeAISpecEvent(Decoder& d, Range r, AISpecEvent& out) {
  Fields f(d, r, "AISpecEvent");
  if (!f.enum8("EventType", out.eventType) || !f.u32("ROSpecID", out.roSpecId) ||
      !f.u16("SpecIndex", out.specIndex))
    return false;
  Params it(d, f.pos(), r.end, "AISpecEvent");
  while (it.next()) {
    if (it.type != kTvC1G2SingulationDetails || !it.tv) continue;
    if (!claim(it, out.singulationDetails, "C1G2SingulationDetails")) return false;
    out.singulationDetails->numCollisionSlots = load16(it.value());
    out.singulationDetails->numEmptySlots = load16(it.value() + 2);
  }
  return it.ok();
}

bool decodeReaderEventNotificationData(Decoder& d, Range r, ReaderEventNotificationData& out) {
  bool haveTimestamp = false;
  Params it(d, r.begin, r.end, "ReaderEventNotificationData");
  while (it.next()) {
    bool ok = true;
    switch (it.type) {
      case kUTCTimestamp:
      case kUptime:
        if (haveTimestamp) return it.duplicate("Timestamp");
        haveTimestamp = true;
        out.timestamp.uptime = it.type == kUptime;
        ok = decodeU64Param(d, it.body, it.type == kUptime ? "Uptime" : "UTCTimestamp",
                            out.timestamp.microseconds);
        break;
      case kHoppingEvent: {
        if (!claim(it, out.hoppingEvent, "HoppingEvent")) return false;
        Fields g(d, it.body, "HoppingEvent");
        ok = g.u16("HopTableID", out.hoppingEvent->hopTableId) &&
             g.u16("NextChannelIndex", out.hoppingEvent->nextChannelIndex) && g.done();
        break;
      }
      case kGPIEvent: {
        if (!claim(it, out.gpiEvent, "GPIEvent")) return false;
        Fields g(d, it.body, "GPIEvent");
        ok = g.u16("GPIPortNumber", out.gpiEvent->gpiPortNumber) &&
             g.flag8("GPIEvent", out.gpiEvent->gpiEvent) && g.done();
        break;
      }
      case kROSpecEvent: {
        if (!claim(it, out.roSpecEvent, "ROSpecEvent")) return false;
        Fields g(d, it.body, "ROSpecEvent");
        auto& e = *out.roSpecEvent;
        ok = g.enum8("EventType", e.eventType) && g.u32("ROSpecID", e.roSpecId) &&
             g.u32("PreemptingROSpecID", e.preemptingROSpecId) && g.done();
        break;
      }
      case kReportBufferLevelWarningEvent: {
        if (!claim(it, out.reportBufferLevelWarningEvent, "ReportBufferLevelWarningEvent"))
          return false;
        Fields g(d, it.body, "ReportBufferLevelWarningEvent");
        ok = g.u8("ReportBufferPercentageFull",
                  out.reportBufferLevelWarningEvent->reportBufferPercentageFull) &&
             g.done();
        break;
      }
      case kReportBufferOverflowErrorEvent: {
        if (!claim(it, out.reportBufferOverflowErrorEvent, "ReportBufferOverflowErrorEvent"))
          return false;
        ok = Fields(d, it.body, "ReportBufferOverflowErrorEvent").done();
        break;
      }
      case kReaderExceptionEvent:
        ok = claim(it, out.readerExceptionEvent, "ReaderExceptionEvent") &&
             decodeReaderExceptionEvent(d, it.body, *out.readerExceptionEvent);
        break;
      case kRFSurveyEvent: {
        if (!claim(it, out.rfSurveyEvent, "RFSurveyEvent")) return false;
        Fields g(d, it.body, "RFSurveyEvent");
        auto& e = *out.rfSurveyEvent;
        ok = g.enum8("EventType", e.eventType) && g.u32("ROSpecID", e.roSpecId) &&
             g.u16("SpecIndex", e.specIndex) && g.done();
        break;
      }
      case kAISpecEvent:
        ok = claim(it, out.aiSpecEvent, "AISpecEvent") &&
             decodeAISpecEvent(d, it.body, *out.aiSpecEvent);
        break;
      case kAntennaEvent: {
        if (!claim(it, out.antennaEvent, "AntennaEvent")) return false;
        Fields g(d, it.body, "AntennaEvent");
        ok = g.enum8("EventType", out.antennaEvent->eventType) &&
             g.u16("AntennaID", out.antennaEvent->antennaId) && g.done();
        break;
      }
      case kConnectionAttemptEvent: {
        if (!claim(it, out.connectionAttemptEvent, "ConnectionAttemptEvent")) return false;
        Fields g(d, it.body, "ConnectionAttemptEvent");
        ok = g.enum16("Status", out.connectionAttemptEvent->status) && g.done();
        break;
      }
      case kConnectionCloseEvent:
        if (!claim(it, out.connectionCloseEvent, "ConnectionCloseEvent")) return false;
        ok = Fields(d, it.body, "ConnectionCloseEvent").done();
        break;
      case kCustom:
        ok = decodeCustom(d, it.body, out.customs.emplace_back());
        break;
      default:
        break;
    }
    if (!ok) return false;
  }
  if (!it.ok()) return false;
  if (!haveTimestamp) return missing(d, r, "ReaderEventNotificationData", "Timestamp");
  return true;
}

// ---- messages ----

// Decodes a body that is only an LLRPStatus (plus parameters to skip).
bool decodeStatusBody(Decoder& d, Range r, const char* name, LLRPStatus& out) {
  bool haveStatus = false;
  Params it(d, r.begin, r.end, name);
  while (it.next()) {
    if (it.type != kLLRPStatus) continue;
    if (haveStatus) return it.duplicate("LLRPStatus");
    haveStatus = true;
    if (!decodeLLRPStatus(d, it.body, out)) return false;
  }
  if (!it.ok()) return false;
  if (!haveStatus) return d.fail(ErrorCode::kMissingParameter, r.begin, name, "LLRPStatus");
  return true;
}

template <MessageType kType>
bool decodeBody(Decoder& d, Range r, StatusResponse<kType>& out) {
  return decodeStatusBody(d, r, messageName(kType), out.llrpStatus);
}

template <MessageType kType>
bool decodeBody(Decoder& d, Range r, EmptyMessage<kType>&) {
  return Fields(d, r, messageName(kType)).done();
}

template <MessageType kType>
bool decodeBody(Decoder& d, Range r, ROSpecIdRequest<kType>& out) {
  Fields f(d, r, messageName(kType));
  return f.u32("ROSpecID", out.roSpecId) && f.done();
}

bool decodeBody(Decoder& d, Range r, DeleteAccessSpec& out) {
  Fields f(d, r, "DELETE_ACCESSSPEC");
  return f.u32("AccessSpecID", out.accessSpecId) && f.done();
}

// Bodies whose only sub-parameters are Custom.
template <typename T>
bool decodeCustomsOnly(Decoder& d, uint32_t begin, Range r, const char* name, T& out) {
  Params it(d, begin, r.end, name);
  while (it.next()) {
    if (it.type == kCustom && !decodeCustom(d, it.body, out.customs.emplace_back())) return false;
  }
  return it.ok();
}

bool decodeBody(Decoder& d, Range r, GetReaderCapabilities& out) {
  Fields f(d, r, "GET_READER_CAPABILITIES");
  return f.enum8("RequestedData", out.requestedData) &&
         decodeCustomsOnly(d, f.pos(), r, "GET_READER_CAPABILITIES", out);
}

bool decodeBody(Decoder& d, Range r, GetReaderCapabilitiesResponse& out) {
  const char* name = "GET_READER_CAPABILITIES_RESPONSE";
  bool haveStatus = false;
  Params it(d, r.begin, r.end, name);
  while (it.next()) {
    bool ok = true;
    switch (it.type) {
      case kLLRPStatus:
        if (haveStatus) return it.duplicate("LLRPStatus");
        haveStatus = true;
        ok = decodeLLRPStatus(d, it.body, out.llrpStatus);
        break;
      case kGeneralDeviceCapabilities:
        ok = claim(it, out.generalDeviceCapabilities, "GeneralDeviceCapabilities") &&
             decodeGeneralDeviceCapabilities(d, it.body, *out.generalDeviceCapabilities);
        break;
      case kLLRPCapabilities:
        ok = claim(it, out.llrpCapabilities, "LLRPCapabilities") &&
             decodeLLRPCapabilities(d, it.body, *out.llrpCapabilities);
        break;
      case kRegulatoryCapabilities:
        ok = claim(it, out.regulatoryCapabilities, "RegulatoryCapabilities") &&
             decodeRegulatoryCapabilities(d, it.body, *out.regulatoryCapabilities);
        break;
      case kC1G2LLRPCapabilities:
        ok = claim(it, out.c1g2LLRPCapabilities, "C1G2LLRPCapabilities") &&
             decodeC1G2LLRPCapabilities(d, it.body, *out.c1g2LLRPCapabilities);
        break;
      case kCustom:
        ok = decodeCustom(d, it.body, out.customs.emplace_back());
        break;
      default:
        break;
    }
    if (!ok) return false;
  }
  if (!it.ok()) return false;
  if (!haveStatus) return d.fail(ErrorCode::kMissingParameter, r.begin, name, "LLRPStatus");
  return true;
}

bool decodeBody(Decoder& d, Range r, GetReaderConfig& out) {
  Fields f(d, r, "GET_READER_CONFIG");
  return f.u16("AntennaID", out.antennaId) && f.enum8("RequestedData", out.requestedData) &&
         f.u16("GPIPortNum", out.gpiPortNum) && f.u16("GPOPortNum", out.gpoPortNum) &&
         decodeCustomsOnly(d, f.pos(), r, "GET_READER_CONFIG", out);
}

// The configuration parameters shared by GET_READER_CONFIG_RESPONSE and SET_READER_CONFIG;
// true when the current sub-parameter was one of them (ok tells whether it decoded).
template <typename T>
bool decodeConfigParameter(Decoder& d, Params& it, T& out, bool& ok) {
  switch (it.type) {
    case kReaderEventNotificationSpec:
      ok = claim(it, out.readerEventNotificationSpec, "ReaderEventNotificationSpec") &&
           decodeReaderEventNotificationSpec(d, it.body, *out.readerEventNotificationSpec);
      return true;
    case kAntennaProperties:
      ok = decodeAntennaProperties(d, it.body, out.antennaProperties.emplace_back());
      return true;
    case kAntennaConfiguration:
      ok = decodeAntennaConfiguration(d, it.body, out.antennaConfigurations.emplace_back());
      return true;
    case kROReportSpec:
      ok = claim(it, out.roReportSpec, "ROReportSpec") &&
           decodeROReportSpec(d, it.body, *out.roReportSpec);
      return true;
    case kAccessReportSpec:
      ok = claim(it, out.accessReportSpec, "AccessReportSpec") &&
           decodeAccessReportSpec(d, it.body, *out.accessReportSpec);
      return true;
    case kKeepaliveSpec:
      ok = claim(it, out.keepaliveSpec, "KeepaliveSpec") &&
           decodeKeepaliveSpec(d, it.body, *out.keepaliveSpec);
      return true;
    case kGPOWriteData:
      ok = decodeGPOWriteData(d, it.body, out.gpoWriteData.emplace_back());
      return true;
    case kGPIPortCurrentState:
      ok = decodeGPIPortCurrentState(d, it.body, out.gpiPortCurrentStates.emplace_back());
      return true;
    case kEventsAndReports:
      ok = claim(it, out.eventsAndReports, "EventsAndReports") &&
           decodeEventsAndReports(d, it.body, *out.eventsAndReports);
      return true;
    case kCustom:
      ok = decodeCustom(d, it.body, out.customs.emplace_back());
      return true;
    default:
      return false;
  }
}

bool decodeBody(Decoder& d, Range r, GetReaderConfigResponse& out) {
  const char* name = "GET_READER_CONFIG_RESPONSE";
  bool haveStatus = false;
  Params it(d, r.begin, r.end, name);
  while (it.next()) {
    bool ok = true;
    if (decodeConfigParameter(d, it, out, ok)) {
      // handled
    } else if (it.type == kLLRPStatus) {
      if (haveStatus) return it.duplicate("LLRPStatus");
      haveStatus = true;
      ok = decodeLLRPStatus(d, it.body, out.llrpStatus);
    } else if (it.type == kIdentification) {
      ok = claim(it, out.identification, "Identification") &&
           decodeIdentification(d, it.body, *out.identification);
    } else if (it.type == kLLRPConfigurationStateValue) {
      ok = claim(it, out.llrpConfigurationStateValue, "LLRPConfigurationStateValue") &&
           decodeLLRPConfigurationStateValue(d, it.body, *out.llrpConfigurationStateValue);
    }
    if (!ok) return false;
  }
  if (!it.ok()) return false;
  if (!haveStatus) return d.fail(ErrorCode::kMissingParameter, r.begin, name, "LLRPStatus");
  return true;
}

bool decodeBody(Decoder& d, Range r, SetReaderConfig& out) {
  Fields f(d, r, "SET_READER_CONFIG");
  if (!f.flag8("ResetToFactoryDefault", out.resetToFactoryDefault)) return false;
  Params it(d, f.pos(), r.end, "SET_READER_CONFIG");
  while (it.next()) {
    bool ok = true;
    decodeConfigParameter(d, it, out, ok);
    if (!ok) return false;
  }
  return it.ok();
}

bool decodeBody(Decoder& d, Range r, AddROSpec& out) {
  bool haveSpec = false;
  Params it(d, r.begin, r.end, "ADD_ROSPEC");
  while (it.next()) {
    if (it.type != kROSpec) continue;
    if (haveSpec) return it.duplicate("ROSpec");
    haveSpec = true;
    if (!decodeROSpec(d, it.body, out.roSpec)) return false;
  }
  if (!it.ok()) return false;
  if (!haveSpec) return d.fail(ErrorCode::kMissingParameter, r.begin, "ADD_ROSPEC", "ROSpec");
  return true;
}

bool decodeBody(Decoder& d, Range r, ROAccessReport& out) {
  // Count the tag reports first so that the vector is allocated once.
  {
    size_t count = 0;
    Params it(d, r.begin, r.end, "RO_ACCESS_REPORT");
    while (it.next()) count += it.type == kTagReportData;
    if (!it.ok()) return false;
    out.tagReportData.reserve(count);
  }
  size_t tags = 0;
  size_t customs = 0;
  Params it(d, r.begin, r.end, "RO_ACCESS_REPORT");
  while (it.next()) {
    if (it.type == kTagReportData) {
      if (!decodeTagReportData(d, it.body, slot(out.tagReportData, tags))) return false;
    } else if (it.type == kCustom) {
      if (!decodeCustom(d, it.body, slot(out.customs, customs))) return false;
    }
  }
  trim(out.tagReportData, tags);
  trim(out.customs, customs);
  return it.ok();
}

bool decodeBody(Decoder& d, Range r, ReaderEventNotification& out) {
  const char* name = "READER_EVENT_NOTIFICATION";
  bool haveData = false;
  Params it(d, r.begin, r.end, name);
  while (it.next()) {
    if (it.type != kReaderEventNotificationData) continue;
    if (haveData) return it.duplicate("ReaderEventNotificationData");
    haveData = true;
    if (!decodeReaderEventNotificationData(d, it.body, out.readerEventNotificationData))
      return false;
  }
  if (!it.ok()) return false;
  if (!haveData)
    return d.fail(ErrorCode::kMissingParameter, r.begin, name, "ReaderEventNotificationData");
  return true;
}

bool decodeBody(Decoder& d, Range r, CustomMessage& out) {
  Fields f(d, r, "CUSTOM_MESSAGE");
  return f.u32("VendorIdentifier", out.vendorId) && f.u8("MessageSubtype", out.subtype) &&
         f.bytesToEnd(out.data);
}

template <typename T>
bool decodeAs(Decoder& d, Range r, MessageBody& body) {
  return decodeBody(d, r, body.emplace<T>());
}

// Reports keep the previous report's buffers when decoded into the same Message (see slot()).
template <>
bool decodeAs<ROAccessReport>(Decoder& d, Range r, MessageBody& body) {
  ROAccessReport* report = std::get_if<ROAccessReport>(&body);
  if (report == nullptr) report = &body.emplace<ROAccessReport>();
  return decodeBody(d, r, *report);
}

bool decodeMessage(Decoder& d, uint16_t type, Range r, MessageBody& body) {
  switch (static_cast<MessageType>(type)) {
    case MessageType::kGetReaderCapabilities:
      return decodeAs<GetReaderCapabilities>(d, r, body);
    case MessageType::kGetReaderConfig:
      return decodeAs<GetReaderConfig>(d, r, body);
    case MessageType::kSetReaderConfig:
      return decodeAs<SetReaderConfig>(d, r, body);
    case MessageType::kCloseConnectionResponse:
      return decodeAs<CloseConnectionResponse>(d, r, body);
    case MessageType::kGetReaderCapabilitiesResponse:
      return decodeAs<GetReaderCapabilitiesResponse>(d, r, body);
    case MessageType::kGetReaderConfigResponse:
      return decodeAs<GetReaderConfigResponse>(d, r, body);
    case MessageType::kSetReaderConfigResponse:
      return decodeAs<SetReaderConfigResponse>(d, r, body);
    case MessageType::kCloseConnection:
      return decodeAs<CloseConnection>(d, r, body);
    case MessageType::kAddROSpec:
      return decodeAs<AddROSpec>(d, r, body);
    case MessageType::kDeleteROSpec:
      return decodeAs<DeleteROSpec>(d, r, body);
    case MessageType::kStartROSpec:
      return decodeAs<StartROSpec>(d, r, body);
    case MessageType::kStopROSpec:
      return decodeAs<StopROSpec>(d, r, body);
    case MessageType::kEnableROSpec:
      return decodeAs<EnableROSpec>(d, r, body);
    case MessageType::kDisableROSpec:
      return decodeAs<DisableROSpec>(d, r, body);
    case MessageType::kAddROSpecResponse:
      return decodeAs<AddROSpecResponse>(d, r, body);
    case MessageType::kDeleteROSpecResponse:
      return decodeAs<DeleteROSpecResponse>(d, r, body);
    case MessageType::kStartROSpecResponse:
      return decodeAs<StartROSpecResponse>(d, r, body);
    case MessageType::kStopROSpecResponse:
      return decodeAs<StopROSpecResponse>(d, r, body);
    case MessageType::kEnableROSpecResponse:
      return decodeAs<EnableROSpecResponse>(d, r, body);
    case MessageType::kDisableROSpecResponse:
      return decodeAs<DisableROSpecResponse>(d, r, body);
    case MessageType::kDeleteAccessSpec:
      return decodeAs<DeleteAccessSpec>(d, r, body);
    case MessageType::kDeleteAccessSpecResponse:
      return decodeAs<DeleteAccessSpecResponse>(d, r, body);
    case MessageType::kGetReport:
      return decodeAs<GetReport>(d, r, body);
    case MessageType::kROAccessReport:
      return decodeAs<ROAccessReport>(d, r, body);
    case MessageType::kKeepalive:
      return decodeAs<Keepalive>(d, r, body);
    case MessageType::kReaderEventNotification:
      return decodeAs<ReaderEventNotification>(d, r, body);
    case MessageType::kEnableEventsAndReports:
      return decodeAs<EnableEventsAndReports>(d, r, body);
    case MessageType::kKeepaliveAck:
      return decodeAs<KeepaliveAck>(d, r, body);
    case MessageType::kErrorMessage:
      return decodeAs<ErrorMessage>(d, r, body);
    case MessageType::kCustomMessage:
      return decodeAs<CustomMessage>(d, r, body);
  }
  return d.fail(ErrorCode::kUnknownMessage, 0, "header", "MessageType");
}

// ----------------------------------------------------------------------------------------------
// Encoding
// ----------------------------------------------------------------------------------------------

class Encoder {
 public:
  explicit Encoder(std::vector<uint8_t>& out, size_t frameStart)
      : out_(out), start_(frameStart), len_(out.size()) {}

  Error err;

  [[gnu::always_inline]] void u8(uint8_t v) { *grow(1) = v; }
  [[gnu::always_inline]] void u16(uint16_t v) {
    uint8_t* p = grow(2);
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
  }
  [[gnu::always_inline]] void u32(uint32_t v) {
    uint8_t* p = grow(4);
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
  }
  void u64(uint64_t v) {
    u32(static_cast<uint32_t>(v >> 32));
    u32(static_cast<uint32_t>(v));
  }
  void bytes(const uint8_t* p, size_t n) {
    if (n == 0) return;
    std::memcpy(grow(n), p, n);
  }
  template <typename E>
  void e8(E v) {
    u8(static_cast<uint8_t>(v));
  }
  template <typename E>
  void e16(E v) {
    u16(static_cast<uint16_t>(v));
  }
  // A byte whose top bit is a u1 field and the rest reserved.
  void flag8(bool v) { u8(v ? 0x80 : 0); }
  // A u2 field in the top bits of a byte; values above 3 do not fit.
  void u2(uint8_t v, const char* parameter, const char* field) {
    if (v > 3) fail(ErrorCode::kBadField, parameter, field);
    u8(static_cast<uint8_t>(v << 6));
  }
  // A count-prefixed vector (u8v, u16v, u32v, utf8v).
  bool count(size_t n, const char* parameter, const char* field) {
    if (n > 0xffff) {
      fail(ErrorCode::kTooLong, parameter, field);
      u16(0);
      return false;
    }
    u16(static_cast<uint16_t>(n));
    return true;
  }
  void utf8v(const std::string& s, const char* parameter, const char* field) {
    if (count(s.size(), parameter, field))
      bytes(reinterpret_cast<const uint8_t*>(s.data()), s.size());
  }
  void u1v(const BitString& b, const char* parameter, const char* field) {
    if (b.bytes.size() != (size_t{b.bitCount} + 7) / 8)
      fail(ErrorCode::kBadField, parameter, field);
    u16(b.bitCount);
    bytes(b.bytes.data(), b.bytes.size());
  }
  template <typename T>
  void vector8(const std::vector<T>& v, const char* parameter, const char* field) {
    if (!count(v.size(), parameter, field)) return;
    uint8_t* p = grow(v.size());
    for (size_t i = 0; i < v.size(); ++i) p[i] = static_cast<uint8_t>(v[i]);
  }
  void u16v(const std::vector<uint16_t>& v, const char* parameter, const char* field) {
    if (!count(v.size(), parameter, field)) return;
    for (uint16_t x : v) u16(x);
  }
  void u32v(const std::vector<uint32_t>& v, const char* parameter, const char* field) {
    if (!count(v.size(), parameter, field)) return;
    for (uint32_t x : v) u32(x);
  }
  void tv(uint8_t type) { u8(static_cast<uint8_t>(0x80 | type)); }

  // Starts a TLV parameter; returns where its header is, for end().
  size_t begin(uint16_t type) {
    const size_t at = len_;
    u16(type);
    u16(0);
    return at;
  }
  // Patches the TLV length; a parameter longer than 65535 bytes cannot be encoded.
  void end(size_t at, const char* parameter) {
    const size_t length = len_ - at;
    if (length > 0xffff) {
      fail(ErrorCode::kTooLong, parameter, "");
      return;
    }
    out_[at + 2] = static_cast<uint8_t>(length >> 8);
    out_[at + 3] = static_cast<uint8_t>(length);
  }
  void fail(ErrorCode code, const char* parameter, const char* field) {
    if (!err.ok()) return;
    err.code = code;
    err.parameter = parameter;
    err.field = field;
    const size_t at = len_ - start_;
    err.offset = at > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(at);
  }
  // Cuts the vector to what was written; called once after the last write.
  void finish() { out_.resize(len_); }

 private:
  // The vector grows in large steps and is cut to size by finish(), so that a field costs a
  // store rather than a resize.
  [[gnu::always_inline]] uint8_t* grow(size_t n) {
    if (out_.size() - len_ < n) out_.resize(std::max(out_.size() * 2, len_ + n + 256));
    uint8_t* p = out_.data() + len_;
    len_ += n;
    return p;
  }

  std::vector<uint8_t>& out_;
  size_t start_;
  size_t len_;  // bytes written, out_.size() is the space reserved
};

void encodeCustoms(Encoder& e, const std::vector<Custom>& customs) {
  for (const Custom& c : customs) {
    const size_t at = e.begin(kCustom);
    e.u32(c.vendorId);
    e.u32(c.subtype);
    e.bytes(c.data.data(), c.data.size());
    e.end(at, "Custom");
  }
}

void encodeFieldError(Encoder& e, const FieldError& f) {
  const size_t at = e.begin(kFieldError);
  e.u16(f.fieldNum);
  e.e16(f.errorCode);
  e.end(at, "FieldError");
}

void encodeParameterErrorChain(Encoder& e, const std::vector<ParameterError>& chain, size_t i) {
  if (i >= chain.size()) return;
  if (i + 2 >= static_cast<size_t>(kMaxDepth)) {
    // The message body and the LLRPStatus take two levels; deeper chains would not decode.
    e.fail(ErrorCode::kTooDeep, "ParameterError", "");
    return;
  }
  const size_t at = e.begin(kParameterError);
  e.u16(chain[i].parameterType);
  e.e16(chain[i].errorCode);
  if (chain[i].fieldError) encodeFieldError(e, *chain[i].fieldError);
  encodeParameterErrorChain(e, chain, i + 1);
  e.end(at, "ParameterError");
}

void encodeLLRPStatus(Encoder& e, const LLRPStatus& s) {
  const size_t at = e.begin(kLLRPStatus);
  e.e16(s.statusCode);
  e.utf8v(s.errorDescription, "LLRPStatus", "ErrorDescription");
  if (s.fieldError) encodeFieldError(e, *s.fieldError);
  encodeParameterErrorChain(e, s.parameterErrors, 0);
  e.end(at, "LLRPStatus");
}

void encodeU64Param(Encoder& e, uint16_t type, uint64_t v, const char* name) {
  const size_t at = e.begin(type);
  e.u64(v);
  e.end(at, name);
}

void encodeGeneralDeviceCapabilities(Encoder& e, const GeneralDeviceCapabilities& g) {
  const size_t at = e.begin(kGeneralDeviceCapabilities);
  e.u16(g.maxNumberOfAntennaSupported);
  e.u16(static_cast<uint16_t>((g.canSetAntennaProperties ? 0x8000 : 0) |
                              (g.hasUTCClockCapability ? 0x4000 : 0)));
  e.u32(g.deviceManufacturerName);
  e.u32(g.modelName);
  e.utf8v(g.readerFirmwareVersion, "GeneralDeviceCapabilities", "ReaderFirmwareVersion");
  for (const auto& r : g.receiveSensitivityTable) {
    const size_t p = e.begin(kReceiveSensitivityTableEntry);
    e.u16(r.index);
    e.u16(static_cast<uint16_t>(r.receiveSensitivityValue));
    e.end(p, "ReceiveSensitivityTableEntry");
  }
  for (const auto& r : g.perAntennaReceiveSensitivityRanges) {
    const size_t p = e.begin(kPerAntennaReceiveSensitivityRange);
    e.u16(r.antennaId);
    e.u16(r.receiveSensitivityIndexMin);
    e.u16(r.receiveSensitivityIndexMax);
    e.end(p, "PerAntennaReceiveSensitivityRange");
  }
  {
    const size_t p = e.begin(kGPIOCapabilities);
    e.u16(g.gpioCapabilities.numGPIs);
    e.u16(g.gpioCapabilities.numGPOs);
    e.end(p, "GPIOCapabilities");
  }
  for (const auto& a : g.perAntennaAirProtocols) {
    const size_t p = e.begin(kPerAntennaAirProtocol);
    e.u16(a.antennaId);
    e.vector8(a.protocolIds, "PerAntennaAirProtocol", "ProtocolID");
    e.end(p, "PerAntennaAirProtocol");
  }
  e.end(at, "GeneralDeviceCapabilities");
}

void encodeLLRPCapabilities(Encoder& e, const LLRPCapabilities& c) {
  const size_t at = e.begin(kLLRPCapabilities);
  e.u8(static_cast<uint8_t>((c.canDoRFSurvey ? 0x80 : 0) |
                            (c.canReportBufferFillWarning ? 0x40 : 0) |
                            (c.supportsClientRequestOpSpec ? 0x20 : 0) |
                            (c.canDoTagInventoryStateAwareSingulation ? 0x10 : 0) |
                            (c.supportsEventAndReportHolding ? 0x08 : 0)));
  e.u8(c.maxNumPriorityLevelsSupported);
  e.u16(c.clientRequestOpSpecTimeout);
  e.u32(c.maxNumROSpecs);
  e.u32(c.maxNumSpecsPerROSpec);
  e.u32(c.maxNumInventoryParameterSpecsPerAISpec);
  e.u32(c.maxNumAccessSpecs);
  e.u32(c.maxNumOpSpecsPerAccessSpec);
  e.end(at, "LLRPCapabilities");
}

void encodeUHFBandCapabilities(Encoder& e, const UHFBandCapabilities& u) {
  const size_t at = e.begin(kUHFBandCapabilities);
  for (const auto& t : u.transmitPowerLevels) {
    const size_t p = e.begin(kTransmitPowerLevelTableEntry);
    e.u16(t.index);
    e.u16(static_cast<uint16_t>(t.transmitPowerValue));
    e.end(p, "TransmitPowerLevelTableEntry");
  }
  {
    const FrequencyInformation& f = u.frequencyInformation;
    const size_t p = e.begin(kFrequencyInformation);
    e.flag8(f.hopping);
    for (const auto& h : f.hopTables) {
      const size_t q = e.begin(kFrequencyHopTable);
      e.u8(h.hopTableId);
      e.u8(0);
      e.u32v(h.frequencies, "FrequencyHopTable", "Frequency");
      e.end(q, "FrequencyHopTable");
    }
    if (f.fixedFrequencyTable) {
      const size_t q = e.begin(kFixedFrequencyTable);
      e.u32v(f.fixedFrequencyTable->frequencies, "FixedFrequencyTable", "Frequency");
      e.end(q, "FixedFrequencyTable");
    }
    e.end(p, "FrequencyInformation");
  }
  if (u.c1g2RFModeTable) {
    const size_t p = e.begin(kC1G2UHFRFModeTable);
    for (const auto& m : u.c1g2RFModeTable->entries) {
      const size_t q = e.begin(kC1G2UHFRFModeTableEntry);
      e.u32(m.modeIdentifier);
      e.u8(static_cast<uint8_t>((m.drValue ? 0x80 : 0) | (m.epcHAGTCConformance ? 0x40 : 0)));
      e.u8(m.mValue);
      e.u8(m.forwardLinkModulation);
      e.u8(m.spectralMaskIndicator);
      e.u32(m.bdrValue);
      e.u32(m.pieValue);
      e.u32(m.minTariValue);
      e.u32(m.maxTariValue);
      e.u32(m.stepTariValue);
      e.end(q, "C1G2UHFRFModeTableEntry");
    }
    e.end(p, "C1G2UHFRFModeTable");
  }
  e.end(at, "UHFBandCapabilities");
}

void encodeRegulatoryCapabilities(Encoder& e, const RegulatoryCapabilities& r) {
  const size_t at = e.begin(kRegulatoryCapabilities);
  e.u16(r.countryCode);
  e.e16(r.communicationsStandard);
  if (r.uhfBandCapabilities) encodeUHFBandCapabilities(e, *r.uhfBandCapabilities);
  encodeCustoms(e, r.customs);
  e.end(at, "RegulatoryCapabilities");
}

void encodeC1G2LLRPCapabilities(Encoder& e, const C1G2LLRPCapabilities& c) {
  const size_t at = e.begin(kC1G2LLRPCapabilities);
  e.u8(static_cast<uint8_t>((c.canSupportBlockErase ? 0x80 : 0) |
                            (c.canSupportBlockWrite ? 0x40 : 0)));
  e.u16(c.maxNumSelectFiltersPerQuery);
  e.end(at, "C1G2LLRPCapabilities");
}

void encodeC1G2Filter(Encoder& e, const C1G2Filter& f) {
  const size_t at = e.begin(kC1G2Filter);
  e.u2(static_cast<uint8_t>(f.t), "C1G2Filter", "T");
  {
    const auto& m = f.tagInventoryMask;
    const size_t p = e.begin(kC1G2TagInventoryMask);
    e.u2(m.mb, "C1G2TagInventoryMask", "MB");
    e.u16(m.pointer);
    e.u1v(m.tagMask, "C1G2TagInventoryMask", "TagMask");
    e.end(p, "C1G2TagInventoryMask");
  }
  if (f.stateAwareAction) {
    const size_t p = e.begin(kC1G2TagInventoryStateAwareFilterAction);
    e.e8(f.stateAwareAction->target);
    e.e8(f.stateAwareAction->action);
    e.end(p, "C1G2TagInventoryStateAwareFilterAction");
  }
  if (f.stateUnawareAction) {
    const size_t p = e.begin(kC1G2TagInventoryStateUnawareFilterAction);
    e.e8(f.stateUnawareAction->action);
    e.end(p, "C1G2TagInventoryStateUnawareFilterAction");
  }
  e.end(at, "C1G2Filter");
}

void encodeC1G2InventoryCommand(Encoder& e, const C1G2InventoryCommand& c) {
  const size_t at = e.begin(kC1G2InventoryCommand);
  e.flag8(c.tagInventoryStateAware);
  for (const auto& f : c.filters) encodeC1G2Filter(e, f);
  if (c.rfControl) {
    const size_t p = e.begin(kC1G2RFControl);
    e.u16(c.rfControl->modeIndex);
    e.u16(c.rfControl->tari);
    e.end(p, "C1G2RFControl");
  }
  if (c.singulationControl) {
    const auto& s = *c.singulationControl;
    const size_t p = e.begin(kC1G2SingulationControl);
    e.u2(s.session, "C1G2SingulationControl", "Session");
    e.u16(s.tagPopulation);
    e.u32(s.tagTransitTime);
    if (s.stateAwareAction) {
      const size_t q = e.begin(kC1G2TagInventoryStateAwareSingulationAction);
      e.u8(static_cast<uint8_t>((s.stateAwareAction->i ? 0x80 : 0) |
                                (s.stateAwareAction->s ? 0x40 : 0)));
      e.end(q, "C1G2TagInventoryStateAwareSingulationAction");
    }
    e.end(p, "C1G2SingulationControl");
  }
  encodeCustoms(e, c.customs);
  e.end(at, "C1G2InventoryCommand");
}

void encodeAntennaConfiguration(Encoder& e, const AntennaConfiguration& a) {
  const size_t at = e.begin(kAntennaConfiguration);
  e.u16(a.antennaId);
  if (a.rfReceiver) {
    const size_t p = e.begin(kRFReceiver);
    e.u16(a.rfReceiver->receiverSensitivity);
    e.end(p, "RFReceiver");
  }
  if (a.rfTransmitter) {
    const size_t p = e.begin(kRFTransmitter);
    e.u16(a.rfTransmitter->hopTableId);
    e.u16(a.rfTransmitter->channelIndex);
    e.u16(a.rfTransmitter->transmitPower);
    e.end(p, "RFTransmitter");
  }
  for (const auto& c : a.inventoryCommands) encodeC1G2InventoryCommand(e, c);
  e.end(at, "AntennaConfiguration");
}

void encodeROReportSpec(Encoder& e, const ROReportSpec& r) {
  const size_t at = e.begin(kROReportSpec);
  e.e8(r.roReportTrigger);
  e.u16(r.n);
  {
    const auto& s = r.tagReportContentSelector;
    const size_t p = e.begin(kTagReportContentSelector);
    e.u16(static_cast<uint16_t>(
        (s.enableROSpecId ? 0x8000 : 0) | (s.enableSpecIndex ? 0x4000 : 0) |
        (s.enableInventoryParameterSpecId ? 0x2000 : 0) | (s.enableAntennaId ? 0x1000 : 0) |
        (s.enableChannelIndex ? 0x0800 : 0) | (s.enablePeakRSSI ? 0x0400 : 0) |
        (s.enableFirstSeenTimestamp ? 0x0200 : 0) | (s.enableLastSeenTimestamp ? 0x0100 : 0) |
        (s.enableTagSeenCount ? 0x0080 : 0) | (s.enableAccessSpecId ? 0x0040 : 0)));
    for (const auto& m : s.epcMemorySelectors) {
      const size_t q = e.begin(kC1G2EPCMemorySelector);
      e.u8(static_cast<uint8_t>((m.enableCRC ? 0x80 : 0) | (m.enablePCBits ? 0x40 : 0)));
      e.end(q, "C1G2EPCMemorySelector");
    }
    e.end(p, "TagReportContentSelector");
  }
  encodeCustoms(e, r.customs);
  e.end(at, "ROReportSpec");
}

void encodeReaderEventNotificationSpec(Encoder& e, const ReaderEventNotificationSpec& s) {
  const size_t at = e.begin(kReaderEventNotificationSpec);
  for (const auto& n : s.eventNotificationStates) {
    const size_t p = e.begin(kEventNotificationState);
    e.e16(n.eventType);
    e.flag8(n.notificationState);
    e.end(p, "EventNotificationState");
  }
  e.end(at, "ReaderEventNotificationSpec");
}

void encodeAntennaProperties(Encoder& e, const AntennaProperties& a) {
  const size_t at = e.begin(kAntennaProperties);
  e.flag8(a.antennaConnected);
  e.u16(a.antennaId);
  e.u16(static_cast<uint16_t>(a.antennaGain));
  e.end(at, "AntennaProperties");
}

void encodeAccessReportSpec(Encoder& e, const AccessReportSpec& a) {
  const size_t at = e.begin(kAccessReportSpec);
  e.e8(a.accessReportTrigger);
  e.end(at, "AccessReportSpec");
}

void encodeKeepaliveSpec(Encoder& e, const KeepaliveSpec& k) {
  const size_t at = e.begin(kKeepaliveSpec);
  e.e8(k.keepaliveTriggerType);
  e.u32(k.periodicTriggerValue);
  e.end(at, "KeepaliveSpec");
}

void encodeGPIPortCurrentState(Encoder& e, const GPIPortCurrentState& g) {
  const size_t at = e.begin(kGPIPortCurrentState);
  e.u16(g.gpiPortNum);
  e.flag8(g.config);
  e.e8(g.state);
  e.end(at, "GPIPortCurrentState");
}

void encodeGPOWriteData(Encoder& e, const GPOWriteData& g) {
  const size_t at = e.begin(kGPOWriteData);
  e.u16(g.gpoPortNumber);
  e.flag8(g.gpoData);
  e.end(at, "GPOWriteData");
}

void encodeEventsAndReports(Encoder& e, const EventsAndReports& r) {
  const size_t at = e.begin(kEventsAndReports);
  e.flag8(r.holdEventsAndReportsUponReconnect);
  e.end(at, "EventsAndReports");
}

void encodeGPITriggerValue(Encoder& e, const GPITriggerValue& g) {
  const size_t at = e.begin(kGPITriggerValue);
  e.u16(g.gpiPortNum);
  e.flag8(g.gpiEvent);
  e.u32(g.timeout);
  e.end(at, "GPITriggerValue");
}

void encodeROSpec(Encoder& e, const ROSpec& r) {
  const size_t at = e.begin(kROSpec);
  e.u32(r.roSpecId);
  e.u8(r.priority);
  e.e8(r.currentState);
  {
    const size_t b = e.begin(kROBoundarySpec);
    const auto& start = r.roBoundarySpec.roSpecStartTrigger;
    const size_t s = e.begin(kROSpecStartTrigger);
    e.e8(start.roSpecStartTriggerType);
    if (start.periodicTriggerValue) {
      const auto& p = *start.periodicTriggerValue;
      const size_t q = e.begin(kPeriodicTriggerValue);
      e.u32(p.offset);
      e.u32(p.period);
      if (p.utcTimestamp) encodeU64Param(e, kUTCTimestamp, *p.utcTimestamp, "UTCTimestamp");
      e.end(q, "PeriodicTriggerValue");
    }
    if (start.gpiTriggerValue) encodeGPITriggerValue(e, *start.gpiTriggerValue);
    e.end(s, "ROSpecStartTrigger");
    const auto& stop = r.roBoundarySpec.roSpecStopTrigger;
    const size_t t = e.begin(kROSpecStopTrigger);
    e.e8(stop.roSpecStopTriggerType);
    e.u32(stop.durationTriggerValue);
    if (stop.gpiTriggerValue) encodeGPITriggerValue(e, *stop.gpiTriggerValue);
    e.end(t, "ROSpecStopTrigger");
    e.end(b, "ROBoundarySpec");
  }
  for (const AISpec& a : r.aiSpecs) {
    const size_t p = e.begin(kAISpec);
    e.u16v(a.antennaIds, "AISpec", "AntennaIDs");
    {
      const auto& s = a.aiSpecStopTrigger;
      const size_t q = e.begin(kAISpecStopTrigger);
      e.e8(s.aiSpecStopTriggerType);
      e.u32(s.durationTrigger);
      if (s.gpiTriggerValue) encodeGPITriggerValue(e, *s.gpiTriggerValue);
      if (s.tagObservationTrigger) {
        const auto& t = *s.tagObservationTrigger;
        const size_t o = e.begin(kTagObservationTrigger);
        e.e8(t.triggerType);
        e.u8(0);
        e.u16(t.numberOfTags);
        e.u16(t.numberOfAttempts);
        e.u16(t.t);
        e.u32(t.timeout);
        e.end(o, "TagObservationTrigger");
      }
      e.end(q, "AISpecStopTrigger");
    }
    for (const auto& ips : a.inventoryParameterSpecs) {
      const size_t q = e.begin(kInventoryParameterSpec);
      e.u16(ips.inventoryParameterSpecId);
      e.e8(ips.protocolId);
      for (const auto& c : ips.antennaConfigurations) encodeAntennaConfiguration(e, c);
      encodeCustoms(e, ips.customs);
      e.end(q, "InventoryParameterSpec");
    }
    encodeCustoms(e, a.customs);
    e.end(p, "AISpec");
  }
  encodeCustoms(e, r.customs);
  if (r.roReportSpec) encodeROReportSpec(e, *r.roReportSpec);
  e.end(at, "ROSpec");
}

template <typename T>
void tvOptional(Encoder& e, uint8_t type, const std::optional<T>& v) {
  if (!v) return;
  e.tv(type);
  if constexpr (sizeof(T) == 1) {
    e.u8(static_cast<uint8_t>(*v));
  } else if constexpr (sizeof(T) == 2) {
    e.u16(static_cast<uint16_t>(*v));
  } else if constexpr (sizeof(T) == 4) {
    e.u32(static_cast<uint32_t>(*v));
  } else {
    e.u64(static_cast<uint64_t>(*v));
  }
}

void encodeTagReportData(Encoder& e, const TagReportData& t) {
  const size_t at = e.begin(kTagReportData);
  if (const auto* e96 = std::get_if<EPC96>(&t.epc)) {
    e.tv(kTvEPC96);
    e.bytes(e96->epc.data(), 12);
  } else {
    const size_t p = e.begin(kEPCData);
    e.u1v(std::get<EPCData>(t.epc).epc, "EPCData", "EPC");
    e.end(p, "EPCData");
  }
  tvOptional(e, kTvROSpecID, t.roSpecId);
  tvOptional(e, kTvSpecIndex, t.specIndex);
  tvOptional(e, kTvInventoryParameterSpecID, t.inventoryParameterSpecId);
  tvOptional(e, kTvAntennaID, t.antennaId);
  tvOptional(e, kTvPeakRSSI, t.peakRSSI);
  tvOptional(e, kTvChannelIndex, t.channelIndex);
  tvOptional(e, kTvFirstSeenTimestampUTC, t.firstSeenTimestampUTC);
  tvOptional(e, kTvFirstSeenTimestampUptime, t.firstSeenTimestampUptime);
  tvOptional(e, kTvLastSeenTimestampUTC, t.lastSeenTimestampUTC);
  tvOptional(e, kTvLastSeenTimestampUptime, t.lastSeenTimestampUptime);
  tvOptional(e, kTvTagSeenCount, t.tagSeenCount);
  tvOptional(e, kTvC1G2PC, t.c1g2PC);
  tvOptional(e, kTvC1G2CRC, t.c1g2CRC);
  tvOptional(e, kTvAccessSpecID, t.accessSpecId);
  encodeCustoms(e, t.customs);
  e.end(at, "TagReportData");
}

void encodeReaderEventNotificationData(Encoder& e, const ReaderEventNotificationData& r) {
  const size_t at = e.begin(kReaderEventNotificationData);
  encodeU64Param(e, r.timestamp.uptime ? kUptime : kUTCTimestamp, r.timestamp.microseconds,
                 r.timestamp.uptime ? "Uptime" : "UTCTimestamp");
  if (r.hoppingEvent) {
    const size_t p = e.begin(kHoppingEvent);
    e.u16(r.hoppingEvent->hopTableId);
    e.u16(r.hoppingEvent->nextChannelIndex);
    e.end(p, "HoppingEvent");
  }
  if (r.gpiEvent) {
    const size_t p = e.begin(kGPIEvent);
    e.u16(r.gpiEvent->gpiPortNumber);
    e.flag8(r.gpiEvent->gpiEvent);
    e.end(p, "GPIEvent");
  }
  if (r.roSpecEvent) {
    const size_t p = e.begin(kROSpecEvent);
    e.e8(r.roSpecEvent->eventType);
    e.u32(r.roSpecEvent->roSpecId);
    e.u32(r.roSpecEvent->preemptingROSpecId);
    e.end(p, "ROSpecEvent");
  }
  if (r.reportBufferLevelWarningEvent) {
    const size_t p = e.begin(kReportBufferLevelWarningEvent);
    e.u8(r.reportBufferLevelWarningEvent->reportBufferPercentageFull);
    e.end(p, "ReportBufferLevelWarningEvent");
  }
  if (r.reportBufferOverflowErrorEvent) {
    e.end(e.begin(kReportBufferOverflowErrorEvent), "ReportBufferOverflowErrorEvent");
  }
  if (r.readerExceptionEvent) {
    const auto& x = *r.readerExceptionEvent;
    const size_t p = e.begin(kReaderExceptionEvent);
    e.utf8v(x.message, "ReaderExceptionEvent", "Message");
    tvOptional(e, kTvROSpecID, x.roSpecId);
    tvOptional(e, kTvSpecIndex, x.specIndex);
    tvOptional(e, kTvInventoryParameterSpecID, x.inventoryParameterSpecId);
    tvOptional(e, kTvAntennaID, x.antennaId);
    tvOptional(e, kTvAccessSpecID, x.accessSpecId);
    tvOptional(e, kTvOpSpecID, x.opSpecId);
    encodeCustoms(e, x.customs);
    e.end(p, "ReaderExceptionEvent");
  }
  if (r.rfSurveyEvent) {
    const size_t p = e.begin(kRFSurveyEvent);
    e.e8(r.rfSurveyEvent->eventType);
    e.u32(r.rfSurveyEvent->roSpecId);
    e.u16(r.rfSurveyEvent->specIndex);
    e.end(p, "RFSurveyEvent");
  }
  if (r.aiSpecEvent) {
    const auto& a = *r.aiSpecEvent;
    const size_t p = e.begin(kAISpecEvent);
    e.e8(a.eventType);
    e.u32(a.roSpecId);
    e.u16(a.specIndex);
    if (a.singulationDetails) {
      e.tv(kTvC1G2SingulationDetails);
      e.u16(a.singulationDetails->numCollisionSlots);
      e.u16(a.singulationDetails->numEmptySlots);
    }
    e.end(p, "AISpecEvent");
  }
  if (r.antennaEvent) {
    const size_t p = e.begin(kAntennaEvent);
    e.e8(r.antennaEvent->eventType);
    e.u16(r.antennaEvent->antennaId);
    e.end(p, "AntennaEvent");
  }
  if (r.connectionAttemptEvent) {
    const size_t p = e.begin(kConnectionAttemptEvent);
    e.e16(r.connectionAttemptEvent->status);
    e.end(p, "ConnectionAttemptEvent");
  }
  if (r.connectionCloseEvent) {
    e.end(e.begin(kConnectionCloseEvent), "ConnectionCloseEvent");
  }
  encodeCustoms(e, r.customs);
  e.end(at, "ReaderEventNotificationData");
}

// ---- message bodies ----

template <MessageType kType>
void encodeBody(Encoder& e, const StatusResponse<kType>& m) {
  encodeLLRPStatus(e, m.llrpStatus);
}
template <MessageType kType>
void encodeBody(Encoder&, const EmptyMessage<kType>&) {}
template <MessageType kType>
void encodeBody(Encoder& e, const ROSpecIdRequest<kType>& m) {
  e.u32(m.roSpecId);
}
void encodeBody(Encoder& e, const DeleteAccessSpec& m) { e.u32(m.accessSpecId); }

void encodeBody(Encoder& e, const GetReaderCapabilities& m) {
  e.e8(m.requestedData);
  encodeCustoms(e, m.customs);
}

void encodeBody(Encoder& e, const GetReaderCapabilitiesResponse& m) {
  encodeLLRPStatus(e, m.llrpStatus);
  if (m.generalDeviceCapabilities) encodeGeneralDeviceCapabilities(e, *m.generalDeviceCapabilities);
  if (m.llrpCapabilities) encodeLLRPCapabilities(e, *m.llrpCapabilities);
  if (m.regulatoryCapabilities) encodeRegulatoryCapabilities(e, *m.regulatoryCapabilities);
  if (m.c1g2LLRPCapabilities) encodeC1G2LLRPCapabilities(e, *m.c1g2LLRPCapabilities);
  encodeCustoms(e, m.customs);
}

void encodeBody(Encoder& e, const GetReaderConfig& m) {
  e.u16(m.antennaId);
  e.e8(m.requestedData);
  e.u16(m.gpiPortNum);
  e.u16(m.gpoPortNum);
  encodeCustoms(e, m.customs);
}

void encodeBody(Encoder& e, const GetReaderConfigResponse& m) {
  encodeLLRPStatus(e, m.llrpStatus);
  if (m.identification) {
    const size_t at = e.begin(kIdentification);
    e.e8(m.identification->idType);
    e.vector8(m.identification->readerId, "Identification", "ReaderID");
    e.end(at, "Identification");
  }
  for (const auto& a : m.antennaProperties) encodeAntennaProperties(e, a);
  for (const auto& a : m.antennaConfigurations) encodeAntennaConfiguration(e, a);
  if (m.readerEventNotificationSpec)
    encodeReaderEventNotificationSpec(e, *m.readerEventNotificationSpec);
  if (m.roReportSpec) encodeROReportSpec(e, *m.roReportSpec);
  if (m.accessReportSpec) encodeAccessReportSpec(e, *m.accessReportSpec);
  if (m.llrpConfigurationStateValue) {
    const size_t at = e.begin(kLLRPConfigurationStateValue);
    e.u32(*m.llrpConfigurationStateValue);
    e.end(at, "LLRPConfigurationStateValue");
  }
  if (m.keepaliveSpec) encodeKeepaliveSpec(e, *m.keepaliveSpec);
  for (const auto& g : m.gpiPortCurrentStates) encodeGPIPortCurrentState(e, g);
  for (const auto& g : m.gpoWriteData) encodeGPOWriteData(e, g);
  if (m.eventsAndReports) encodeEventsAndReports(e, *m.eventsAndReports);
  encodeCustoms(e, m.customs);
}

void encodeBody(Encoder& e, const SetReaderConfig& m) {
  e.flag8(m.resetToFactoryDefault);
  if (m.readerEventNotificationSpec)
    encodeReaderEventNotificationSpec(e, *m.readerEventNotificationSpec);
  for (const auto& a : m.antennaProperties) encodeAntennaProperties(e, a);
  for (const auto& a : m.antennaConfigurations) encodeAntennaConfiguration(e, a);
  if (m.roReportSpec) encodeROReportSpec(e, *m.roReportSpec);
  if (m.accessReportSpec) encodeAccessReportSpec(e, *m.accessReportSpec);
  if (m.keepaliveSpec) encodeKeepaliveSpec(e, *m.keepaliveSpec);
  for (const auto& g : m.gpoWriteData) encodeGPOWriteData(e, g);
  for (const auto& g : m.gpiPortCurrentStates) encodeGPIPortCurrentState(e, g);
  if (m.eventsAndReports) encodeEventsAndReports(e, *m.eventsAndReports);
  encodeCustoms(e, m.customs);
}

void encodeBody(Encoder& e, const AddROSpec& m) { encodeROSpec(e, m.roSpec); }

void encodeBody(Encoder& e, const ROAccessReport& m) {
  for (const auto& t : m.tagReportData) encodeTagReportData(e, t);
  encodeCustoms(e, m.customs);
}

void encodeBody(Encoder& e, const ReaderEventNotification& m) {
  encodeReaderEventNotificationData(e, m.readerEventNotificationData);
}

void encodeBody(Encoder& e, const CustomMessage& m) {
  e.u32(m.vendorId);
  e.u8(m.subtype);
  e.bytes(m.data.data(), m.data.size());
}

}  // namespace

// ----------------------------------------------------------------------------------------------
// Public calls
// ----------------------------------------------------------------------------------------------

std::string Error::text() const {
  std::string s = errorCodeName(code);
  if (ok()) return s;
  s += " at byte ";
  s += std::to_string(offset);
  if (parameter && *parameter) {
    s += " in ";
    s += parameter;
  }
  if ((field && *field) || parameterType != 0) {
    s += " (";
    if (field && *field) s += field;
    if (parameterType != 0) {
      if (field && *field) s += ", ";
      s += "parameter type ";
      s += std::to_string(parameterType);
    }
    s += ")";
  }
  return s;
}

const char* errorCodeName(ErrorCode code) {
  switch (code) {
    case ErrorCode::kOk:
      return "ok";
    case ErrorCode::kTruncated:
      return "truncated";
    case ErrorCode::kBadLength:
      return "bad length";
    case ErrorCode::kFrameTooLarge:
      return "frame too large";
    case ErrorCode::kBadVersion:
      return "unsupported version";
    case ErrorCode::kUnknownMessage:
      return "unknown message type";
    case ErrorCode::kUnknownTvType:
      return "unknown TV parameter type";
    case ErrorCode::kMissingParameter:
      return "missing parameter";
    case ErrorCode::kDuplicateParameter:
      return "duplicate parameter";
    case ErrorCode::kTooDeep:
      return "nesting too deep";
    case ErrorCode::kBadField:
      return "bad field";
    case ErrorCode::kTooLong:
      return "value too long";
  }
  return "unknown error";
}

Error decodeHeader(std::span<const uint8_t> bytes, FrameHeader& out, uint32_t maxFrameSize) {
  Error e;
  e.parameter = "header";
  if (bytes.size() < kHeaderSize) {
    e.code = ErrorCode::kTruncated;
    e.offset = static_cast<uint32_t>(bytes.size());
    return e;
  }
  out.version = static_cast<uint8_t>((bytes[0] >> 2) & 0x7);
  out.type = static_cast<uint16_t>(((bytes[0] & 0x3) << 8) | bytes[1]);
  out.length = load32(bytes.data() + 2);
  out.id = load32(bytes.data() + 6);
  e.messageType = out.type;
  e.messageId = out.id;
  if (out.length < kHeaderSize) {
    e.code = ErrorCode::kBadLength;
    e.offset = 2;
    e.field = "MessageLength";
  } else if (out.length > maxFrameSize) {
    e.code = ErrorCode::kFrameTooLarge;
    e.offset = 2;
    e.field = "MessageLength";
  }
  return e;
}

Error decode(std::span<const uint8_t> frame, Message& out) {
  FrameHeader h;
  Error e = decodeHeader(frame, h);
  if (!e.ok()) return e;
  if (frame.size() < h.length) {
    e.code = ErrorCode::kTruncated;
    e.offset = static_cast<uint32_t>(frame.size());
    e.field = "message body";
    return e;
  }
  if (frame.size() > h.length) {
    e.code = ErrorCode::kBadLength;
    e.offset = h.length;
    e.field = "bytes after the frame";
    return e;
  }
  if (h.version != kVersion) {
    e.code = ErrorCode::kBadVersion;
    e.field = "Version";
    return e;
  }
  Decoder d;
  d.frame = frame.data();
  out.id = h.id;
  if (!decodeMessage(d, h.type, Range{kHeaderSize, h.length}, out.body)) {
    d.err.messageType = h.type;
    d.err.messageId = h.id;
    return d.err;
  }
  return d.err;
}

Error encode(const Message& message, std::vector<uint8_t>& out) {
  const size_t start = out.size();
  Encoder e(out, start);
  const uint16_t type = static_cast<uint16_t>(messageType(message.body));
  e.u16(static_cast<uint16_t>((kVersion << 10) | (type & 0x3ff)));
  e.u32(0);
  e.u32(message.id);
  std::visit([&e](const auto& body) { encodeBody(e, body); }, message.body);
  e.finish();
  const size_t length = out.size() - start;
  if (e.err.ok() && length > kMaxFrameSize) {
    e.err.code = ErrorCode::kFrameTooLarge;
    e.err.parameter = messageName(static_cast<MessageType>(type));
    e.err.offset = kMaxFrameSize;
  }
  e.err.messageType = type;
  e.err.messageId = message.id;
  if (!e.err.ok()) {
    out.resize(start);
    return e.err;
  }
  out[start + 2] = static_cast<uint8_t>(length >> 24);
  out[start + 3] = static_cast<uint8_t>(length >> 16);
  out[start + 4] = static_cast<uint8_t>(length >> 8);
  out[start + 5] = static_cast<uint8_t>(length);
  return e.err;
}

LLRPStatus statusForError(const Error& error) {
  LLRPStatus s;
  switch (error.code) {
    case ErrorCode::kOk:
      s.statusCode = StatusCode::kSuccess;
      break;
    case ErrorCode::kBadVersion:
      s.statusCode = StatusCode::kMUnsupportedVersion;
      break;
    case ErrorCode::kUnknownMessage:
      s.statusCode = StatusCode::kMUnsupportedMessage;
      break;
    case ErrorCode::kMissingParameter:
      s.statusCode = StatusCode::kMMissingParameter;
      break;
    case ErrorCode::kDuplicateParameter:
      s.statusCode = StatusCode::kMDuplicateParameter;
      break;
    case ErrorCode::kUnknownTvType:
      s.statusCode = StatusCode::kMUnknownParameter;
      break;
    case ErrorCode::kBadField:
      s.statusCode = StatusCode::kMFieldError;
      break;
    default:
      s.statusCode = StatusCode::kMParameterError;
      break;
  }
  if (!error.ok()) s.errorDescription = error.text();
  return s;
}

}  // namespace tessera::llrp
