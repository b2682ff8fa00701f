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
    return check.value(0) && check.pos_ == text.size();
  }

 private:
  explicit JsonCheck(std::string_view text) : text_(text) {}

  char peek() const { return pos_ < text_.size() ? text_[pos_] : '\0'; }
  void space() {
    while (std::string_view(" \t\n\r").find(peek()) != std::string_view::npos) ++pos_;
  }
  // Takes `c` (never NUL) if it comes after white space.
  bool eat(char c) {
    space();
    if (peek() != c) return false;
    ++pos_;
    return true;
  }
  bool literal(std::string_view word) {
    if (text_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }
  // A value with the white space around it; objects and arrays share the loop over members.
  bool value(int depth) {
    space();
    if (depth > 64) return false;
    bool ok;
    if (peek() == '{' || peek() == '[') {
      const char close = peek() == '{' ? '}' : ']';
      ++pos_;
      for (ok = eat(close); !ok;) {
        space();
        if (close == '}' && !(string() && eat(':'))) return false;
        if (!value(depth + 1)) return false;
        ok = eat(close);
        if (!ok && !eat(',')) return false;
      }
    } else if (peek() == '"') {
      ok = string();
    } else {
      ok = literal("true") || literal("false") || literal("null") || number();
    }
    space();
    return ok;
  }
  bool digits() {
    size_t start = pos_;
    while (peek() >= '0' && peek() <= '9') ++pos_;
    return pos_ > start;
  }
  bool number() {
    if (peek() == '-') ++pos_;
    if (peek() == '0') {
      ++pos_;
    } else if (!digits()) {
      return false;
    }
    if (peek() == '.' && (++pos_, !digits())) return false;
    if (peek() == 'e' || peek() == 'E') {
      ++pos_;
      if (peek() == '+' || peek() == '-') ++pos_;
      if (!digits()) return false;
    }
    return true;
  }
  bool string() {
    if (peek() != '"') return false;
    for (++pos_; pos_ < text_.size();) {
      auto c = static_cast<unsigned char>(text_[pos_]);
      if (c == '"') return ++pos_, true;
      if (c < 0x20) return false;
      if (c == '\\') {
        char e = ++pos_ < text_.size() ? text_[pos_++] : '\0';
        if (e == 'u') {
          for (int i = 0; i < 4; ++i, ++pos_) {
            if (std::string_view("0123456789abcdefABCDEF").find(peek()) == std::string_view::npos)
              return false;
          }
        } else if (e == '\0' || std::string_view("\"\\/bfnrt").find(e) == std::string_view::npos) {
          return false;
        }
      } else if (c < 0x80) {
        ++pos_;
      } else if (!utf8()) {
        return false;
      }
    }
    return false;
  }
  // One UTF-8 sequence: no overlong form, no surrogate, nothing past U+10FFFF.
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
