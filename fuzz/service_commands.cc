// Command texts as a client may send them: the key and the field grammar must take any bytes
// (up to the 256 of one read) without crashing or reading past the text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "command/command_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 256) size = 256;
  // The command server hands over a zero-terminated text: everything after a zero is unseen.
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.c_str();
  const std::string key = tessera::commandKey(text);
  if (key.size() > text.size()) __builtin_trap();
  size_t fields = 0;
  for (const auto& token : tessera::parseCommandFields(text)) fields += token.size();
  // Every field ends in a blank, so there are never more fields than blanks.
  size_t blanks = 0;
  for (char c : text) blanks += c == ' ';
  if (fields > blanks) __builtin_trap();
  return 0;
}
