// src/llrp/decoder.h — decodes any described record from a frame (see descriptions.h).
//
// A record is decoded in three walks over its description: the first reads the fixed fields
// in order and clears the optional sub-parameters, the second runs once per sub-parameter
// found in the frame (in any order) and decodes it into the member whose type number matches,
// the third reports a required sub-parameter that never came and cuts lists to what this
// decode filled. List elements left from an earlier decode into the same record are reused
// with their buffers, so a client decoding report after report into one Message stops
// allocating once the first reports have been seen.
//
// Every read is checked against the end of the innermost parameter and every sub-parameter's
// length against its parent; the first failure is kept in the Decoder and all later reads are
// skipped.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "llrp/codec.h"
#include "llrp/slots.h"
#include "llrp/wire.h"

namespace tessera::llrp::decoding {

using wire::Range;

struct Decoder {
  const uint8_t* frame = nullptr;
  Error err;
  int depth = 0;

  bool ok() const { return err.ok(); }
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

// Walks the sub-parameters of a parameter or message body, one nesting level deeper.
class Params {
 public:
  [[gnu::always_inline]] Params(Decoder& d, uint32_t begin, uint32_t end, const char* name)
      : d_(d), pos_(begin), end_(end), name_(name) {
    if (++d_.depth > kMaxDepth) {
      d_.fail(ErrorCode::kTooDeep, begin, name, "");
      end_ = pos_;  // nothing to walk
    }
  }
  [[gnu::always_inline]] ~Params() { --d_.depth; }
  Params(const Params&) = delete;
  Params& operator=(const Params&) = delete;

  // Steps to the next sub-parameter: TV types are checked for a known width, TLV lengths
  // against the header size and the parent. False at the end or on failure. A TLV in the TV
  // number range is no parameter at all and is stepped over.
  [[gnu::always_inline]] bool next() {
    while (pos_ < end_) {
      start = pos_;
      const uint8_t* p = d_.frame + pos_;
      if (p[0] & 0x80) {
        type = p[0] & 0x7f;
        const uint8_t width = wire::kTvWidth[type];
        if (width == 0) return d_.fail(ErrorCode::kUnknownTvType, pos_, name_, "", type);
        if (end_ - pos_ - 1 < width)
          return d_.fail(ErrorCode::kBadLength, pos_, name_, "TV value past the parent", type);
        body = Range{pos_ + 1, pos_ + 1 + width};
        pos_ = body.end;
        return true;
      }
      if (end_ - pos_ < wire::kTlvHeaderSize)
        return d_.fail(ErrorCode::kTruncated, pos_, name_, "parameter header");
      type = wire::load16(p) & 0x3ff;
      const uint16_t length = wire::load16(p + 2);
      if (length < wire::kTlvHeaderSize)
        return d_.fail(ErrorCode::kBadLength, pos_ + 2, name_, "parameter length below 4", type);
      if (length > end_ - pos_)
        return d_.fail(ErrorCode::kBadLength, pos_ + 2, name_, "parameter longer than its parent",
                       type);
      body = Range{pos_ + wire::kTlvHeaderSize, pos_ + length};
      pos_ += length;
      if (type >= wire::kFirstTlvType) return true;
    }
    return false;
  }
  // Records that a sub-parameter allowed once appears again.
  void duplicate(const char* parent, const char* field) const {
    d_.fail(ErrorCode::kDuplicateParameter, start, parent, field, type);
  }

  uint16_t type = 0;  // TV types are below 128, TLV types from 128, so the number says which
  uint32_t start = 0;
  Range body;

