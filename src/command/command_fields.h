// src/command/command_fields.h — the command texts' shape: the key before "=", and the numbers
// carried in comma-terminated tokens of blank-terminated fields.
#pragma once

#include <string>
#include <vector>

namespace tessera {

// The text before the first "=", or the whole text (trailing "\r\n" included) without one.
std::string commandKey(const std::string& text);
// The tokens (each followed by ",") of the text, each as its fields (each followed by " ")
// converted with strtol in base 10; a field without leading digits gives 0.
std::vector<std::vector<long>> parseCommandFields(const std::string& text);

}  // namespace tessera
