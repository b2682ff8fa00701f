// src/format/fixed_text.h — bounded text building in a caller's fixed buffer: every append
// either fits whole (and keeps the text NUL-terminated) or leaves the text unchanged and fails.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "readerapi/rfid_records.h"

namespace tessera {

// Size of the buffer of one formatted tag record, the terminating NUL included.
inline constexpr size_t kTagRecordSize = 2048;

class FixedText {
 public:
  // Writes into `data`, which holds `capacity` bytes, the NUL included; starts empty.
  FixedText(char* data, size_t capacity) : data_(data), capacity_(capacity) {
    if (capacity_ > 0) data_[0] = '\0';
  }

  const char* c_str() const { return data_; }
  size_t size() const { return length_; }
  // Room left for characters, the NUL excluded.
  size_t room() const { return capacity_ == 0 ? 0 : capacity_ - 1 - length_; }

  // Appends n characters; the number appended, or -1 (text unchanged) when they do not fit.
  int append(const char* text, size_t n) {
    if (n > room()) return -1;
    std::memcpy(data_ + length_, text, n);
    length_ += n;
    data_[length_] = '\0';
    return static_cast<int>(n);
  }
  int append(const char* text) { return append(text, std::strlen(text)); }
  int append(char c) { return append(&c, 1); }

  // "%0*d" of a signed number with at least `width` digits.
  int appendDecimal(int64_t value, int width = 0) {
    char digits[24];
    size_t n = formatDecimal(value, width, digits);
    return append(digits, n);
  }
  // "%x" of an unsigned number: lower-case hex, no leading zeros.
  int appendHex(uint32_t value) {
    static constexpr char kDigits[] = "0123456789abcdef";
    char reversed[8];
    size_t n = 0;
    do {
      reversed[n++] = kDigits[value & 0x0F];
      value >>= 4;
    } while (value != 0);
    char digits[8];
    for (size_t i = 0; i < n; ++i) digits[i] = reversed[n - 1 - i];
    return append(digits, n);
  }
  // "%3.2f" of a finite value of magnitude below 1e15, rounded as printf rounds: to the nearest
  // hundredth of the exact binary value, a tie to the even hundredth.
  int appendFixed2(double value) {
    char text[24];
    size_t n = 0;
    if (std::signbit(value)) text[n++] = '-';
    double magnitude = std::fabs(value);
    if (!(magnitude < 1e15)) magnitude = 0;  // outside the formats' range; keeps digits bounded
    double scaled = magnitude * 100.0;
    double whole = std::floor(scaled);
    double fromHalf = (scaled - whole) - 0.5;
    // Near the half-way point the rounding of the product decides; fma gives its exact error.
    if (std::fabs(fromHalf) < 1e-6) fromHalf += std::fma(magnitude, 100.0, -scaled);
    auto hundredths = static_cast<uint64_t>(whole);
    if (fromHalf > 0 || (fromHalf == 0 && (hundredths & 1) != 0)) ++hundredths;
    n += formatDecimal(static_cast<int64_t>(hundredths / 100), 1, text + n);
    text[n++] = '.';
    text[n++] = static_cast<char>('0' + hundredths % 100 / 10);
    text[n++] = static_cast<char>('0' + hundredths % 10);
    return append(text, n);
  }
  // "%02d/%02d/%04d %02d:%02d:%02d:%03d" of day, month, year, hour, minute, second, milliseconds.
  int appendDateTime(const ReaderDateTime& t) {
    return appendDateTime(t.day, t.month, t.year, t.hour, t.minute, t.second, t.milliseconds);
  }
  int appendDateTime(int64_t day, int64_t month, int64_t year, int64_t hour, int64_t minute,
                     int64_t second, int64_t milliseconds) {
    char text[160];
    size_t n = 0;
    n += formatDecimal(day, 2, text + n);
    text[n++] = '/';
    n += formatDecimal(month, 2, text + n);
    text[n++] = '/';
    n += formatDecimal(year, 4, text + n);
    text[n++] = ' ';
    n += formatDecimal(hour, 2, text + n);
    text[n++] = ':';
    n += formatDecimal(minute, 2, text + n);
    text[n++] = ':';
    n += formatDecimal(second, 2, text + n);
    text[n++] = ':';
    n += formatDecimal(milliseconds, 3, text + n);
    return append(text, n);
  }

  // Drops the last character, if any.
  void dropLast() {
    if (length_ > 0) data_[--length_] = '\0';
  }

 private:
  // Writes "%0*lld" (at most 21 characters for width <= 20) into out; the length.
  static size_t formatDecimal(int64_t value, int width, char* out) {
    char reversed[24];
    size_t n = 0;
    bool negative = value < 0;
    uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    do {
      reversed[n++] = static_cast<char>('0' + magnitude % 10);
      magnitude /= 10;
    } while (magnitude != 0);
    if (width > 20) width = 20;
    // printf counts the sign in the width: "%03d" of -5 is "-05".
    int minDigits = width - (negative ? 1 : 0);
    while (static_cast<int>(n) < minDigits) reversed[n++] = '0';
    size_t written = 0;
    if (negative) out[written++] = '-';
    while (n > 0) out[written++] = reversed[--n];
    return written;
  }

  char* data_;
  size_t capacity_;
  size_t length_ = 0;
};

}  // namespace tessera