 private:
  Decoder& d_;
  uint32_t pos_;
  uint32_t end_;
  const char* name_;
};

// What the walks over one record's description share: which sub-parameter slots were filled
// (bit i for the i-th slot described) and how many elements each list slot used. Only the
// counts of list slots are set (by the first walk) and read.
struct SlotState {
  static constexpr int kMaxSlots = 32;
  uint32_t seen = 0;
  uint32_t used[kMaxSlots];
};

template <class D, class R>
void decodeRecord(Decoder& d, Range body, uint32_t headerAt, R& rec);
template <class D, class R>
constexpr bool hasSubParameters();
template <class D, class R>
void decodeFixedRecord(Decoder& d, Range body, R& rec);

// Reads the value of a TV parameter, whose width Params::next() has already checked against
// the bytes there; tvWidth() below proves each TV description reads exactly that width.
class TvReader {
 public:
  explicit TvReader(const uint8_t* p) : p_(p) {}
  template <class T>
  [[gnu::always_inline]] void u8(const char*, T& v) {
    v = static_cast<T>(*p_++);
  }
  template <class T>
  [[gnu::always_inline]] void s8(const char* field, T& v) {
    u8(field, v);
  }
  template <class T>
  [[gnu::always_inline]] void u16(const char*, T& v) {
    v = static_cast<T>(wire::load16(p_));
    p_ += 2;
  }
  template <class T>
  [[gnu::always_inline]] void u32(const char*, T& v) {
    v = static_cast<T>(wire::load32(p_));
    p_ += 4;
  }
  [[gnu::always_inline]] void u64(const char*, uint64_t& v) {
    v = wire::load64(p_);
    p_ += 8;
  }
  [[gnu::always_inline]] void u96(const char*, std::array<uint8_t, 12>& v) {
    std::memcpy(v.data(), p_, 12);
    p_ += 12;
  }

 private:
  const uint8_t* p_;
};

// Counts the bytes of a TV description's fields, at compile time.
struct TvWidth {
  uint32_t n = 0;
  template <class T>
  constexpr void u8(const char*, T&) {
    n += 1;
  }
  template <class T>
  constexpr void s8(const char*, T&) {
    n += 1;
  }
  template <class T>
  constexpr void u16(const char*, T&) {
    n += 2;
  }
  template <class T>
  constexpr void u32(const char*, T&) {
    n += 4;
  }
  constexpr void u64(const char*, uint64_t&) { n += 8; }
  constexpr void u96(const char*, std::array<uint8_t, 12>&) { n += 12; }
};
template <class D, class R>
constexpr uint32_t tvWidth() {
  R r{};
  TvWidth w;
  D::fields(w, r);
  return w.n;
}

// Decodes the sub-parameter the walker stands on with description D.
template <class D, class R>
[[gnu::always_inline]] inline void decodeParameter(Decoder& d, const Params& it, R& rec) {
  if constexpr (D::kTv) {
    static_assert(tvWidth<D, R>() == wire::kTvWidth[D::kType], "TV width differs from the table");
    TvReader reader(d.frame + it.body.begin);
    D::fields(reader, rec);
  } else if constexpr (!hasSubParameters<D, R>()) {
    decodeFixedRecord<D>(d, it.body, rec);
  } else {
    decodeRecord<D>(d, it.body, it.start, rec);
  }
}

// First walk: the fixed fields, in order.
class FieldReader {
 public:
  [[gnu::always_inline]] FieldReader(Decoder& d, Range r, const char* name, SlotState& s)
      : d_(d), s_(s), pos_(r.begin), end_(r.end), name_(name) {}

  uint32_t pos() const { return pos_; }
  bool hasSubParameters() const { return hasSubs_; }
  bool ok() const { return !failed_; }

