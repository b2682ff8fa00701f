// A strict JSON syntax check (RFC 8259, UTF-8 checked), for the format tests and fuzz targets.
#pragma once

#include <cstddef>
#include <string_view>

namespace tessera::test {

class JsonCheck {
 public:
  // Whether the whole text is one JSON value with optional white space around it.
  static bool valid(std::string_view text) {
    JsonCheck check(text);
    check.space();
    if (!check.value(0)) return false;
    check.space();
    return check.pos_ == text.size();
  }

 private:
  explicit JsonCheck(std::string_view text) : text_(text) {}

  bool more() const { return pos_ < text_.size(); }
  char peek() const { return more() ? text_[pos_] : '\0'; }
  bool eat(char c) {
    if (peek() != c || !more()) return false;
    ++pos_;
    return true;
  }
  void space() {
    while (more() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')) ++pos_;
  }
  bool literal(std::string_view word) {
    if (text_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }
  bool value(int depth) {
    if (depth > 64) return false;
    switch (peek()) {
      case '{':
        return object(depth);
      case '[':
        return array(depth);
      case '"':
        return string();
      case 't':
        return literal("true");
      case 'f':
        return literal("false");
      case 'n':
        return literal("null");
      default:
        return number();
    }
  }
  bool object(int depth) {
    eat('{');
    space();
    if (eat('}')) return true;
    for (;;) {
      space();
      if (!string()) return false;
      space();
      if (!eat(':')) return false;
      space();
      if (!value(depth + 1)) return false;
      space();
      if (eat('}')) return true;
      if (!eat(',')) return false;
    }
  }
  bool array(int depth) {
    eat('[');
    space();
    if (eat(']')) return true;
    for (;;) {
      space();
      if (!value(depth + 1)) return false;
      space();
      if (eat(']')) return true;
      if (!eat(',')) return false;
    }
  }
  bool digits() {
    size_t start = pos_;
    while (more() && peek() >= '0' && peek() <= '9') ++pos_;
    return pos_ > start;
  }
  bool number() {
    eat('-');
    if (eat('0')) {
    } else if (!digits()) {
      return false;
    }
    if (eat('.') && !digits()) return false;
    if (peek() == 'e' || peek() == 'E') {
      ++pos_;
      if (!eat('+')) eat('-');
      if (!digits()) return false;
    }
    return true;
  }
  bool string() {
    if (!eat('"')) return false;
    while (more()) {
      auto c = static_cast<unsigned char>(text_[pos_]);
      if (c == '"') {
        ++pos_;
        return true;
      }
      if (c < 0x20) return false;
      if (c == '\\') {
        ++pos_;
        char e = peek();
        if (e == 'u') {
          ++pos_;
          for (int i = 0; i < 4; ++i) {
            char h = peek();
            bool hex = (h >= '0' && h <= '9') || (h >= 'a' && h <= 'f') || (h >= 'A' && h <= 'F');
            if (!hex || !more()) return false;
            ++pos_;
          }
          continue;
        }
        if (std::string_view("\"\\/bfnrt").find(e) == std::string_view::npos || !more())
          return false;
        ++pos_;
        continue;
      }
      if (c < 0x80) {
        ++pos_;
        continue;
      }
      if (!utf8()) return false;
    }
    return false;
  }
  bool utf8() {
    auto c = static_cast<unsigned char>(text_[pos_]);
    size_t n = c >= 0xF0 && c <= 0xF4   ? 4
               : c >= 0xE0 && c <= 0xEF ? 3
               : c >= 0xC2 && c <= 0xDF ? 2
                                        : 0;
    if (n == 0 || pos_ + n > text_.size()) return false;
    unsigned cp = c & (n == 2 ? 0x1F : n == 3 ? 0x0F : 0x07);
    for (size_t i = 1; i < n; ++i) {
      auto b = static_cast<unsigned char>(text_[pos_ + i]);
      if ((b & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (b & 0x3F);
    }
    if ((n == 3 && cp < 0x800) || (n == 4 && cp < 0x10000) || cp > 0x10FFFF ||
        (cp >= 0xD800 && cp <= 0xDFFF))
      return false;
    pos_ += n;
    return true;
  }

  std::string_view text_;
  size_t pos_ = 0;
};

}  // namespace tessera::test
