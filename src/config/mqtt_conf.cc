#include "config/mqtt_conf.h"

#include <cstdlib>
#include <cstring>

#include "platform/logger.h"

namespace tessera {
namespace {

constexpr const char* kSection = "MQTTConfig";
constexpr long kKeepAliveMin = 5;  // libmosquitto's own lower bound
constexpr long kKeepAliveMax = 65535;

// Logs and notes a refused value; a secret is never shown.
void refuse(const char* key, const char* given, const char* why, ConfigNotes* notes) {
  Logger::log(LogLevel::kInfo, "%s: value of %s refused (%s)\n", kSection, key, why);
  if (notes) notes->refused(kSection, key, given, why);
}

bool validTopic(const char* topic) {
  return topic[0] != '\0' && std::strpbrk(topic, "+#") == nullptr;
}

// Stores the value of one key of the section.
void storeKey(MqttConfig& mqtt, ReaderName& name, const char* key, const char* value,
              ConfigNotes* notes) {
  auto is = [key](const char* k) { return std::strcmp(key, k) == 0; };
  auto text = [&](auto& field) { storeText(field, value, kSection, key, notes); };
  if (is("BrokerURL")) {
    MqttBroker broker;
    if (!parseBrokerUrl(value, broker)) {
      refuse(key, value, "not mqtt://host[:port] or mqtts://host[:port]", notes);
    } else {
      text(mqtt.BrokerURL);
    }
  } else if (is("Topic") || is("StatusTopic")) {
    if (!validTopic(value)) {
      refuse(key, value, "empty or holding a wildcard", notes);
    } else {
      text(is("Topic") ? mqtt.Topic : mqtt.StatusTopic);
    }
  } else if (is("QoS")) {
    char* end = nullptr;
    long qos = std::strtol(value, &end, 10);
    if (end == value || *end != '\0' || (qos != 0 && qos != 1)) {
      refuse(key, value, "0 or 1", notes);
    } else {
      mqtt.QoS = static_cast<MqttQos>(qos);
      if (notes) notes->value(kSection, key, value);
    }
  } else if (is("KeepAlive")) {
    char* end = nullptr;
    long seconds = std::strtol(value, &end, 10);
    if (end == value || *end != '\0' || seconds < kKeepAliveMin || seconds > kKeepAliveMax) {
      refuse(key, value, "seconds from 5 to 65535", notes);
    } else {
      mqtt.KeepAlive = static_cast<int32_t>(seconds);
      if (notes) notes->value(kSection, key, value);
    }
  } else if (is("ClientId")) {
    text(mqtt.ClientId);
  } else if (is("UserName")) {
    text(mqtt.UserName);
  } else if (is("Password")) {
    if (copyBounded(mqtt.Password, sizeof mqtt.Password, value)) {
      logCut(kSection, key, sizeof mqtt.Password - 1);
      if (notes) notes->cut(kSection, key, "***", sizeof mqtt.Password - 1);
    }
    if (notes) notes->value(kSection, key, "***");
  } else if (is("CAFile")) {
    text(mqtt.CAFile);
  } else if (is("ReaderName")) {
    storeText(name.text, value, kSection, key, notes);
  }
}

// Appends a replacement with the characters that would change the topic's shape made harmless.
void appendSafe(std::string& out, const char* text) {
  for (const char* p = text; *p; ++p) out += std::strchr("/+#", *p) ? '_' : *p;
}

}  // namespace

bool parseBrokerUrl(const char* url, MqttBroker& out) {
  std::string text = url;
  MqttBroker broker;
  if (text.rfind("mqtts://", 0) == 0) {
    broker.tls = true;
    broker.port = 8883;
    text.erase(0, 8);
  } else if (text.rfind("mqtt://", 0) == 0) {
    broker.port = 1883;
    text.erase(0, 7);
  } else {
    return false;
  }
  if (!text.empty() && text.back() == '/') text.pop_back();
  size_t colon = text.rfind(':');
  if (colon != std::string::npos) {
    const char* digits = text.c_str() + colon + 1;
    char* end = nullptr;
    long port = std::strtol(digits, &end, 10);
    if (end == digits || *end != '\0' || port < 1 || port > 65535) return false;
    broker.port = static_cast<int>(port);
    text.erase(colon);
  }
  if (text.empty() || text.find_first_of("/@ ") != std::string::npos) return false;
  broker.host = text;
  out = broker;
  return true;
}

std::string expandTopic(const char* topic, const char* readerName, const char* mac) {
  static constexpr const char kName[] = "{reader_name}";
  static constexpr const char kMac[] = "{mac}";
  std::string out;
  for (const char* p = topic; *p;) {
    if (std::strncmp(p, kName, sizeof kName - 1) == 0) {
      appendSafe(out, readerName ? readerName : "");
      p += sizeof kName - 1;
    } else if (std::strncmp(p, kMac, sizeof kMac - 1) == 0) {
      appendSafe(out, mac ? mac : "");
      p += sizeof kMac - 1;
    } else {
      out += *p++;
    }
  }
  return out;
}

std::string mqttClientId(const MqttConfig& mqtt, const char* mac) {
  if (mqtt.ClientId[0] != '\0') return mqtt.ClientId;
  return std::string("tessera-") + (mac ? mac : "");
}

int32_t readMqttConfig(MqttConfig& mqtt, ReaderName& name, DataFormatConfig& format,
                       ConfigNotes* notes) {
  (void)copyBounded(format.Format, sizeof format.Format, "JSON");
  mqtt = MqttConfig{};
  char line[2048];
  ConfigLines lines(line, sizeof line);
  if (!lines.opened()) return 0;
  if (notes) notes->fileOpened = true;
  Tokens tokens(line);
  if (!seekSection(lines, line, tokens, kSection)) return -1;
  if (notes) notes->sections.push_back(kSection);
  // Values stand in double quotes and may hold blanks (the reader name), slashes and colons
  // (URLs, topics) and "=".
  while (char* key = tokens.next(kDelimNoSlash)) {
    static constexpr const char* kKeys[] = {"BrokerURL", "Topic",     "StatusTopic", "QoS",
                                            "ClientId",  "UserName",  "Password",    "CAFile",
                                            "KeepAlive", "ReaderName"};
    bool known = false;
    for (const char* k : kKeys) known = known || std::strcmp(k, key) == 0;
    if (!known) {
      if (notes) notes->unknownToken(kSection, key);
      continue;
    }
    char* value = tokens.quotedValue(kDelimNoSlash);
    if (value == nullptr) {
      refuse(key, "", "no value in quotes", notes);
      break;
    }
    storeKey(mqtt, name, key, value, notes);
  }
  return 1;
}

}  // namespace tessera
