// src/readerapi/wide_text.h — narrow texts copied into the wide fixed-size fields of the
// library's records.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace tessera::readerapi {

// Copies src into dst, cut to fit and always terminated; bytes above 0x7f are kept as they are,
// since every text the library copies is ASCII or the reader's own.
template <size_t N>
void copyWide(wchar_t (&dst)[N], const std::string& src) {
  size_t n = std::min(src.size(), N - 1);
  for (size_t i = 0; i < n; ++i) dst[i] = static_cast<wchar_t>(static_cast<unsigned char>(src[i]));
  dst[n] = L'\0';
}

}  // namespace tessera::readerapi
