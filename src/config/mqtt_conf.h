// src/config/mqtt_conf.h — the MQTTConfig section: broker URL, topics, QoS, client id,
// credentials, CA file, keep-alive and the reader name shown in the JSON reports; and the
// broker address and topic texts derived from it.
#pragma once

#include <cstdint>
#include <string>

#include "config/config_records.h"
#include "config/config_scan.h"

namespace tessera {

// Where a BrokerURL points.
struct MqttBroker {
  std::string host;
  int port = 0;
  bool tls = false;  // mqtts://
};

// Sets format.Format to "JSON", resets `mqtt` to its defaults, then reads the section into
// `mqtt` and `name`: 1 read, 0 no file, -1 no section (logged). A refused value is logged with
// its key and leaves the default.
[[nodiscard]] int32_t readMqttConfig(MqttConfig& mqtt, ReaderName& name, DataFormatConfig& format,
                                     ConfigNotes* notes = nullptr);

// Splits "mqtt://host[:port][/]" (port 1883) or "mqtts://host[:port][/]" (port 8883); false
// for any other scheme, an empty host or a port outside 1..65535.
[[nodiscard]] bool parseBrokerUrl(const char* url, MqttBroker& out);

// A topic with "{reader_name}" and "{mac}" replaced; "/", "+" and "#" in the replacements
// become "_", so that a name can add no topic level and no wildcard.
std::string expandTopic(const char* topic, const char* readerName, const char* mac);

// The client id: the configured one, or "tessera-" and the MAC address when it is empty.
std::string mqttClientId(const MqttConfig& mqtt, const char* mac);

}  // namespace tessera
