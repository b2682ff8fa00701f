#include "config/output_conf.h"

#include <cstring>

#include "platform/logger.h"

namespace tessera {
namespace {

// Finds the first line whose first token (taken with `delimiters`) is `section`; false when the
// file ends first, after the level-6 line of a missing section.
bool findSection(ConfigLines& lines, char* line, const char* section, const char* delimiters,
                 Tokens& tokens, ConfigNotes* notes) {
  while (lines.next()) {
    tokens = Tokens(line);
    const char* first = tokens.next(delimiters);
    if (first != nullptr && std::strcmp(first, section) == 0) {
      if (notes) notes->sections.push_back(section);
      return true;
    }
  }
  Logger::log(LogLevel::kInfo, "Unable to read from file.");
  return false;
}

}  // namespace

int32_t readTcpIpConfig(TcpIpConfig& tcp, DataFormatConfig& format, ConfigNotes* notes) {
  static constexpr const char* kSection = "TCPIPConfig";
  (void)copyBounded(format.Format, sizeof format.Format, "JSON");
  char line[2048];
  ConfigLines lines(line, sizeof line);
  if (!lines.opened()) return 0;
  if (notes) notes->fileOpened = true;
  Tokens tokens(line);
  if (!findSection(lines, line, kSection, kDelimWithSlash, tokens, notes)) return -1;
  while (char* key = tokens.next(kDelimNoSlash)) {
    if (std::strcmp(key, "Port") != 0) {
      if (notes) notes->unknownToken(kSection, key);
      continue;
    }
    char* token = tokens.next(kDelimNoSlash);
    if (token == nullptr) break;
    tcp.Port = static_cast<int32_t>(decimal(unquote(token)));
    if (notes) notes->value(kSection, key, std::to_string(tcp.Port).c_str());
  }
  return 1;
}

int32_t readDataFormatConfig(DataFormatConfig& format, ConfigNotes* notes) {
  static constexpr const char* kSection = "TagrelayDataFormat";
  format.Delimiter[0] = '\0';
  format.LineEnding[0] = '\0';
  format.DataPrefix[0] = '\0';
  format.DataSuffix[0] = '\0';
  char line[2048];
  ConfigLines lines(line, sizeof line);
  if (!lines.opened()) return 0;
  if (notes) notes->fileOpened = true;
  Tokens tokens(line);
  if (!findSection(lines, line, kSection, kDelimWithSlash, tokens, notes)) return -1;
  while (char* key = tokens.next(kDelimNoSlash)) {
    char* field = nullptr;
    size_t capacity = 0;
    bool affix = false;
    if (std::strcmp(key, "Format") == 0) {
      field = format.Format, capacity = sizeof format.Format;
    } else if (std::strcmp(key, "Delimiter") == 0) {
      field = format.Delimiter, capacity = sizeof format.Delimiter;
    } else if (std::strcmp(key, "LineEnding") == 0) {
      field = format.LineEnding, capacity = sizeof format.LineEnding;
    } else if (std::strcmp(key, "TimestampFormat") == 0) {
      field = format.TimestampFormat, capacity = sizeof format.TimestampFormat;
    } else if (std::strcmp(key, "DataPrefix") == 0) {
      field = format.DataPrefix, capacity = sizeof format.DataPrefix, affix = true;
    } else if (std::strcmp(key, "DataSuffix") == 0) {
      field = format.DataSuffix, capacity = sizeof format.DataSuffix, affix = true;
    } else {
      if (notes) notes->unknownToken(kSection, key);
      continue;
    }
    char* token = tokens.next(kDelimWithSlash);
    if (token == nullptr) break;
    // An empty prefix or suffix in quotes leaves the field empty.
    if (affix && std::strlen(token) <= 2) {
      if (notes) notes->value(kSection, key, field);
      continue;
    }
    const char* value = unquote(token);
    if (copyBounded(field, capacity, value)) {
      logCut(kSection, key, capacity - 1);
      if (notes) notes->cut(kSection, key, value, capacity - 1);
    }
    if (notes) notes->value(kSection, key, field);
  }
  return 1;
}

}  // namespace tessera
