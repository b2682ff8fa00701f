// src/config/config_scan.h — the line scheme shared by the section readers of
// "/readerconfig/AdvReaderConfig.xml": lines read in pieces of a fixed size, strtok-style tokens,
// quote dropping, decimal numbers, bounded copies, and notes for the configuration check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tessera {

// What a section reader saw, collected for the configuration check; readers that are handed
// none record nothing.
struct ConfigNotes {
  struct Value {
    std::string section;  // section (or "AntennaConfig #n") the key belongs to
    std::string key;
    std::string value;  // as stored
  };
  bool fileOpened = false;
  std::vector<std::string> sections;  // section lines found, in reading order
  std::vector<Value> values;          // every key taken, in reading order
  std::vector<std::string> unknown;   // tokens passed over, except closing punctuation
  std::vector<std::string> problems;  // values cut or refused, each with its key

  // Records a key and the value stored for it.
  void value(const char* section, const char* key, const char* stored);
  // Records a value that did not fit and was cut to `capacity` characters.
  void cut(const char* section, const char* key, const char* given, size_t capacity);
  // Records a value that was refused, with the reason.
  void refused(const char* section, const char* key, const char* given, const char* why);
  // Records a token that no key of the section matched.
  void unknownToken(const char* section, const char* token);
};

// Reads "/readerconfig/AdvReaderConfig.xml" under the root one piece at a time: at most
// capacity - 1 characters per read, so a longer line comes in several pieces.
class ConfigLines {
 public:
  // Opens the file afresh; opened() tells whether that worked.
  ConfigLines(char* buffer, size_t capacity);
  ~ConfigLines();
  ConfigLines(const ConfigLines&) = delete;
  ConfigLines& operator=(const ConfigLines&) = delete;

  // Whether the file could be opened.
  bool opened() const { return file_ != nullptr; }
  // Reads the next piece into the buffer; false at the end of the file.
  bool next();

 private:
  FILE* file_ = nullptr;
  char* buffer_;
  size_t capacity_;
};

// strtok-style tokens of one line: a token is a longest run of non-delimiters, the delimiter
// that ends it is used up, and each call names its own delimiter set.
class Tokens {
 public:
  explicit Tokens(char* line) : rest_(line) {}
  // The next token, or nullptr when the line has no more.
  char* next(const char* delimiters);
  // A value in double quotes, taken whole to its closing quote (blanks, slashes and "="
  // included; "" is the empty text); any other value is the next token with `delimiters`,
  // unquoted. nullptr when the line has no more or a quote is not closed.
  char* quotedValue(const char* delimiters);

 private:
  char* rest_;
};

// The delimiter sets of the section lines.
inline constexpr const char* kDelimWithSlash = " =/<>";
inline constexpr const char* kDelimNoSlash = " =<>";
inline constexpr const char* kDelimReaderName = "'=<>";

// Reads lines until one opens with `section` (tokens split without "/"); `tokens` then stands
// after the section name. Logs "Unable to read from file." and returns false when none does.
[[nodiscard]] bool seekSection(ConfigLines& lines, char* line, Tokens& tokens, const char* section);

// Drops the first and the last character of a value token (its quotes, whatever they are).
char* unquote(char* token);
// A decimal number with strtol rules: leading blanks, optional sign, digits; none gives 0.
long decimal(const char* text);
// Copies at most N-1 characters and terminates; true when the text had to be cut.
bool copyBounded(char* out, size_t capacity, const char* text);

// Logs at level 6 that a value of a section was cut to `capacity` characters.
void logCut(const char* section, const char* key, size_t capacity);

// Copies a value into a fixed field, cutting an over-long one; logs and notes a cut.
template <size_t N>
void storeText(char (&field)[N], const char* value, const char* section, const char* key,
               ConfigNotes* notes) {
  if (copyBounded(field, N, value)) {
    logCut(section, key, N - 1);
    if (notes) notes->cut(section, key, value, N - 1);
  }
  if (notes) notes->value(section, key, field);
}

}  // namespace tessera
