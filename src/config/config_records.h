// src/config/config_records.h — the records that the configuration readers fill. The service
// holds one of each in its ServiceState; the readers take them by reference so that the
// configuration code stays independent of the service.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "readerapi/rfid_records.h"

namespace tessera {

// Bits of a TagMetaData value: the optional fields of every tag record, always in this order.
// 0 selects the serial record's default fields; the key=value and JSON records then carry none.
using TagMetaFlags = int32_t;
inline constexpr TagMetaFlags kTagMetaEpc = 1;
inline constexpr TagMetaFlags kTagMetaPc = 2;
inline constexpr TagMetaFlags kTagMetaAntenna = 4;
inline constexpr TagMetaFlags kTagMetaRssi = 8;
inline constexpr TagMetaFlags kTagMetaSeenCount = 16;
inline constexpr TagMetaFlags kTagMetaTimeStamp = 32;
inline constexpr TagMetaFlags kTagMetaPhase = 64;
inline constexpr TagMetaFlags kTagMetaChannel = 128;

// The SerialPortConf section and the CSV header built from it.
struct SerialPortConfig {
  int32_t Mode = 0;               // 1: the serial port pushes tag data
  int32_t Baudrate = 0;           // handed to the serial library as read
  int32_t Databits = 0;           // as read
  char Parity[12] = {};           // at most 11 characters
  int32_t Stopbits = 0;           // as read
  char Flowcontrol[12] = {};      // at most 11 characters
  TagMetaFlags TagMetaData = 0;   // fields of the serial record
  bool IsAutostart = false;       // start the serial push at boot
  char TagMetaString[1024] = {};  // the CSV header line with its CRC; empty without a section
};

// Triggers, start delay and session of the inventory, shared by both streaming modes: the
// section read last supplies them.
struct InventoryControlConfig {
  uint32_t StartDelay = 0;                 // milliseconds to wait before starting
  ::tessera::TriggerRecord TriggerRecord;  // start and stop triggers for the reader API
  int32_t Session = 0;                     // singulation session 0 to 3
};

// The TagrelayDataFormat section: the text shape of the relay's records.
struct DataFormatConfig {
  char Format[32] = {};          // "KeyValuePair" selects key=value records, anything else JSON
  char Delimiter[8] = {};        // "Comma", "Tab" or "Space"
  char LineEnding[8] = {};       // "CRLF", "LF", "CR" or "None"
  char TimestampFormat[8] = {};  // "UTC": a date text; anything else a count of seconds
  char DataPrefix[128] = {};     // written before each key=value record
  char DataSuffix[128] = {};     // written after each key=value record
};

// The TCPIPConfig section.
struct TcpIpConfig {
  int32_t Port = 0;  // port of the relay's TCP/IP output server
};

// The HTTPPostConfig section.
struct HttpPostConfig {
  char HTTPServerURL[128] = {};
  bool VerifyPeer = false;
  bool VerifyHost = false;
  uint32_t HTTPAuthenticationType = 0;  // libcurl CURLAUTH_* mask
  char HTTPUserName[128] = {};
  char HTTPPassword[128] = {};
  int32_t HTTPPostInterval = 0;  // seconds between posts
  bool ProxyEnabled = false;     // set once a section names HTTPProxyServerURL, never cleared
  char HTTPProxyServerURL[128] = {};
  int32_t HTTPProxyPort = 0;
  bool HTTPProxyTunnel = false;
  uint32_t HTTPProxyAuthenticationType = 0;  // libcurl CURLAUTH_* mask
  char HTTPProxyUserName[128] = {};
  char HTTPProxyPassword[128] = {};
};

// MQTT delivery guarantees the relay offers: fire and forget, or at least once (PUBACK).
enum class MqttQos : int32_t {
  AtMostOnce = 0,
  AtLeastOnce = 1,
};

// The MQTTConfig section. Every read starts from these defaults, so that a key taken out of
// the file (a password above all) does not live on from an earlier read.
struct MqttConfig {
  char BrokerURL[256] = "mqtt://127.0.0.1:1883";  // mqtt://host[:port] or mqtts://host[:port]
  char Topic[256] = "tessera/{reader_name}/reads";
  char StatusTopic[256] = "tessera/{reader_name}/status";
  MqttQos QoS = MqttQos::AtLeastOnce;
  char ClientId[128] = {};  // empty: "tessera-" and the MAC address
  char UserName[128] = {};
  char Password[128] = {};
  char CAFile[256] = {};    // under --root; empty with mqtts: the system's trusted roots
  int32_t KeepAlive = 30;   // seconds
};

// The reader's name as the JSON report shows it (key "ReaderName" of HTTPPostConfig).
struct ReaderName {
  char text[128] = {};
};

// Output channel of the relay mode.
enum class RelayMode : int32_t {
  Off = 0,       // relay mode not configured
  HttpPost = 1,  // HTTP(S) POST to a server
  UsbHid = 2,    // keystrokes on the USB HID keyboard
  TcpIp = 3,     // the client of the relay's TCP/IP server
  UsbDrive = 4,  // hourly files on a USB flash drive
  Mqtt = 5,      // messages to an MQTT broker
};

// One AntennaConfig line.
struct AntennaEntry {
  uint8_t AntennaId = 0;  // 0: not set
  uint16_t TxPower = 0;   // transmit power index, handed to the reader API unchanged
};

// The relay section (TagrelayConfig or EasyTagrelayConfig) and the AntennaConfig lines.
struct RelayConfig {
  int32_t relayMode = 0;               // a RelayMode; other values are refused by the relay start
  bool IsAutostart = false;            // start the relay mode at boot
  TagMetaFlags TagMetaData = 0;        // fields of the relay records
  char InventoryControl[256] = {};     // the InventoryControl text as read
  int32_t PreFilterMode = 0;           // 0 none; 1 or 2 the pre-filter mode
  char PreFilters[256] = {};           // the pre-filter list as text
  std::vector<AntennaEntry> Antennas;  // in file order
  bool HeartbeatEnabled = false;       // HeartBeatPeriod is not 0
  int32_t HeartBeatPeriod = 0;         // seconds between heartbeats; 0 none
};

// "/readerconfig/cloud.conf": five known keys and the two flags derived from them.
struct CloudSettings {
  std::map<std::string, std::string> values = {
      {"CLOUD_PROVIDER_ID", "0"},
      {"KESTREL_DATA_SERVICES_CLOUD_ROOT_PKI_URL", "https://pki.kestrel-data.example/roots.pem"},
      {"KESTREL_DATA_SERVICES_ENROLLMENT_URL",
       "https://enroll.kestrel-data.example/v2/devices/readers/enroll"},
      {"ENROLLED", "0"},
      {"AUTO_CONNECT", "0"},
  };
  bool CloudEnrolled = false;     // "ENROLLED" is exactly "1"
  bool CloudAutoConnect = false;  // "AUTO_CONNECT" is exactly "1"
};

}  // namespace tessera
