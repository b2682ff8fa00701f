#include "config/check_config.h"

#include <cstring>
#include <string>
#include <vector>

#include "config/cloud_conf.h"
#include "config/config_records.h"
#include "config/config_scan.h"
#include "config/http_post_conf.h"
#include "config/mqtt_conf.h"
#include "config/output_conf.h"
#include "config/relay_conf.h"
#include "config/serial_port_conf.h"
#include "platform/platform.h"

namespace tessera {
namespace {

bool hasValue(const ConfigNotes& notes, const std::string& section, const char* key) {
  for (const auto& v : notes.values) {
    if (v.section == section && v.key == key) return true;
  }
  return false;
}

// Prints the values noted for `section`, then which of `keys` it did not name.
void printSection(FILE* out, const ConfigNotes& notes, const std::string& section,
                  const std::vector<const char*>& keys) {
  for (const auto& v : notes.values) {
    if (v.section == section) std::fprintf(out, "  %s = \"%s\"\n", v.key.c_str(), v.value.c_str());
  }
  std::string missing;
  for (const char* key : keys) {
    if (hasValue(notes, section, key)) continue;
    if (!missing.empty()) missing += ", ";
    missing += key;
  }
  if (!missing.empty()) std::fprintf(out, "  missing (former value kept): %s\n", missing.c_str());
}

// Prints the tokens passed over and the values cut or refused, over all sections of the notes.
void printProblems(FILE* out, const ConfigNotes& notes) {
  for (const auto& token : notes.unknown) {
    std::fprintf(out, "  passed over: %s\n", token.c_str());
  }
  for (const auto& problem : notes.problems) std::fprintf(out, "  PROBLEM: %s\n", problem.c_str());
}

const char* relayModeName(int32_t mode) {
  switch (mode) {
    case 1:
      return "HttpPost";
    case 2:
      return "UsbHid";
    case 3:
      return "TcpIp";
    case 4:
      return "UsbDrive";
    case 5:
      return "Mqtt";
    default:
      return "undefined";
  }
}

struct Verdict {
  bool configured = false;  // the mode is switched on in the file
  bool usable = false;      // and every section it needs reads cleanly
};

Verdict checkSerial(FILE* out) {
  SerialPortConfig serial;
  InventoryControlConfig inventory;
  ConfigNotes notes;
  readSerialPortConf(serial, inventory, &notes);
  std::fprintf(out, "\n[SerialPortConf]\n");
  if (notes.sections.empty()) {
    std::fprintf(out, "  section not found: the serial push mode cannot start\n");
    return {};
  }
  printSection(out, notes, "SerialPortConf",
               {"Mode", "Baudrate", "Databits", "Parity", "Stopbits", "Flowcontrol", "TagMetaData",
                "InventoryControl", "IsAutostart"});
  printProblems(out, notes);
  std::string header = serial.TagMetaString;
  while (!header.empty() && (header.back() == '\n' || header.back() == '\r')) header.pop_back();
  std::fprintf(out, "  header line: %s\n", header.c_str());
  Verdict verdict;
  verdict.configured = serial.Mode == 1;
  verdict.usable = verdict.configured && notes.problems.empty();
  if (!verdict.configured) {
    std::fprintf(out, "  => serial push mode off (Mode %d)\n", serial.Mode);
  } else {
    std::fprintf(out, "  => serial push mode %s%s\n", verdict.usable ? "usable" : "NOT usable",
                 serial.IsAutostart ? ", starts at boot" : "");
  }
  return verdict;
}

// Reads the section that the relay's output channel needs; whether it is usable.
bool checkRelayOutput(FILE* out, int32_t mode) {
  ConfigNotes notes;
  DataFormatConfig format;
  const char* section;
  std::vector<const char*> keys;
  int32_t result;
  std::string problem;
  if (mode == static_cast<int32_t>(RelayMode::HttpPost)) {
    HttpPostConfig http;
    ReaderName name;
    section = "HTTPPostConfig";
    keys = {"HTTPServerURL", "VerifyPeer",   "VerifyHost",       "HTTPAuthenticationType",
            "HTTPUserName",  "HTTPPassword", "HTTPPostInterval", "ReaderName"};
    result = readHttpPostConfig(http, name, format, &notes);
    if (http.HTTPServerURL[0] == '\0') problem = "HTTPServerURL is empty";
  } else if (mode == static_cast<int32_t>(RelayMode::Mqtt)) {
    MqttConfig mqtt;
    ReaderName name;
    section = "MQTTConfig";
    keys = {"BrokerURL", "Topic",    "StatusTopic", "QoS",       "ClientId",
            "UserName",  "Password", "CAFile",      "KeepAlive", "ReaderName"};
    result = readMqttConfig(mqtt, name, format, &notes);
    MqttBroker broker;
    if (parseBrokerUrl(mqtt.BrokerURL, broker) && broker.tls && mqtt.CAFile[0] != '\0') {
      FILE* ca = std::fopen(platform::path(mqtt.CAFile).c_str(), "r");
      if (ca == nullptr) {
        problem = std::string("CAFile ") + platform::path(mqtt.CAFile) + " cannot be read";
      } else {
        std::fclose(ca);
      }
    }
  } else if (mode == static_cast<int32_t>(RelayMode::TcpIp)) {
    TcpIpConfig tcp;
    section = "TCPIPConfig";
    keys = {"Port"};
    result = readTcpIpConfig(tcp, format, &notes);
    if (tcp.Port <= 0 || tcp.Port > 65535)
      problem = "Port " + std::to_string(tcp.Port) + " is no TCP port";
  } else {
    section = "TagrelayDataFormat";
    keys = {"Format", "Delimiter", "LineEnding", "TimestampFormat", "DataPrefix", "DataSuffix"};
    result = readDataFormatConfig(format, &notes);
  }
  std::fprintf(out, "\n[%s]\n", section);
  if (result != 1) {
    std::fprintf(out, "  section not found: the relay output has no settings\n");
    return false;
  }
  printSection(out, notes, section, keys);
  printProblems(out, notes);
  if (!problem.empty()) std::fprintf(out, "  PROBLEM: %s\n", problem.c_str());
  return problem.empty() && notes.problems.empty();
}

Verdict checkRelay(FILE* out) {
  RelayConfig relay;
  InventoryControlConfig inventory;
  ConfigNotes notes;
  int32_t result = readRelayConfig(relay, inventory, &notes);
  std::string section = notes.sections.empty() ? "TagrelayConfig" : notes.sections.front();
  std::fprintf(out, "\n[%s]\n", section.c_str());
  if (notes.sections.empty()) {
    std::fprintf(out, "  section not found: the relay mode cannot start\n");
    return {};
  }
  std::vector<const char*> keys = {"TagMetaData", "InventoryControl", "HeartBeatPeriod",
                                   "IsAutostart", "PreFilterMode",    "PreFilters"};
  keys.insert(keys.begin(), section == "TagrelayConfig" ? "TagrelayMode" : "EasyTagrelayMode");
  if (relay.relayMode == 0) {
    printSection(out, notes, section, {});
    std::fprintf(out, "  => relay mode off (mode 0)\n");
    return {};
  }
  printSection(out, notes, section, keys);
  for (size_t i = 0; i < relay.Antennas.size(); ++i) {
    std::fprintf(out, "  antenna line %zu: AntennaId %u, AntennaTxPower %u%s\n", i + 1,
                 relay.Antennas[i].AntennaId, relay.Antennas[i].TxPower,
                 relay.Antennas[i].AntennaId == 0 ? " (no antenna id: skipped)" : "");
  }
  if (relay.Antennas.empty()) std::fprintf(out, "  no AntennaConfig lines\n");
  printProblems(out, notes);
  Verdict verdict;
  verdict.configured = true;
  bool known = relay.relayMode >= 1 && relay.relayMode <= static_cast<int32_t>(RelayMode::Mqtt);
  if (!known) std::fprintf(out, "  PROBLEM: relay mode %d is undefined\n", relay.relayMode);
  bool sectionUsable = result == 0 && known && notes.problems.empty();
  bool outputUsable = known && checkRelayOutput(out, relay.relayMode);
  verdict.usable = sectionUsable && outputUsable;
  std::fprintf(out, "  => relay mode %s (%s)%s\n", verdict.usable ? "usable" : "NOT usable",
               relayModeName(relay.relayMode), relay.IsAutostart ? ", starts at boot" : "");
  return verdict;
}

void checkCloud(FILE* out) {
  CloudSettings cloud;
  readCloudConfig(cloud);
  std::string file = platform::path("/readerconfig/cloud.conf");
  std::fprintf(out, "\n[cloud.conf] %s\n", file.c_str());
  FILE* probe = std::fopen(file.c_str(), "r");
  if (probe == nullptr) {
    std::fprintf(out, "  file not found: start values kept\n");
  } else {
    std::fclose(probe);
  }
  for (const auto& [key, value] : cloud.values) {
    std::fprintf(out, "  %s = \"%s\"\n", key.c_str(), value.c_str());
  }
  if (cloud.CloudEnrolled && cloud.CloudAutoConnect) {
    std::fprintf(out, "  => enrolled with auto connect: no streaming mode starts at boot\n");
  }
}

}  // namespace

int checkConfig(FILE* out) {
  std::string file = platform::path("/readerconfig/AdvReaderConfig.xml");
  std::fprintf(out, "[AdvReaderConfig.xml] %s\n", file.c_str());
  FILE* probe = std::fopen(file.c_str(), "r");
  bool fileThere = probe != nullptr;
  if (probe) std::fclose(probe);
  Verdict serial;
  Verdict relay;
  if (!fileThere) {
    std::fprintf(out, "  file not found: no streaming mode can start\n");
  } else {
    serial = checkSerial(out);
    relay = checkRelay(out);
  }
  checkCloud(out);
  // The spool is an option of the command line, not of the files, but it decides what an outage
  // does to the relay, so it is shown with them.
  const auto& settings = platform::settings();
  std::fprintf(out, "\n[spool]\n");
  if (settings.spoolDir.empty()) {
    std::fprintf(out, "  off (--spool not given): an outage pauses the relay at 70 KiB\n");
  } else {
    std::fprintf(out, "  folder = \"%s\"\n  cap = %llu bytes\n", settings.spoolDir.c_str(),
                 static_cast<unsigned long long>(settings.spoolMaxBytes));
  }
  bool anyConfigured = serial.configured || relay.configured;
  bool ok =
      anyConfigured && (!serial.configured || serial.usable) && (!relay.configured || relay.usable);
  std::fprintf(out, "\n%s\n",
               ok              ? "configuration usable"
               : anyConfigured ? "configuration NOT usable"
                               : "configuration NOT usable: no streaming mode is configured");
  std::fflush(out);
  return ok ? 0 : 1;
}

}  // namespace tessera
