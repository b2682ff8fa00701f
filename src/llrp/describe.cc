// src/llrp/describe.cc — one-line rendering of messages, by walking the records' descriptions:
// a field is Name=value, a parameter is Name(...), a parameter of one field is Name=value, a
// list shows its first entries and how many more there are.
#include "llrp/describe.h"

#include <cinttypes>
#include <cstdio>
#include <span>
#include <type_traits>
#include <variant>

#include "llrp/descriptions_messages.h"

namespace tessera::llrp {
namespace {

// Entries of a list rendered before the line says how many more there are.
constexpr size_t kEntriesShown = 4;

class Describer {
 public:
  explicit Describer(std::string& s) : s_(s) {}

  template <class T>
  void u8(const char* name, const T& v) {
    number(name, v);
  }
  template <class T>
  void s8(const char* name, const T& v) {
    number(name, v);
  }
  template <class T>
  void u16(const char* name, const T& v) {
    number(name, v);
  }
  template <class T>
  void s16(const char* name, const T& v) {
    number(name, v);
  }
  template <class T>
  void u32(const char* name, const T& v) {
    number(name, v);
  }
  void u64(const char* name, uint64_t v) { number(name, v); }
  void u96(const char* name, const std::array<uint8_t, 12>& v) { hex(name, v); }
  template <class T>
  void bits(int, const char* name, const T& v) {
    number(name, v);
  }
  void reserved(int) {}
  void utf8v(const char* name, const std::string& v) {
    key(name);
    quoted(v);
  }
  void u1v(const char* name, const BitString& v) { hex(name, v.bytes); }
  template <class T>
  void u8v(const char* name, const std::vector<T>& v) {
    key(name);
    for (size_t i = 0; i < v.size(); ++i) add(i ? ",%u" : "%u", static_cast<unsigned>(v[i]));
  }
  void u16v(const char* name, const std::vector<uint16_t>& v) { u8v(name, v); }
  void u32v(const char* name, const std::vector<uint32_t>& v) { u8v(name, v); }
  void bytesToEnd(const char* name, const std::vector<uint8_t>& v) { hex(name, v); }

  template <class D, class M>
  void sub(D, const M& m) {
    if constexpr (slots::Slot<std::remove_const_t<M>>::kCardinality ==
                  slots::Cardinality::kList) {
      size_t shown = 0;
      for (const auto& e : m) {
        if (shown++ == kEntriesShown) {
          add(" ... %zu more", m.size() - kEntriesShown);
          break;
        }
        parameter<D>(e);
      }
    } else {
      slots::forEach(m, [this](const auto& r) { this->template parameter<D>(r); });
    }
  }
  template <class M, class... Ds>
  void choice(const char*, const M& m, Ds... ds) {
    slots::forChosen(
        m, [this](auto d, const auto& r) { this->template parameter<decltype(d)>(r); }, ds...);
  }
  template <class M, class... Ds>
  void choices(const char* name, const M& m, Ds... ds) {
    for (const auto& e : m) choice(name, e, ds...);
  }

  // A parameter of one field and no sub-parameter is Name=value; the rest Name(...).
  template <class D, class R>
  void parameter(const R& r) {
    std::string inner;
    Describer d(inner);
    D::fields(d, r);
    s_ += ' ';
    s_ += D::kName;
    if (d.items_ == 1 && d.parameters_ == 0) {
      s_.append(inner, inner.find('='), std::string::npos);
    } else {
      s_ += '(';
      s_.append(inner, inner.empty() ? 0 : 1, std::string::npos);
      s_ += ')';
    }
    ++parameters_;
  }

 private:
  void key(const char* name) {
    ++items_;
    s_ += ' ';
    s_ += name;
    s_ += '=';
  }
  template <class T>
  void number(const char* name, const T& v) {
    key(name);
    if constexpr (std::is_same_v<T, StatusCode>) {
      s_ += statusCodeName(v);
    } else if constexpr (std::is_same_v<T, bool>) {
      s_ += v ? '1' : '0';
    } else if constexpr (std::is_signed_v<T>) {
      add("%" PRId64, static_cast<int64_t>(v));
    } else {
      add("%" PRIu64, static_cast<uint64_t>(v));
    }
  }
  void hex(const char* name, std::span<const uint8_t> bytes) {
    static const char kDigits[] = "0123456789ABCDEF";
    key(name);
    for (uint8_t b : bytes) {
      s_ += kDigits[b >> 4];
      s_ += kDigits[b & 0xf];
    }
  }
  void quoted(const std::string& text) {
    s_ += '"';
    for (char c : text) {
      if (c == '"' || c == '\\') {
        s_ += '\\';
        s_ += c;
      } else if (static_cast<unsigned char>(c) < 0x20) {
        add("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
      } else {
        s_ += c;
      }
    }
    s_ += '"';
  }
  void add(const char* format, auto... args) {
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, format, args...);
    if (n > 0) s_.append(buffer, static_cast<size_t>(n) < sizeof buffer ? n : sizeof buffer - 1);
  }

  std::string& s_;
  int items_ = 0;       // fields written
  int parameters_ = 0;  // sub-parameters written
};

}  // namespace

std::string describe(const Message& message) {
  std::string s = messageName(messageType(message.body));
  s += " id=" + std::to_string(message.id);
  Describer d(s);
  std::visit(
      [&d](const auto& body) { desc::MessageOf<std::decay_t<decltype(body)>>::fields(d, body); },
      message.body);
  return s;
}

}  // namespace tessera::llrp
