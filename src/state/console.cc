#include "state/console.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>

namespace tessera {

// stdout also carries the Logger's narrow lines, and a stream whose orientation became wide
// would drop them: the wide text is formatted into a buffer and written narrow instead.
void consolePrint(const wchar_t* format, ...) {
  wchar_t wide[2048];
  va_list args;
  va_start(args, format);
  int n = std::vswprintf(wide, sizeof wide / sizeof wide[0], format, args);
  va_end(args);
  if (n < 0) {
    // vswprintf fails on overflow: print what fits rather than nothing.
    wide[sizeof wide / sizeof wide[0] - 1] = L'\0';
    n = static_cast<int>(std::wcslen(wide));
  }
  char narrow[2048];
  int j = 0;
  for (int i = 0; i < n && j < static_cast<int>(sizeof narrow) - 1; ++i) {
    wchar_t c = wide[i];
    // wchar_t is unsigned on ARM: compare as unsigned so the test means the same everywhere.
    narrow[j++] = static_cast<uint32_t>(c) < 128u ? static_cast<char>(c) : '?';
  }
  narrow[j] = '\0';
  std::fputs(narrow, stdout);
  std::fflush(stdout);
}

}  // namespace tessera
