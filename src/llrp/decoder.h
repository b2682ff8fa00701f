// src/llrp/decoder.h — decodes any described record from a frame (see descriptions_common.h).
//
// A record is decoded in walks over its description: the first reads the fixed fields in order
// and clears the sub-parameter slots; the second takes the sub-parameters, all of them in one
// walk when they come in the order of the description (as encoders write them), and then one
// walk per sub-parameter left, each going into the slot whose type number matches; the last
// reports a required sub-parameter that never came and cuts lists to what this decode filled. List elements left from an earlier decode into the same record are reused
// with their buffers, so a client decoding report after report into one Message stops
// allocating once the first reports have been seen.
#pragma once

#include <cstddef>
#include <cstdint>

#include "llrp/decode_input.h"
#include "llrp/slots.h"

namespace tessera::llrp::decoding {

template <class D, class R>
void decodeRecord(Decoder& d, Range body, uint32_t headerAt, R& rec);

// Decodes the sub-parameter the walker stands on with description D.
template <class D, class R>
[[gnu::always_inline]] inline void decodeParameter(Decoder& d, const Params& it, R& rec) {
  if constexpr (D::kTv) {
    static_assert(tvWidth<D, R>() == wire::kTvWidth[D::kType], "TV width differs from the table");
    TvReader reader(d.frame + it.body.begin);
    D::fields(reader, rec);
  } else {
    decodeRecord<D>(d, it.body, it.start, rec);
  }
}

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

// The walks over the sub-parameters of a record whose fixed fields have been read; out of line,
// so that a message is not one function holding every level below it.
template <class D, class R>
void decodeSubParameters(Decoder& d, Range rest, uint32_t headerAt, SlotState& state, R& rec) {
  {
    Params it(d, rest.begin, rest.end, D::kName);
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

// Decodes one record whose fields start at body.begin; headerAt is where a missing
// sub-parameter is reported (the parameter's header, or the body of a message). Inline, so
// that a record of fixed fields only (whose first walk finds no sub-parameter, which the
// compiler sees) costs no call.
template <class D, class R>
[[gnu::always_inline]] inline void decodeRecord(Decoder& d, Range body, uint32_t headerAt,
                                                R& rec) {
  SlotState state;
  FieldReader fields(d, body, D::kName, state);
  D::fields(fields, rec);
  if (!fields.ok()) return;
  if (!fields.hasSubParameters()) {
    fields.done();
    return;
  }
  decodeSubParameters<D>(d, Range{fields.pos(), body.end}, headerAt, state, rec);
}

}  // namespace tessera::llrp::decoding
