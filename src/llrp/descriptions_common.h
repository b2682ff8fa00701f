// src/llrp/descriptions_common.h — how a record is described, and the parameters shared by many.
//
// Each description names the parameter, its type number, whether it is TV or TLV, and lists
// its fields and sub-parameters in wire order in one `fields(v, r)`: the decoder, the encoder
// and the table of names all walk the same list (decoder.h, encoder.h, description_table.h).
// Field names are LLRP's own, as the definitions file spells them.
#pragma once

#include <cstdint>

#include "llrp/records.h"
#include "llrp/slots.h"

namespace tessera::llrp::desc {

template <uint16_t Type>
struct Tlv {
  static constexpr uint16_t kType = Type;
  static constexpr bool kTv = false;
};
template <uint16_t Type>
struct Tv {
  static constexpr uint16_t kType = Type;
  static constexpr bool kTv = true;
};

// The microseconds of a timestamp, whether kept alone or with its UTC/uptime flag.
constexpr uint64_t& microseconds(uint64_t& v) { return v; }
constexpr const uint64_t& microseconds(const uint64_t& v) { return v; }
constexpr uint64_t& microseconds(Timestamp& t) { return t.microseconds; }
constexpr const uint64_t& microseconds(const Timestamp& t) { return t.microseconds; }

// ---- shared ----

struct Custom : Tlv<1023> {
  static constexpr const char* kName = "Custom";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("VendorIdentifier", r.vendorId);
    v.u32("ParameterSubtype", r.subtype);
    v.bytesToEnd("Data", r.data);
  }
};

struct UTCTimestamp : Tlv<128> {
  static constexpr const char* kName = "UTCTimestamp";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u64("Microseconds", microseconds(r));
  }
};

struct Uptime : Tlv<129> {
  static constexpr const char* kName = "Uptime";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u64("Microseconds", microseconds(r));
  }
};

struct FieldError : Tlv<288> {
  static constexpr const char* kName = "FieldError";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("FieldNum", r.fieldNum);
    v.u16("ErrorCode", r.errorCode);
  }
};

// Kept flat in LLRPStatus::parameterErrors: the record is a link into that list.
struct ParameterError : Tlv<289> {
  static constexpr const char* kName = "ParameterError";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& link) {
    auto& e = link.element();
    v.u16("ParameterType", e.parameterType);
    v.u16("ErrorCode", e.errorCode);
    v.sub(FieldError{}, e.fieldError);
    auto nested = link.next();
    v.sub(ParameterError{}, nested);
  }
};

struct LLRPStatus : Tlv<287> {
  static constexpr const char* kName = "LLRPStatus";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("StatusCode", r.statusCode);
    v.utf8v("ErrorDescription", r.errorDescription);
    v.sub(FieldError{}, r.fieldError);
    auto chain = slots::chainAt(r.parameterErrors);
    v.sub(ParameterError{}, chain);
  }
};

// ---- TV parameters holding one value ----

#define TESSERA_LLRP_TV_VALUE(Name, number, width, field)  \
  struct Name : Tv<number> {                                 \
    static constexpr const char* kName = #Name;              \
    template <class V, class R>                              \
    [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {                         \
      v.width(field, r);                                     \
    }                                                        \
  }

TESSERA_LLRP_TV_VALUE(AntennaID, 1, u16, "AntennaID");
TESSERA_LLRP_TV_VALUE(FirstSeenTimestampUTC, 2, u64, "Microseconds");
TESSERA_LLRP_TV_VALUE(FirstSeenTimestampUptime, 3, u64, "Microseconds");
TESSERA_LLRP_TV_VALUE(LastSeenTimestampUTC, 4, u64, "Microseconds");
TESSERA_LLRP_TV_VALUE(LastSeenTimestampUptime, 5, u64, "Microseconds");
TESSERA_LLRP_TV_VALUE(PeakRSSI, 6, s8, "PeakRSSI");
TESSERA_LLRP_TV_VALUE(ChannelIndex, 7, u16, "ChannelIndex");
TESSERA_LLRP_TV_VALUE(TagSeenCount, 8, u16, "TagCount");
TESSERA_LLRP_TV_VALUE(ROSpecID, 9, u32, "ROSpecID");
TESSERA_LLRP_TV_VALUE(InventoryParameterSpecID, 10, u16, "InventoryParameterSpecID");
TESSERA_LLRP_TV_VALUE(C1G2_CRC, 11, u16, "CRC");
TESSERA_LLRP_TV_VALUE(C1G2_PC, 12, u16, "PC_Bits");
TESSERA_LLRP_TV_VALUE(SpecIndex, 14, u16, "SpecIndex");
TESSERA_LLRP_TV_VALUE(AccessSpecID, 16, u32, "AccessSpecID");
TESSERA_LLRP_TV_VALUE(OpSpecID, 17, u16, "OpSpecID");

#undef TESSERA_LLRP_TV_VALUE

struct EPC_96 : Tv<13> {
  static constexpr const char* kName = "EPC_96";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u96("EPC", r.epc);
  }
};

struct C1G2SingulationDetails : Tv<18> {
  static constexpr const char* kName = "C1G2SingulationDetails";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("NumCollisionSlots", r.numCollisionSlots);
    v.u16("NumEmptySlots", r.numEmptySlots);
  }
};

}  // namespace tessera::llrp::desc
