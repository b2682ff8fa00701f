// src/llrp/slots.h — how a record member holds its sub-parameters, so that the description of
// a record names only the member and the visitors learn the cardinality from the member's type:
// a plain member is exactly one, std::optional is 0..1, std::vector is 0..n, a ChainLink is one
// level of a nested chain kept flat (LLRPStatus's ParameterErrors). A choice (one of several
// parameter types) lives in a std::variant or in a record that ChoiceTraits explains.
#pragma once

#include <cstddef>
#include <optional>
#include <type_traits>
#include <variant>
#include <vector>

#include "llrp/records.h"

namespace tessera::llrp::slots {

enum class Cardinality { kOne, kOptional, kList, kChain };

// Level `index` of a chain in which element i + 1 nests inside element i.
template <class List>
struct ChainLink {
  List* list = nullptr;
  size_t index = 0;

  auto& element() const { return (*list)[index]; }
  // The level nested inside this one.
  ChainLink next() const { return ChainLink{list, index + 1}; }
  bool present() const { return list->size() > index; }
};

template <class List>
constexpr ChainLink<List> chainAt(List& list) {
  return ChainLink<List>{&list, 0};
}

template <class M>
struct Slot {
  static constexpr Cardinality kCardinality = Cardinality::kOne;
  using Record = M;
};
template <class T>
struct Slot<std::optional<T>> {
  static constexpr Cardinality kCardinality = Cardinality::kOptional;
  using Record = T;
};
template <class T>
struct Slot<const std::optional<T>> : Slot<std::optional<T>> {
  using Record = const T;
};
template <class T>
struct Slot<std::vector<T>> {
  static constexpr Cardinality kCardinality = Cardinality::kList;
  using Record = T;
};
template <class T>
struct Slot<const std::vector<T>> : Slot<std::vector<T>> {
  using Record = const T;
};
template <class List>
struct Slot<ChainLink<List>> {
  static constexpr Cardinality kCardinality = Cardinality::kChain;
  using Record = ChainLink<List>;
};

// Calls f once for every parameter a member holds (encoding, describing).
template <class M, class F>
void forEach(M& m, F&& f) {
  constexpr Cardinality c = Slot<std::remove_const_t<M>>::kCardinality;
  if constexpr (c == Cardinality::kOne) {
    f(m);
  } else if constexpr (c == Cardinality::kOptional) {
    if (m) f(*m);
  } else if constexpr (c == Cardinality::kList) {
    for (auto& e : m) f(e);
  } else {
    if (m.present()) f(m);
  }
}

// A choice held in a std::variant: alternative I is the I-th parameter type listed.
template <class M>
struct ChoiceTraits {
  static size_t index(const M& m) { return m.index(); }
  // The alternative to decode into, keeping its buffers when it is already the one held.
  template <size_t I>
  static auto& select(M& m) {
    if (auto* p = std::get_if<I>(&m)) return *p;
    return m.template emplace<I>();
  }
  template <size_t I>
  static const auto& get(const M& m) {
    return *std::get_if<I>(&m);
  }
};

// UTCTimestamp or Uptime: the same microseconds, told apart by a flag.
template <>
struct ChoiceTraits<Timestamp> {
  static size_t index(const Timestamp& t) { return t.uptime ? 1 : 0; }
  template <size_t I>
  static Timestamp& select(Timestamp& t) {
    t.uptime = I == 1;
    return t;
  }
  template <size_t I>
  static const Timestamp& get(const Timestamp& t) {
    return t;
  }
};

// Calls f(D{}, parameter) for the alternative m holds, D being its description among ds, which
// are listed in the order of the alternatives (encoding, describing).
template <size_t I = 0, class M, class F, class D, class... Rest>
[[gnu::always_inline]] inline void forChosen(const M& m, F&& f, D, Rest... rest) {
  if (ChoiceTraits<M>::index(m) == I) {
    f(D{}, ChoiceTraits<M>::template get<I>(m));
  } else if constexpr (sizeof...(Rest) > 0) {
    forChosen<I + 1>(m, f, rest...);
  }
}

}  // namespace tessera::llrp::slots
