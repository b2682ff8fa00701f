#include "config/config_scan.h"

#include <cstdlib>
#include <cstring>

#include "platform/logger.h"
#include "platform/platform.h"

namespace tessera {
namespace {

// A closing "/", a line end or the closing "/>" of an element is no key the reader missed.
bool isPunctuation(const char* token) {
  for (const char* p = token; *p; ++p) {
    if (*p != '/' && *p != '\n' && *p != '\r' && *p != '\t') return false;
  }
  return true;
}

}  // namespace

void ConfigNotes::value(const char* section, const char* key, const char* stored) {
  values.push_back({section, key, stored});
}

void ConfigNotes::cut(const char* section, const char* key, const char* given, size_t capacity) {
  problems.push_back(std::string(section) + " " + key + ": value \"" + given + "\" cut to " +
                     std::to_string(capacity) + " characters");
}

void ConfigNotes::refused(const char* section, const char* key, const char* given,
                          const char* why) {
  problems.push_back(std::string(section) + " " + key + ": value \"" + given + "\" refused (" +
                     why + ")");
}

void ConfigNotes::unknownToken(const char* section, const char* token) {
  if (isPunctuation(token)) return;
  unknown.push_back(std::string(section) + ": " + token);
}

ConfigLines::ConfigLines(char* buffer, size_t capacity) : buffer_(buffer), capacity_(capacity) {
  file_ = std::fopen(platform::path("/readerconfig/AdvReaderConfig.xml").c_str(), "r");
}

ConfigLines::~ConfigLines() {
  if (file_) std::fclose(file_);
}

bool ConfigLines::next() {
  if (!file_ || capacity_ < 2) return false;
  std::memset(buffer_, 0, capacity_);
  return std::fgets(buffer_, static_cast<int>(capacity_), file_) != nullptr;
}

char* Tokens::next(const char* delimiters) {
  char* start = rest_ + std::strspn(rest_, delimiters);
  if (*start == '\0') {
    rest_ = start;
    return nullptr;
  }
  char* end = start + std::strcspn(start, delimiters);
  if (*end != '\0') {
    *end = '\0';
    rest_ = end + 1;
  } else {
    rest_ = end;
  }
  return start;
}

char* Tokens::quotedValue(const char* delimiters) {
  char* start = rest_ + std::strspn(rest_, delimiters);
  if (*start != '"') {
    char* token = next(delimiters);
    return token ? unquote(token) : nullptr;
  }
  char* end = std::strchr(start + 1, '"');
  if (end == nullptr) {
    rest_ = start + std::strlen(start);
    return nullptr;
  }
  *end = '\0';
  rest_ = end + 1;
  return start + 1;
}

char* unquote(char* token) {
  size_t n = std::strlen(token);
  if (n <= 2) {
    token[0] = '\0';
    return token;
  }
  token[n - 1] = '\0';
  return token + 1;
}

long decimal(const char* text) { return std::strtol(text, nullptr, 10); }

bool copyBounded(char* out, size_t capacity, const char* text) {
  if (capacity == 0) return true;
  size_t n = std::strlen(text);
  bool cut = n >= capacity;
  if (cut) n = capacity - 1;
  std::memcpy(out, text, n);
  out[n] = '\0';
  return cut;
}

void logCut(const char* section, const char* key, size_t capacity) {
  Logger::log(LogLevel::kInfo, "%s: value of %s cut to %zu characters\n", section, key, capacity);
}

bool seekSection(ConfigLines& lines, char* line, Tokens& tokens, const char* section) {
  while (lines.next()) {
    tokens = Tokens(line);
    const char* first = tokens.next(kDelimNoSlash);
    if (first != nullptr && std::strcmp(first, section) == 0) return true;
  }
  Logger::log(LogLevel::kInfo, "Unable to read from file.");
  return false;
}

}  // namespace tessera
