#include "command/command_fields.h"

#include <cstdlib>

namespace tessera {

std::string commandKey(const std::string& text) {
  size_t at = text.find('=');
  return at == std::string::npos ? text : text.substr(0, at);
}

std::vector<std::vector<long>> parseCommandFields(const std::string& text) {
  std::vector<std::vector<long>> tokens;
  size_t start = 0;
  for (size_t comma = text.find(',', start); comma != std::string::npos;
       comma = text.find(',', start)) {
    const std::string token = text.substr(start, comma - start);
    std::vector<long> fields;
    size_t fieldStart = 0;
    for (size_t blank = token.find(' ', fieldStart); blank != std::string::npos;
         blank = token.find(' ', fieldStart)) {
      const std::string field = token.substr(fieldStart, blank - fieldStart);
      fields.push_back(std::strtol(field.c_str(), nullptr, 10));
      fieldStart = blank + 1;
    }
    tokens.push_back(std::move(fields));
    start = comma + 1;
  }
  return tokens;
}

}  // namespace tessera
