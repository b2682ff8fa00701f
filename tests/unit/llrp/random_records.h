// tests/unit/llrp/random_records.h — random but encodable LLRP messages of every kind, filled by
// walking the same descriptions the codec walks: every field gets a random value within its
// wire width, every optional sub-parameter is there or not, every list has 0 to a few
// entries, every choice takes a random alternative. New record types are covered as soon as
// they are described.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "llrp/descriptions_messages.h"
#include "llrp/records.h"

namespace tessera::llrp::testing {

class RandomRecords {
 public:
  explicit RandomRecords(uint32_t seed) : rng_(seed) {}

  static constexpr size_t kKinds = std::variant_size_v<MessageBody>;

  // A message of the given alternative index of MessageBody.
  Message message(size_t kind) {
    Message m;
    m.id = u32();
    pick<0>(kind, m.body);
    return m;
  }

  void u8(const char*, auto& v) { draw(v, 256); }
  void s8(const char*, auto& v) { draw(v, 256); }
  void u16(const char*, auto& v) { draw(v, 65536); }
  void s16(const char*, auto& v) { draw(v, 65536); }
  void u32(const char*, auto& v) { draw(v, uint64_t{1} << 32); }
  void u64(const char*, uint64_t& v) { v = (uint64_t{u32()} << 32) | u32(); }
  void u96(const char*, std::array<uint8_t, 12>& v) { draw(v, 256); }
  void bits(int width, const char*, auto& v) { draw(v, uint64_t{1} << width); }
  void reserved(int) {}
  void utf8v(const char*, std::string& v) {
    v.resize(count(12));
    for (char& c : v) c = static_cast<char>(' ' + below(95));
  }
  void u1v(const char*, BitString& v) {
    v.bitCount = static_cast<uint16_t>(below(97));
    v.bytes.resize((v.bitCount + 7u) / 8u);
    draw(v.bytes, 256);
  }
  void u8v(const char*, auto& v) { drawList(v, 256); }
  void u16v(const char*, std::vector<uint16_t>& v) { drawList(v, 65536); }
  void u32v(const char*, std::vector<uint32_t>& v) { drawList(v, uint64_t{1} << 32); }
  void bytesToEnd(const char*, std::vector<uint8_t>& v) { drawList(v, 256); }

  template <class D, class M>
  void sub(D, M& m) {
    using Slot = slots::Slot<M>;
    if constexpr (Slot::kCardinality == slots::Cardinality::kOne) {
      fill<D>(m);
    } else if constexpr (Slot::kCardinality == slots::Cardinality::kOptional) {
      m.reset();
      if (deeper()) fill<D>(m.emplace());
    } else if constexpr (Slot::kCardinality == slots::Cardinality::kList) {
      m.clear();
      for (size_t n = listLength(); n > 0; --n) fill<D>(m.emplace_back());
    } else {
      if (!deeper()) return;
      m.list->emplace_back();
      fill<D>(m);
    }
  }
  template <class M, class... Ds>
  void choice(const char*, M& m, Ds...) {
    alternative<0, M, Ds...>(below(sizeof...(Ds)), m);
  }
  template <class M, class... Ds>
  void choices(const char*, M& m, Ds...) {
    m.clear();
    for (size_t n = listLength(); n > 0; --n)
      alternative<0, typename M::value_type, Ds...>(below(sizeof...(Ds)), m.emplace_back());
  }

 private:
  template <size_t I>
  void pick(size_t kind, MessageBody& body) {
    if constexpr (I < kKinds) {
      if (kind != I) return pick<I + 1>(kind, body);
      auto& m = body.emplace<I>();
      desc::MessageOf<std::decay_t<decltype(m)>>::fields(*this, m);
    }
  }
  template <class D, class R>
  void fill(R& r) {
    ++depth_;
    D::fields(*this, r);
    --depth_;
  }
  template <size_t I, class M, class D, class... Rest>
  void alternative(uint32_t which, M& m) {
    if (which == I) return fill<D>(slots::ChoiceTraits<M>::template select<I>(m));
    if constexpr (sizeof...(Rest) > 0) alternative<I + 1, M, Rest...>(which, m);
  }

  uint32_t below(uint64_t n) {
    return static_cast<uint32_t>(std::uniform_int_distribution<uint64_t>(0, n - 1)(rng_));
  }
  // A value below span, or one for each element of an array or vector.
  template <class T>
  void draw(T& v, uint64_t span) {
    if constexpr (requires { v.begin(); }) {
      for (auto& x : v) draw(x, span);
    } else {
      v = static_cast<T>(below(span));
    }
  }
  template <class T>
  void drawList(std::vector<T>& v, uint64_t span) {
    v.resize(count(6));
    draw(v, span);
  }
  uint32_t u32() { return static_cast<uint32_t>(rng_()); }
  size_t count(uint32_t max) { return below(max + 1); }
  // Lists and optional parameters thin out with depth, so that a message stays small.
  bool deeper() { return depth_ < 6 && below(2) == 1; }
  size_t listLength() { return depth_ < 4 ? count(3 - static_cast<uint32_t>(depth_ / 2)) : 0; }

  std::mt19937 rng_;
  int depth_ = 0;
};

}  // namespace tessera::llrp::testing
