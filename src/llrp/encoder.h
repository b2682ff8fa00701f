// src/llrp/encoder.h — encodes any described record (see descriptions_common.h) onto bytes.
//
// The description is walked once: fixed fields are appended in order, sub-parameters follow
// in the order the description lists them, each TLV's length is patched once its body is
// written. A value that does not fit its wire field fails the encode; the caller restores the
// vector.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "llrp/codec.h"
#include "llrp/slots.h"

namespace tessera::llrp::encoding {

class Encoder {
 public:
  Encoder(std::vector<uint8_t>& out, size_t frameStart)
      : out_(out), start_(frameStart), len_(out.size()) {}

  Error err;

  template <class T>
  [[gnu::always_inline]] void u8(const char*, const T& v) {
    *grow(1) = static_cast<uint8_t>(v);
  }
  template <class T>
  void s8(const char* field, const T& v) {
    u8(field, v);
  }
  template <class T>
  [[gnu::always_inline]] void u16(const char*, const T& v) {
    put16(static_cast<uint16_t>(v));
  }
  template <class T>
  void s16(const char* field, const T& v) {
    u16(field, v);
  }
  template <class T>
  [[gnu::always_inline]] void u32(const char*, const T& v) {
    put32(static_cast<uint32_t>(v));
  }
  void u64(const char*, uint64_t v) {
    put32(static_cast<uint32_t>(v >> 32));
    put32(static_cast<uint32_t>(v));
  }
  void u96(const char*, const std::array<uint8_t, 12>& v) { std::memcpy(grow(12), v.data(), 12); }
  // A field of fewer than 8 bits, packed most significant bit first; values that do not fit
  // fail the encode.
  template <class T>
  void bits(int width, const char* field, const T& v) {
    const unsigned x = static_cast<unsigned>(v);
    if (x >> width) fail(ErrorCode::kBadField, field);
    putBits(width, x);
  }
  void reserved(int width) { putBits(width, 0); }
  void utf8v(const char* field, const std::string& s) {
    if (count(s.size(), field)) bytes(reinterpret_cast<const uint8_t*>(s.data()), s.size());
  }
  void u1v(const char* field, const BitString& b) {
    if (b.bytes.size() != (size_t{b.bitCount} + 7) / 8) fail(ErrorCode::kBadField, field);
    put16(b.bitCount);
    bytes(b.bytes.data(), b.bytes.size());
  }
  template <class T>
  void u8v(const char* field, const std::vector<T>& v) {
    if (!count(v.size(), field)) return;
    uint8_t* p = grow(v.size());
    for (size_t i = 0; i < v.size(); ++i) p[i] = static_cast<uint8_t>(v[i]);
  }
  void u16v(const char* field, const std::vector<uint16_t>& v) {
    if (!count(v.size(), field)) return;
    for (uint16_t x : v) put16(x);
  }
  void u32v(const char* field, const std::vector<uint32_t>& v) {
    if (!count(v.size(), field)) return;
    for (uint32_t x : v) put32(x);
  }
  void bytesToEnd(const char*, const std::vector<uint8_t>& v) { bytes(v.data(), v.size()); }

  template <class D, class M>
  [[gnu::always_inline]] void sub(D, const M& m) {
    slots::forEach(m, [this](const auto& rec) { this->template parameter<D>(rec); });
  }
  template <class M, class... Ds>
  void choice(const char*, const M& m, Ds... ds) {
    slots::forChosen(
        m, [this](auto d, const auto& r) { this->template parameter<decltype(d)>(r); }, ds...);
  }
  template <class M, class... Ds>
  void choices(const char* name, const M& m, Ds... ds) {
    for (const auto& element : m) choice(name, element, ds...);
  }

  // Writes one parameter: TV type byte or TLV header, its fields, its sub-parameters.
  template <class D, class R>
  [[gnu::always_inline]] void parameter(const R& rec) {
    if constexpr (D::kTv) {
      // A TV value is whole bytes of fixed width: nothing in it can fail.
      *grow(1) = static_cast<uint8_t>(0x80 | D::kType);
      D::fields(*this, rec);
    } else {
      const char* outer = parameter_;
      parameter_ = D::kName;
      if (++depth_ >= kMaxDepth) {
        // The message body and every level above take one each; deeper would not decode.
        fail(ErrorCode::kTooDeep, "");
      } else {
        const size_t at = len_;
        put16(D::kType);
        put16(0);
        D::fields(*this, rec);
        patchLength(at);
      }
      --depth_;
      parameter_ = outer;
    }
  }
  // Writes the fields and sub-parameters of a message body.
  template <class D, class R>
  void body(const R& rec) {
    parameter_ = D::kName;
    D::fields(*this, rec);
  }
  // Cuts the vector to what was written; called once after the last write.
  void finish() { out_.resize(len_); }

 private:
  [[gnu::always_inline]] void put16(uint16_t v) {
    uint8_t* p = grow(2);
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
  }
  [[gnu::always_inline]] void put32(uint32_t v) {
    uint8_t* p = grow(4);
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
  }
  void putBits(int width, unsigned v) {
    for (int i = width - 1; i >= 0; --i) {
      bitByte_ = static_cast<uint8_t>((bitByte_ << 1) | ((v >> i) & 1u));
      if (++bitCount_ == 8) {
        *grow(1) = bitByte_;
        bitByte_ = 0;
        bitCount_ = 0;
      }
    }
  }
  void bytes(const uint8_t* p, size_t n) {
    if (n != 0) std::memcpy(grow(n), p, n);
  }
  // A count-prefixed vector's count (u8v, u16v, u32v, utf8v).
  bool count(size_t n, const char* field) {
    if (n > 0xffff) {
      fail(ErrorCode::kTooLong, field);
      put16(0);
      return false;
    }
    put16(static_cast<uint16_t>(n));
    return true;
  }
  // A parameter longer than 65535 bytes cannot be encoded.
  void patchLength(size_t at) {
    const size_t length = len_ - at;
    if (length > 0xffff) return fail(ErrorCode::kTooLong, "");
    out_[at + 2] = static_cast<uint8_t>(length >> 8);
    out_[at + 3] = static_cast<uint8_t>(length);
  }
  void fail(ErrorCode code, const char* field) {
    if (!err.ok()) return;
    err.code = code;
    err.parameter = parameter_;
    err.field = field;
    const size_t at = len_ - start_;
    err.offset = at > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(at);
  }
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
  const char* parameter_ = "";
  int depth_ = 0;
  uint8_t bitByte_ = 0;
  int bitCount_ = 0;
};

}  // namespace tessera::llrp::encoding