  template <class T>
  [[gnu::always_inline]] void u8(const char* field, T& v) {
    if (need(1, field)) v = static_cast<T>(d_.frame[pos_++]);
  }
  template <class T>
  [[gnu::always_inline]] void s8(const char* field, T& v) {
    u8(field, v);
  }
  template <class T>
  [[gnu::always_inline]] void u16(const char* field, T& v) {
    if (!need(2, field)) return;
    v = static_cast<T>(wire::load16(d_.frame + pos_));
    pos_ += 2;
  }
  template <class T>
  [[gnu::always_inline]] void s16(const char* field, T& v) {
    u16(field, v);
  }
  template <class T>
  [[gnu::always_inline]] void u32(const char* field, T& v) {
    if (!need(4, field)) return;
    v = static_cast<T>(wire::load32(d_.frame + pos_));
    pos_ += 4;
  }
  [[gnu::always_inline]] void u64(const char* field, uint64_t& v) {
    if (!need(8, field)) return;
    v = wire::load64(d_.frame + pos_);
    pos_ += 8;
  }
  void u96(const char* field, std::array<uint8_t, 12>& v) {
    if (!need(12, field)) return;
    std::memcpy(v.data(), d_.frame + pos_, 12);
    pos_ += 12;
  }
  // A field of fewer than 8 bits, packed most significant bit first.
  template <class T>
  void bits(int width, const char* field, T& v) {
    v = static_cast<T>(takeBits(width, field));
  }
  void reserved(int width) { takeBits(width, "reserved"); }
  void utf8v(const char* field, std::string& v) {
    uint16_t n = 0;
    u16(field, n);
    if (!need(n, field)) return;
    v.assign(reinterpret_cast<const char*>(d_.frame + pos_), n);
    pos_ += n;
  }
  void u1v(const char* field, BitString& v) {
    u16(field, v.bitCount);
    const uint32_t n = (uint32_t{v.bitCount} + 7) / 8;
    if (!need(n, field)) return;
    v.bytes.assign(d_.frame + pos_, d_.frame + pos_ + n);
    pos_ += n;
  }
  template <class T>
  void u8v(const char* field, std::vector<T>& v) {
    uint16_t n = 0;
    u16(field, n);
    if (!need(n, field)) return;
    v.resize(n);
    for (uint16_t i = 0; i < n; ++i) v[i] = static_cast<T>(d_.frame[pos_ + i]);
    pos_ += n;
  }
  void u16v(const char* field, std::vector<uint16_t>& v) {
    uint16_t n = 0;
    u16(field, n);
    if (!need(uint32_t{n} * 2, field)) return;
    v.resize(n);
    for (uint16_t i = 0; i < n; ++i) v[i] = wire::load16(d_.frame + pos_ + 2u * i);
    pos_ += uint32_t{n} * 2;
  }
  void u32v(const char* field, std::vector<uint32_t>& v) {
    uint16_t n = 0;
    u16(field, n);
    if (!need(uint32_t{n} * 4, field)) return;
    v.resize(n);
    for (uint16_t i = 0; i < n; ++i) v[i] = wire::load32(d_.frame + pos_ + 4u * i);
    pos_ += uint32_t{n} * 4;
  }
  [[gnu::always_inline]] void bytesToEnd(const char*, std::vector<uint8_t>& v) {
    if (failed_) return;
    v.assign(d_.frame + pos_, d_.frame + end_);
    pos_ = end_;
  }
  // Sub-parameters come after the fixed fields; here only the slots are cleared.
  template <class D, class M>
  void sub(D, M& m) {
    hasSubs_ = true;
    const int i = slot_++;
    constexpr auto c = slots::Slot<M>::kCardinality;
    if constexpr (c == slots::Cardinality::kList) {
      s_.used[i] = 0;
      s_.seen |= 1u << i;
    } else if constexpr (c == slots::Cardinality::kOptional) {
      m.reset();
    } else if constexpr (c == slots::Cardinality::kChain) {
      if (m.list->size() > m.index)
        m.list->erase(m.list->begin() + static_cast<std::ptrdiff_t>(m.index), m.list->end());
    }
  }
  template <class M, class... Ds>
  void choice(const char*, M&, Ds...) {
    hasSubs_ = true;
    ++slot_;
  }
  template <class M, class... Ds>
  void choices(const char*, M&, Ds...) {
    hasSubs_ = true;
    const int i = slot_++;
    s_.used[i] = 0;
    s_.seen |= 1u << i;
  }
  // A record without sub-parameters must end exactly after its fields.
  [[gnu::always_inline]] void done() {
    if (!failed_ && pos_ != end_)
      failed_ = !d_.fail(ErrorCode::kBadLength, pos_, name_, "bytes after the last field");
  }

