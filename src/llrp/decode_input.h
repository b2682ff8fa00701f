// src/llrp/decode_input.h — the reading side of the decoder: the frame, the walk over
// sub-parameters, and the readers of fixed fields (checked) and TV values (pre-checked).
//
// Every read is checked against the end of the innermost parameter and every sub-parameter's
// length against its parent; the first failure is kept in the Decoder and all later reads are
// skipped.
#pragma once

#include <array>
#include <cassert>
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
    assert(i < SlotState::kMaxSlots);
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
    assert(i < SlotState::kMaxSlots);
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

}  // namespace tessera::llrp::decoding
