// src/llrp/descriptions_access.h — the parameters of tag access: AccessSpec, its OpSpecs and
// the OpSpec results that come back in tag reports.
#pragma once

#include "llrp/descriptions_common.h"
#include "llrp/descriptions_config.h"

namespace tessera::llrp::desc {

struct C1G2TargetTag : Tlv<339> {
  static constexpr const char* kName = "C1G2TargetTag";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(2, "MB", r.mb);
    v.bits(1, "Match", r.match);
    v.reserved(5);
    v.u16("Pointer", r.pointer);
    v.u1v("TagMask", r.tagMask);
    v.u1v("TagData", r.tagData);
  }
};

struct C1G2TagSpec : Tlv<338> {
  static constexpr const char* kName = "C1G2TagSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(C1G2TargetTag{}, r.targetTags);
  }
};

// C1G2Read and C1G2BlockErase share their layout.
#define TESSERA_LLRP_WORD_RANGE_OP(Name, number)                         \
  struct Name : Tlv<number> {                                            \
    static constexpr const char* kName = #Name;                          \
    template <class V, class R>                                          \
    [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {    \
      v.u16("OpSpecID", r.opSpecId);                                     \
      v.u32("AccessPassword", r.accessPassword);                         \
      v.bits(2, "MB", r.mb);                                             \
      v.reserved(6);                                                     \
      v.u16("WordPointer", r.wordPointer);                               \
      v.u16("WordCount", r.wordCount);                                   \
    }                                                                    \
  }
// C1G2Write and C1G2BlockWrite share theirs.
#define TESSERA_LLRP_WORD_WRITE_OP(Name, number)                         \
  struct Name : Tlv<number> {                                            \
    static constexpr const char* kName = #Name;                          \
    template <class V, class R>                                          \
    [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {    \
      v.u16("OpSpecID", r.opSpecId);                                     \
      v.u32("AccessPassword", r.accessPassword);                         \
      v.bits(2, "MB", r.mb);                                             \
      v.reserved(6);                                                     \
      v.u16("WordPointer", r.wordPointer);                               \
      v.u16v("WriteData", r.writeData);                                  \
    }                                                                    \
  }

TESSERA_LLRP_WORD_RANGE_OP(C1G2Read, 341);
TESSERA_LLRP_WORD_WRITE_OP(C1G2Write, 342);
TESSERA_LLRP_WORD_RANGE_OP(C1G2BlockErase, 346);
TESSERA_LLRP_WORD_WRITE_OP(C1G2BlockWrite, 347);

#undef TESSERA_LLRP_WORD_RANGE_OP
#undef TESSERA_LLRP_WORD_WRITE_OP

struct C1G2Kill : Tlv<343> {
  static constexpr const char* kName = "C1G2Kill";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("OpSpecID", r.opSpecId);
    v.u32("KillPassword", r.killPassword);
  }
};

struct C1G2LockPayload : Tlv<345> {
  static constexpr const char* kName = "C1G2LockPayload";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("Privilege", r.privilege);
    v.u8("DataField", r.dataField);
  }
};

struct C1G2Lock : Tlv<344> {
  static constexpr const char* kName = "C1G2Lock";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("OpSpecID", r.opSpecId);
    v.u32("AccessPassword", r.accessPassword);
    v.sub(C1G2LockPayload{}, r.payloads);
  }
};

struct AccessCommand : Tlv<209> {
  static constexpr const char* kName = "AccessCommand";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(C1G2TagSpec{}, r.tagSpec);
    v.choices("AccessCommandOpSpec", r.opSpecs, C1G2Read{}, C1G2Write{}, C1G2Kill{}, C1G2Lock{},
              C1G2BlockErase{}, C1G2BlockWrite{}, Custom{});
  }
};

struct AccessSpecStopTrigger : Tlv<208> {
  static constexpr const char* kName = "AccessSpecStopTrigger";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("AccessSpecStopTrigger", r.accessSpecStopTrigger);
    v.u16("OperationCountValue", r.operationCountValue);
  }
};

struct AccessSpec : Tlv<207> {
  static constexpr const char* kName = "AccessSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("AccessSpecID", r.accessSpecId);
    v.u16("AntennaID", r.antennaId);
    v.u8("ProtocolID", r.protocolId);
    v.bits(1, "CurrentState", r.currentState);
    v.reserved(7);
    v.u32("ROSpecID", r.roSpecId);
    v.sub(AccessSpecStopTrigger{}, r.accessSpecStopTrigger);
    v.sub(AccessCommand{}, r.accessCommand);
    v.sub(AccessReportSpec{}, r.accessReportSpec);
    v.sub(Custom{}, r.customs);
  }
};

// ---- OpSpec results ----

// The results that carry nothing but their code and OpSpec.
#define TESSERA_LLRP_PLAIN_RESULT(Name, number)                          \
  struct Name : Tlv<number> {                                            \
    static constexpr const char* kName = #Name;                          \
    template <class V, class R>                                          \
    [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {    \
      v.u8("Result", r.result);                                          \
      v.u16("OpSpecID", r.opSpecId);                                     \
    }                                                                    \
  }
// The results of writes, with the count of words written.
#define TESSERA_LLRP_WRITE_RESULT(Name, number)                          \
  struct Name : Tlv<number> {                                            \
    static constexpr const char* kName = #Name;                          \
    template <class V, class R>                                          \
    [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {    \
      v.u8("Result", r.result);                                          \
      v.u16("OpSpecID", r.opSpecId);                                     \
      v.u16("NumWordsWritten", r.numWordsWritten);                       \
    }                                                                    \
  }

TESSERA_LLRP_WRITE_RESULT(C1G2WriteOpSpecResult, 350);
TESSERA_LLRP_PLAIN_RESULT(C1G2KillOpSpecResult, 351);
TESSERA_LLRP_PLAIN_RESULT(C1G2LockOpSpecResult, 352);
TESSERA_LLRP_PLAIN_RESULT(C1G2BlockEraseOpSpecResult, 353);
TESSERA_LLRP_WRITE_RESULT(C1G2BlockWriteOpSpecResult, 354);

#undef TESSERA_LLRP_PLAIN_RESULT
#undef TESSERA_LLRP_WRITE_RESULT

struct C1G2ReadOpSpecResult : Tlv<349> {
  static constexpr const char* kName = "C1G2ReadOpSpecResult";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("Result", r.result);
    v.u16("OpSpecID", r.opSpecId);
    v.u16v("ReadData", r.readData);
  }
};

}  // namespace tessera::llrp::desc