 private:
  [[gnu::always_inline]] bool need(uint32_t n, const char* field) {
    if (failed_) return false;
    if (end_ - pos_ >= n) return true;
    failed_ = true;
    return d_.fail(ErrorCode::kTruncated, pos_, name_, field);
  }
  unsigned takeBits(int width, const char* field) {
    unsigned v = 0;
    for (int i = 0; i < width; ++i) {
      if (bitsLeft_ == 0) {
        if (!need(1, field)) return 0;
        byte_ = d_.frame[pos_++];
        bitsLeft_ = 8;
      }
      --bitsLeft_;
      v = (v << 1) | ((byte_ >> bitsLeft_) & 1u);
    }
    return v;
  }

  Decoder& d_;
  SlotState& s_;
  uint32_t pos_;
  uint32_t end_;
  const char* name_;
  int slot_ = 0;
  bool failed_ = false;
  bool hasSubs_ = false;
  uint8_t byte_ = 0;
  int bitsLeft_ = 0;
};

// The fixed-field calls of a description, ignored by the walks over sub-parameters.
struct SkipFields {
  template <class T>
  void u8(const char*, T&) {}
  template <class T>
  void s8(const char*, T&) {}
  template <class T>
  void u16(const char*, T&) {}
  template <class T>
  void s16(const char*, T&) {}
  template <class T>
  void u32(const char*, T&) {}
  void u64(const char*, uint64_t&) {}
  void u96(const char*, std::array<uint8_t, 12>&) {}
  template <class T>
  void bits(int, const char*, T&) {}
  void reserved(int) {}
  void utf8v(const char*, std::string&) {}
  void u1v(const char*, BitString&) {}
  template <class T>
  void u8v(const char*, std::vector<T>&) {}
  void u16v(const char*, std::vector<uint16_t>&) {}
  void u32v(const char*, std::vector<uint32_t>&) {}
  void bytesToEnd(const char*, std::vector<uint8_t>&) {}
};

// Decodes the sub-parameter the walker stands on into slot i of a record, member m; a second
// one where only one may be fails the frame.
template <class D, class M>
[[gnu::always_inline]] inline void take(Decoder& d, const Params& it, SlotState& s, int i,
                                        M& m, const char* parent) {
  const uint32_t bit = 1u << i;
  constexpr auto c = slots::Slot<M>::kCardinality;
  if constexpr (c == slots::Cardinality::kOne) {
    if (s.seen & bit) return it.duplicate(parent, D::kName);
    s.seen |= bit;
    decodeParameter<D>(d, it, m);
  } else if constexpr (c == slots::Cardinality::kOptional) {
    if (m) return it.duplicate(parent, D::kName);
    decodeParameter<D>(d, it, m.emplace());
  } else if constexpr (c == slots::Cardinality::kList) {
    uint32_t& used = s.used[i];
    if (used < m.size()) {
      decodeParameter<D>(d, it, m[used++]);
    } else {
      ++used;
      decodeParameter<D>(d, it, m.emplace_back());
    }
  } else {
    if (m.present()) return it.duplicate(parent, D::kName);
    m.list->emplace_back();
    decodeParameter<D>(d, it, m);
  }
}

// Alternative I of a choice, when its type is the one the walker stands on.
template <size_t I, class M, class D, class... Rest>
[[gnu::always_inline]] inline bool takeChoice(Decoder& d, const Params& it, SlotState& s, int i,
                                              M& m, const char* parent) {
  if (it.type == D::kType) {
    const uint32_t bit = 1u << i;
    if (s.seen & bit) {
      it.duplicate(parent, D::kName);
    } else {
      s.seen |= bit;
      decodeParameter<D>(d, it, slots::ChoiceTraits<M>::template select<I>(m));
    }
    return true;
  }
  if constexpr (sizeof...(Rest) > 0) {
    return takeChoice<I + 1, M, Rest...>(d, it, s, i, m, parent);
  } else {
    return false;
  }
}

// The next element of a list of choices, when the walker stands on one of its types.
template <size_t I, class M, class D, class... Rest>
[[gnu::always_inline]] inline bool takeChoiceElement(Decoder& d, const Params& it, SlotState& s,
                                                     int i, M& m) {
  if (it.type == D::kType) {
    uint32_t& used = s.used[i];
    auto& element = used < m.size() ? m[used] : m.emplace_back();
    ++used;
    using Element = typename M::value_type;
    decodeParameter<D>(d, it, slots::ChoiceTraits<Element>::template select<I>(element));
    return true;
  }
  if constexpr (sizeof...(Rest) > 0) {
    return takeChoiceElement<I + 1, M, Rest...>(d, it, s, i, m);
  } else {
    return false;
  }
}

// Second walk, for frames in the order of the description (as every encoder writes them):
// each slot takes the sub-parameters of its type that come next. It stops where the frame
// leaves that order; SubMatcher then places the rest one by one.
class InOrderWalk : public SkipFields {
 public:
  [[gnu::always_inline]] InOrderWalk(Decoder& d, Params& it, SlotState& s, const char* parent)
      : d_(d), it_(it), s_(s), parent_(parent) {
    more_ = it_.next();
  }
  // True when sub-parameters are left over for SubMatcher (the walker stands on the first).
  bool more() const { return more_ && d_.ok(); }

