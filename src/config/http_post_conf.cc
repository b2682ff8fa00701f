#include "config/http_post_conf.h"

#include <cstdio>
#include <cstring>

#include "platform/logger.h"

namespace tessera {
namespace {

constexpr const char* kSection = "HTTPPostConfig";

constexpr const char* kKeys[] = {"HTTPServerURL",
                                 "VerifyPeer",
                                 "VerifyHost",
                                 "HTTPAuthenticationType",
                                 "HTTPUserName",
                                 "HTTPPassword",
                                 "HTTPPostInterval",
                                 "HTTPProxyServerURL",
                                 "HTTPProxyPort",
                                 "HTTPProxyTunnel",
                                 "HTTPProxyAuthenticationType",
                                 "HTTPProxyUserName",
                                 "HTTPProxyPassword"};

bool isKey(const char* name) {
  for (const char* key : kKeys) {
    if (std::strcmp(key, name) == 0) return true;
  }
  return false;
}

// Stores the value of one of the section's keys (isKey) into its field.
void storeKey(HttpPostConfig& http, const char* key, const char* value, ConfigNotes* notes) {
  auto is = [key](const char* name) { return std::strcmp(key, name) == 0; };
  auto text = [&](auto& field) { storeText(field, value, kSection, key, notes); };
  auto secret = [&](auto& field) {
    if (copyBounded(field, sizeof field, value)) {
      logCut(kSection, key, sizeof field - 1);
      if (notes) notes->cut(kSection, key, "***", sizeof field - 1);
    }
    if (notes) notes->value(kSection, key, "***");
  };
  auto number = [&](int32_t& field) {
    field = static_cast<int32_t>(decimal(value));
    if (notes) notes->value(kSection, key, std::to_string(field).c_str());
  };
  auto flag = [&](bool& field, bool set) {
    field = set;
    if (notes) notes->value(kSection, key, set ? "true" : "false");
  };
  auto auth = [&](uint32_t& field) {
    field = httpAuthTypeFromName(value);
    if (!notes) return;
    char shown[160];
    std::snprintf(shown, sizeof shown, "%s (0x%X)", value, field);
    notes->value(kSection, key, shown);
    if (field == 0xFFFFFFFFu) notes->refused(kSection, key, value, "unknown name, every bit set");
  };

  if (is("HTTPServerURL")) {
    text(http.HTTPServerURL);
  } else if (is("VerifyPeer")) {
    flag(http.VerifyPeer, decimal(value) != 0);
  } else if (is("VerifyHost")) {
    flag(http.VerifyHost, decimal(value) != 0);
  } else if (is("HTTPAuthenticationType")) {
    auth(http.HTTPAuthenticationType);
  } else if (is("HTTPUserName")) {
    text(http.HTTPUserName);
  } else if (is("HTTPPassword")) {
    secret(http.HTTPPassword);
  } else if (is("HTTPPostInterval")) {
    number(http.HTTPPostInterval);
  } else if (is("HTTPProxyServerURL")) {
    text(http.HTTPProxyServerURL);
    http.ProxyEnabled = true;
  } else if (is("HTTPProxyPort")) {
    number(http.HTTPProxyPort);
  } else if (is("HTTPProxyTunnel")) {
    flag(http.HTTPProxyTunnel, decimal(value) == 1);
  } else if (is("HTTPProxyAuthenticationType")) {
    auth(http.HTTPProxyAuthenticationType);
  } else if (is("HTTPProxyUserName")) {
    text(http.HTTPProxyUserName);
  } else if (is("HTTPProxyPassword")) {
    secret(http.HTTPProxyPassword);
  }
}

}  // namespace

uint32_t httpAuthTypeFromName(const char* name) {
  static constexpr struct {
    const char* name;
    uint32_t mask;
  } kTypes[] = {
      {"none", 0},           {"basic", 1},    {"digest", 2},        {"digest_ie", 16},
      {"ntlm", 8},           {"ntlm_wb", 32}, {"any", 0xFFFFFFEFu}, {"anysafe", 0xFFFFFFEEu},
      {"only", 0x80000000u},
  };
  for (const auto& type : kTypes) {
    if (std::strcmp(type.name, name) == 0) return type.mask;
  }
  return 0xFFFFFFFFu;
}

int32_t readHttpPostConfig(HttpPostConfig& http, ReaderName& name, DataFormatConfig& format,
                           ConfigNotes* notes) {
  (void)copyBounded(format.Format, sizeof format.Format, "JSON");
  char line[2048];
  ConfigLines lines(line, sizeof line);
  if (!lines.opened()) return 0;
  if (notes) notes->fileOpened = true;
  Tokens tokens(line);
  if (!seekSection(lines, line, tokens, kSection)) return -1;
  if (notes) notes->sections.push_back(kSection);
  while (char* keyName = tokens.next(kDelimNoSlash)) {
    if (std::strcmp(keyName, "ReaderName") == 0) {
      // The name stands in single quotes and may hold blanks and slashes; it is copied whole.
      char* value = tokens.next(kDelimReaderName);
      if (value == nullptr) break;
      storeText(name.text, value, kSection, "ReaderName", notes);
      continue;
    }
    if (!isKey(keyName)) {
      if (notes) notes->unknownToken(kSection, keyName);
      continue;
    }
    char* token = tokens.next(kDelimNoSlash);
    if (token == nullptr) break;
    storeKey(http, keyName, unquote(token), notes);
  }
  return 1;
}

}  // namespace tessera