  template <class D, class M>
  [[gnu::always_inline]] void sub(D, M& m) {
    const int i = slot_++;
    while (more_ && it_.type == D::kType) {
      take<D>(d_, it_, s_, i, m, parent_);
      // A TV value cannot fail to decode, and this is the first visit of the slot.
      if constexpr (D::kTv) {
        more_ = it_.next();
      } else {
        more_ = d_.ok() && it_.next();
      }
      if constexpr (slots::Slot<M>::kCardinality != slots::Cardinality::kList) break;
    }
  }
  template <class M, class... Ds>
  [[gnu::always_inline]] void choice(const char*, M& m, Ds...) {
    const int i = slot_++;
    if (more_ && takeChoice<0, M, Ds...>(d_, it_, s_, i, m, parent_))
      more_ = d_.ok() && it_.next();
  }
  template <class M, class... Ds>
  [[gnu::always_inline]] void choices(const char*, M& m, Ds...) {
    const int i = slot_++;
    while (more_ && takeChoiceElement<0, M, Ds...>(d_, it_, s_, i, m))
      more_ = d_.ok() && it_.next();
  }

 private:
  Decoder& d_;
  Params& it_;
  SlotState& s_;
  const char* parent_;
  int slot_ = 0;
  bool more_ = false;
};

// Second walk, for the rest: hands the sub-parameter the walker stands on to the slot whose
// type matches. A parameter no slot takes is skipped.
class SubMatcher : public SkipFields {
 public:
  SubMatcher(Decoder& d, const Params& it, SlotState& s, const char* parent)
      : d_(d), it_(it), s_(s), parent_(parent) {}

  template <class D, class M>
  [[gnu::always_inline]] void sub(D, M& m) {
    const int i = slot_++;
    if (taken_ || it_.type != D::kType) return;
    taken_ = true;
    take<D>(d_, it_, s_, i, m, parent_);
  }
  template <class M, class... Ds>
  [[gnu::always_inline]] void choice(const char*, M& m, Ds...) {
    const int i = slot_++;
    if (!taken_) taken_ = takeChoice<0, M, Ds...>(d_, it_, s_, i, m, parent_);
  }
  template <class M, class... Ds>
  [[gnu::always_inline]] void choices(const char*, M& m, Ds...) {
    const int i = slot_++;
    if (!taken_) taken_ = takeChoiceElement<0, M, Ds...>(d_, it_, s_, i, m);
  }

 private:
  Decoder& d_;
  const Params& it_;
  SlotState& s_;
  const char* parent_;
  int slot_ = 0;
  bool taken_ = false;
};

// Third walk: required sub-parameters that never came, lists cut to what was decoded.
class SlotFinisher : public SkipFields {
 public:
  SlotFinisher(Decoder& d, const SlotState& s, uint32_t headerAt, const char* name)
      : d_(d), s_(s), headerAt_(headerAt), name_(name) {}

  template <class D, class M>
  [[gnu::always_inline]] void sub(D, M& m) {
    const int i = slot_++;
    constexpr auto c = slots::Slot<M>::kCardinality;
    if constexpr (c == slots::Cardinality::kOne) {
      if (!((s_.seen >> i) & 1u)) missing(D::kName);
    } else if constexpr (c == slots::Cardinality::kList) {
      const size_t used = s_.used[i];
      if (used < m.size()) m.erase(m.begin() + static_cast<std::ptrdiff_t>(used), m.end());
    }
  }
  template <class M, class... Ds>
  void choice(const char* name, M&, Ds...) {
    const int i = slot_++;
    if (!((s_.seen >> i) & 1u)) missing(name);
  }
  template <class M, class... Ds>
  [[gnu::always_inline]] void choices(const char*, M& m, Ds...) {
    const size_t used = s_.used[slot_++];
    if (used < m.size()) m.erase(m.begin() + static_cast<std::ptrdiff_t>(used), m.end());
  }

 private:
  void missing(const char* field) {
    d_.fail(ErrorCode::kMissingParameter, headerAt_, name_, field);
  }

  Decoder& d_;
  const SlotState& s_;
  uint32_t headerAt_;
  const char* name_;
  int slot_ = 0;
};

// Tells, at compile time, whether a description lists any sub-parameter.
struct SubParameterProbe {
  bool any = false;
  template <class... A>
  constexpr void u8(A&&...) {}
  template <class... A>
  constexpr void s8(A&&...) {}
  template <class... A>
  constexpr void u16(A&&...) {}
  template <class... A>
  constexpr void s16(A&&...) {}
  template <class... A>
  constexpr void u32(A&&...) {}
  template <class... A>
  constexpr void u64(A&&...) {}
  template <class... A>
  constexpr void u96(A&&...) {}
  template <class... A>
  constexpr void bits(A&&...) {}
  template <class... A>
  constexpr void reserved(A&&...) {}
  template <class... A>
  constexpr void utf8v(A&&...) {}
  template <class... A>
  constexpr void u1v(A&&...) {}
  template <class... A>
  constexpr void u8v(A&&...) {}
  template <class... A>
  constexpr void u16v(A&&...) {}
  template <class... A>
  constexpr void u32v(A&&...) {}
  template <class... A>
  constexpr void bytesToEnd(A&&...) {}
  template <class... A>
  constexpr void sub(A&&...) {
    any = true;
  }
  template <class... A>
  constexpr void choice(A&&...) {
    any = true;
  }
  template <class... A>
  constexpr void choices(A&&...) {
    any = true;
  }
};
template <class D, class R>
constexpr bool hasSubParameters() {
  if constexpr (slots::Slot<R>::kCardinality == slots::Cardinality::kChain) {
    return true;
  } else {
    R r{};
    SubParameterProbe probe;
    D::fields(probe, r);
    return probe.any;
  }
}

// Decodes one record whose fields start at body.begin; headerAt is where a missing
// sub-parameter is reported (the parameter's header, or the body of a message).
template <class D, class R>
[[gnu::always_inline]] inline void decodeFixedRecord(Decoder& d, Range body, R& rec) {
  SlotState unused;
  FieldReader fields(d, body, D::kName, unused);
  D::fields(fields, rec);
  fields.done();
}

template <class D, class R>
void decodeRecord(Decoder& d, Range body, uint32_t headerAt, R& rec) {
  if constexpr (!hasSubParameters<D, R>()) {
    decodeFixedRecord<D>(d, body, rec);
    return;
  }
  SlotState state;
  FieldReader fields(d, body, D::kName, state);
  D::fields(fields, rec);
  if (!fields.ok()) return;
  {
    Params it(d, fields.pos(), body.end, D::kName);
    InOrderWalk inOrder(d, it, state, D::kName);
    D::fields(inOrder, rec);
    if (inOrder.more()) {
      do {
        SubMatcher match(d, it, state, D::kName);
        D::fields(match, rec);
      } while (d.ok() && it.next());
    }
    if (!d.ok()) return;
  }
  SlotFinisher finish(d, state, headerAt, D::kName);
  D::fields(finish, rec);
}

}  // namespace tessera::llrp::decoding
