// The readers of the two configuration files, "AdvReaderConfig.xml" section by section and
// "cloud.conf", and the check that reports what they took.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "config/check_config.h"
#include "config/cloud_conf.h"
#include "config/http_post_conf.h"
#include "config/mqtt_conf.h"
#include "config/output_conf.h"
#include "config/relay_conf.h"
#include "config/serial_port_conf.h"
#include "platform/logger.h"
#include "temp_root.h"

namespace tessera {
namespace {

// A temporary root whose "readerconfig/" folder holds the files the section readers read.
struct ConfigRoot : test::TempRoot {
  // Writes "/readerconfig/AdvReaderConfig.xml" under the root; "" removes it.
  void config(const std::string& text) const {
    if (text.empty()) std::filesystem::remove(dir + "/readerconfig/AdvReaderConfig.xml");
    if (!text.empty()) write("/readerconfig/AdvReaderConfig.xml", text);
  }
  void cloud(const std::string& text) const { write("/readerconfig/cloud.conf", text); }
  // Copies tests/data/demo (the demo's configuration) into this root.
  void copyDemo() const {
    std::filesystem::copy(std::string(TESSERA_TEST_SOURCE_DIR) + "/tests/data/demo", dir,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
  }
};

// The records every section reader fills; Format starts as "KeyValuePair" and Delimiter as "Tab".
struct Records {
  Records() {
    std::strcpy(format.Format, "KeyValuePair");
    std::strcpy(format.Delimiter, "Tab");
  }
  SerialPortConfig serial;
  InventoryControlConfig inventory;
  RelayConfig relay;
  DataFormatConfig format;
  TcpIpConfig tcp;
  HttpPostConfig http;
  ReaderName name;
  MqttConfig mqtt;
};

// A row of a section reader's table: the files read in turn ("": no file), each holding its
// lines between "<AdvReaderConfig>" lines, and the summary of the records after the last read.
struct Row {
  std::vector<std::string> files;
  std::string expected;
};

// Reads each row into fresh records with `read(records)`, which returns their summary.
template <typename Read>
void readRows(const std::vector<Row>& rows, Read read) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.files.back().substr(0, 200));
    ConfigRoot root;
    Records records;
    std::string got;
    for (const std::string& file : row.files) {
      root.config(file.empty() ? file : "<AdvReaderConfig>\n" + file + "\n</AdvReaderConfig>\n");
      got = read(records);
    }
    EXPECT_EQ(got, row.expected);
  }
}

// Runs the check and returns its result and what it printed.
std::pair<int, std::string> runCheck() {
  FILE* out = std::tmpfile();
  EXPECT_NE(out, nullptr);
  int result = checkConfig(out);
  std::string text(static_cast<size_t>(std::ftell(out)), '\0');
  std::rewind(out);
  text.resize(std::fread(text.data(), 1, text.size(), out));
  std::fclose(out);
  return {result, text};
}

#define EXPECT_HAS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

// The configuration the demo and the README use: the check reports what every section reader
// took from it, and the readers hand on what the report hides or leaves implicit.
TEST(DemoConfiguration, EverySectionReadsAndTheCheckHidesThePassword) {
  ConfigRoot root;
  root.copyDemo();
  auto [result, text] = runCheck();
  EXPECT_EQ(result, 0) << text;
  for (const char* line :
       {"[SerialPortConf]\n  Mode = \"1\"\n  Baudrate = \"115200\"\n",
        "  header line: EPC,AntennaID,RSSI,TimeStamp,<CRC>\n", "  => serial push mode usable\n",
        "  TagMetaData = \"45\"\n", "  antenna line 4: AntennaId 4, AntennaTxPower 61\n",
        "  HTTPServerURL = \"http://127.0.0.1:8080/tagdata\"\n",
        "  HTTPAuthenticationType = \"basic (0x1)\"\n", "  HTTPPostInterval = \"5\"\n",
        "  HTTPPassword = \"***\"\n", "  ReaderName = \"Dock Door 1\"\n",
        "  => relay mode usable (HttpPost)\n", "\nconfiguration usable\n"}) {
    EXPECT_HAS(text, line);
  }
  EXPECT_EQ(text.find("s3cret"), std::string::npos) << text;
  EXPECT_EQ(text.find("PROBLEM"), std::string::npos) << text;

  Records r;
  readSerialPortConf(r.serial, r.inventory);
  EXPECT_EQ(r.inventory.TriggerRecord.stop.type, StopTriggerType::Duration);
  EXPECT_TRUE(r.inventory.TriggerRecord.hasValueBlock);
  ASSERT_EQ(readRelayConfig(r.relay, r.inventory), 0);
  EXPECT_EQ(r.relay.relayMode, static_cast<int32_t>(RelayMode::HttpPost));
  EXPECT_EQ(r.inventory.Session, 1);
  EXPECT_TRUE(r.relay.HeartbeatEnabled);
  ASSERT_EQ(r.relay.Antennas.size(), 4u);
  EXPECT_EQ(r.relay.Antennas[0].TxPower, 81);
  EXPECT_EQ(readHttpPostConfig(r.http, r.name, r.format), 1);
  EXPECT_STREQ(r.http.HTTPPassword, "s3cret-Pw");
  EXPECT_EQ(readTcpIpConfig(r.tcp, r.format), 1);
  EXPECT_EQ(r.tcp.Port, 5000);
}

// A refused or cut value is reported with its section and key, and the check goes on.
TEST(CheckConfig, ReportsCutAndRefusedValuesWithTheirKeys) {
  ConfigRoot root;
  root.config(
      "<SerialPortConf Mode=\"1\" Parity=\"NoneAtAllReally\" "
      "InventoryControl=\"S7,Immediate,TAG:1,1\"/>\n"
      "<TagrelayConfig TagrelayMode=\"3\" HeartBeatPeriod=\"0\"/>\n"
      "<TCPIPConfig Port=\"70000\"/>\n"
      "<HTTPPostConfig HTTPPassword=\"" +
      std::string(200, 'x') + "\" />\n");
  auto [result, text] = runCheck();
  EXPECT_EQ(result, 1) << text;
  EXPECT_HAS(text,
             "PROBLEM: SerialPortConf Parity: value \"NoneAtAllReally\" cut to 11 characters");
  EXPECT_HAS(text,
             "PROBLEM: SerialPortConf InventoryControl: value \"S7,Immediate,TAG:1,1\" refused "
             "(Invalid Session Type.\n)");
  EXPECT_HAS(text, "  => serial push mode NOT usable\n");
  EXPECT_HAS(text, "PROBLEM: Port 70000 is no TCP port");
  EXPECT_HAS(text, "missing (former value kept): TagMetaData, InventoryControl");
  EXPECT_HAS(text, "\nconfiguration NOT usable\n");
  EXPECT_EQ(text.find("xxxx"), std::string::npos) << text;
}

TEST(CheckConfig, UnusableWithoutFileModeOrOutputSection) {
  ConfigRoot root;
  const struct {
    const char* file;
    int result;
    const char* says;
  } rows[] = {
      {"", 1, "file not found: no streaming mode can start"},
      {"<SerialPortConf Mode=\"0\"/>\n<TagrelayConfig TagrelayMode=\"0\"/>\n", 1,
       "no streaming mode is configured"},
      {"<EasyTagrelayConfig EasyTagrelayMode=\"2\" TagMetaData=\"1\"/>\n", 1,
       "[TagrelayDataFormat]\n  section not found"},
      {"<EasyTagrelayConfig EasyTagrelayMode=\"2\" TagMetaData=\"1\"/>\n"
       "<TagrelayDataFormat Format=\"KeyValuePair\"/>\n",
       0, "configuration usable"},
  };
  for (const auto& row : rows) {
    root.config(row.file);
    auto [result, text] = runCheck();
    EXPECT_EQ(result, row.result) << text;
    EXPECT_HAS(text, row.says);
  }
  root.cloud("ENROLLED=1\nAUTO_CONNECT=1\n");
  root.config(rows[2].file);
  EXPECT_HAS(runCheck().second, "no streaming mode starts at boot");
}

// Only a value of exactly "1" sets a flag; blanks anywhere are dropped, "#" starts a comment.
TEST(CloudSettingsFile, SetsTheFlagsOnlyForExactlyOne) {
  const struct {
    const char* file;
    bool enrolled;
    bool autoConnect;
  } rows[] = {{"ENROLLED = 1\nAUTO_CONNECT=1\n", true, true},
              {"ENROLLED=1\r\nAUTO_CONNECT\t=\t1\r\n", true, true},
              {"ENROLLED=true\nAUTO_CONNECT=01\n", false, false},
              {"ENROLLED=1.0\nAUTO_CONNECT=1", false, true},
              {"# ENROLLED=1\n #AUTO_CONNECT=1\n", false, false},
              {"enrolled=1\nSOME_KEY=1\n", false, false},
              {"ENROLLED=1\nAUTO_CONNECT=1=2\n", true, false},
              {"ENROLLED=1\nENROLLED=0\n", false, false},
              {"E N R O L L E D = 1", true, false},
              {"\n\n=\n1\nENROLLED", false, false}};
  for (const auto& row : rows) {
    ConfigRoot root;
    root.cloud(row.file);
    CloudSettings cloud;
    readCloudConfig(cloud);
    EXPECT_EQ(cloud.CloudEnrolled, row.enrolled) << row.file;
    EXPECT_EQ(cloud.CloudAutoConnect, row.autoConnect) << row.file;
  }
}

TEST(CloudSettingsFile, KeepsValuesAcrossReadsAndAddsNoKeys) {
  ConfigRoot root;
  CloudSettings cloud;
  ASSERT_EQ(cloud.values.size(), 5u);
  readCloudConfig(cloud);  // no file yet
  EXPECT_FALSE(cloud.CloudEnrolled);
  root.cloud("ENROLLED=1\nCLOUD_PROVIDER_ID=7\nNEW_KEY=x\nAUTO_CONNECT=\n");
  readCloudConfig(cloud);
  EXPECT_TRUE(cloud.CloudEnrolled);
  EXPECT_EQ(cloud.values.size(), 5u);
  EXPECT_EQ(cloud.values["CLOUD_PROVIDER_ID"], "7");
  EXPECT_EQ(cloud.values["AUTO_CONNECT"], "");
  root.cloud("AUTO_CONNECT=1\n");
  readCloudConfig(cloud);
  EXPECT_TRUE(cloud.CloudEnrolled);  // not named again: kept
  EXPECT_TRUE(cloud.CloudAutoConnect);
  EXPECT_EQ(cloud.values["KESTREL_DATA_SERVICES_ENROLLMENT_URL"].rfind("https://", 0), 0u);
  // A value may hold an equals sign.
  root.cloud("KESTREL_DATA_SERVICES_CLOUD_ROOT_PKI_URL = https://pki.example/roots.pem?a=b c\n");
  readCloudConfig(cloud);
  EXPECT_EQ(cloud.values["KESTREL_DATA_SERVICES_CLOUD_ROOT_PKI_URL"],
            "https://pki.example/roots.pem?a=bc");
}

// Mode,Baudrate,Databits,Parity,Stopbits,Flowcontrol,TagMetaData,IsAutostart,tag count of the
// stop trigger|TagMetaString, after a read.
std::string serialSummary(Records& r) {
  readSerialPortConf(r.serial, r.inventory);
  const SerialPortConfig& s = r.serial;
  return std::to_string(s.Mode) + "," + std::to_string(s.Baudrate) + "," +
         std::to_string(s.Databits) + "," + s.Parity + "," + std::to_string(s.Stopbits) + "," +
         s.Flowcontrol + "," + std::to_string(s.TagMetaData) + "," + std::to_string(s.IsAutostart) +
         "," + std::to_string(r.inventory.TriggerRecord.stop.tagCount) + "|" + s.TagMetaString;
}

TEST(SerialPortConf, SectionLines) {
  readRows(
      {
          {{R"(<SerialPortConf TagMetaData="9" Parity="Even" Baudrate="9600" Mode="1" Baudrate="19200"/>)"},
           "1,19200,0,Even,0,,9,0,0|EPC,RSSI,<CRC>\r\n"},
          // Values lose their first and last character, quoted or not; Mode only its first.
          {{R"(<SerialPortConf Baudrate=9600 Databits="8" Mode=1 />)"},
           "0,60,8,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf Mode="2x" TagMetaData="256"/>)"}, "2,0,0,,0,,256,0,0|<CRC>\r\n"},
          {{R"(<SerialPortConf IsAutostart="1"/>)"},
           "0,0,0,,0,,0,1,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf IsAutostart="0"/>)"},
           "0,0,0,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          // Missing keys keep their former values; IsAutostart is reset by every read.
          {{R"(<SerialPortConf Mode="1" Baudrate="57600" Parity="Odd" TagMetaData="5" IsAutostart="1"/>)",
            R"(<SerialPortConf Databits="7"/>)"},
           "1,57600,7,Odd,0,,5,0,0|EPC,AntennaID,<CRC>\r\n"},
          {{R"(<SerialPortConf Baudrate="4800" Databits)"},
           "0,4800,0,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf Parity="ABCDEFGHIJKLMNOP" Flowcontrol="RTSCTS" Stopbits="2" TagMetaData="255"/>)"},
           "0,0,0,ABCDEFGHIJK,2,RTSCTS,255,0,0|"
           "EPC,PC,AntennaID,RSSI,SeenCount,TimeStamp,Phase,ChannelIndex,<CRC>\r\n"},
          {{R"(<SerialPortConf TagMetaData="-1"/>)"},
           "0,0,0,,0,,-1,0,0|EPC,PC,AntennaID,RSSI,SeenCount,TimeStamp,Phase,ChannelIndex,<CRC>"
           "\r\n"},
          // A closing tag first gives an empty section: the header follows the held TagMetaData.
          {{R"(<SerialPortConf TagMetaData="128"/>)",
            "</SerialPortConf>\n<SerialPortConf Mode=\"1\" TagMetaData=\"1\"/>"},
           "0,0,0,,0,,128,0,0|ChannelIndex,<CRC>\r\n"},
          {{R"(<SerialPortConf Baudrate="1200" IsAutostart="1"/>)",
            R"(<Other SerialPortConf Mode="1" Baudrate="9600"/>)"},
           "0,1200,0,,0,,0,0,0|"},
          {{R"(<SerialPortConf Mode="1" Baudrate="9600" IsAutostart="1"/>)", ""},
           "1,9600,0,,0,,0,0,0|"},
          // A pad to the end of the line's first 255-character piece: the key after it is not read.
          {{R"(<SerialPortConf Baudrate="9600" Pad=")" + std::string(255 - 38, 'x') +
            R"(" Databits="7"/>)"},
           "0,9600,0,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf InventoryControl="S0,Never,TAG:5,1" Baudrate="38400"/>)"},
           "0,38400,0,,0,,0,0,5|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
      },
      serialSummary);
}

// result|relayMode,IsAutostart,TagMetaData,InventoryControl,PreFilterMode,PreFilters,
// HeartBeatPeriod,HeartbeatEnabled|AntennaId:TxPower of each antenna line, after a read.
std::string relaySummary(Records& records) {
  int32_t result = readRelayConfig(records.relay, records.inventory);
  const RelayConfig& r = records.relay;
  std::string text = std::to_string(result) + "|" + std::to_string(r.relayMode) + "," +
                     std::to_string(r.IsAutostart) + "," + std::to_string(r.TagMetaData) + "," +
                     r.InventoryControl + "," + std::to_string(r.PreFilterMode) + "," +
                     r.PreFilters + "," + std::to_string(r.HeartBeatPeriod) + "," +
                     std::to_string(r.HeartbeatEnabled) + "|";
  for (const AntennaEntry& a : r.Antennas) {
    text += std::to_string(a.AntennaId) + ":" + std::to_string(a.TxPower) + " ";
  }
  return text;
}

TEST(RelayConf, Sections) {
  const std::string overLong =
      "<TagrelayConfig TagrelayMode=\"1\" InventoryControl=\"S0,Immediate,Delay:1," +
      std::string(300, '1') + "\" PreFilters=\"" + std::string(400, 'F') + "\" TagMetaData=\"3\"/>";
  readRows(
      {
          // Only the first relay section counts, whichever of the two names it has.
          {{"<TagrelayConfig TagrelayMode=\"3\" TagMetaData=\"1\"/>\n"
            "<EasyTagrelayConfig EasyTagrelayMode=\"1\" TagMetaData=\"2\"/>"},
           "0|3,0,1,,0,,0,0|"},
          {{"<EasyTagrelayConfig EasyTagrelayMode=\"4\"/>\n<TagrelayConfig TagrelayMode=\"2\"/>"},
           "0|4,0,0,,0,,0,0|"},
          {{R"(<TagrelayConfig TagrelayMode="1" PreFilterMode="3" IsAutostart="1"/>)"},
           "0|1,1,0,,0,,0,0|"},
          {{R"(<TagrelayConfig TagrelayMode="1" PreFilters="1,0,E280" PreFilterMode="2"/>)"},
           "0|1,0,0,,2,1,0,E280,0,0|"},
          // Antenna lines anywhere; a key a line leaves out keeps the previous line's value.
          {{"<AntennaConfig AntennaId=\"2\" AntennaTxPower=\"280\"/>\n"
            "<TagrelayConfig TagrelayMode=\"1\"/>\n<AntennaConfig AntennaId=\"3\"/>\n"
            "<AntennaConfig AntennaTxPower=\"100\" AntennaId=\"257\"/>"},
           "0|1,0,0,,0,,0,0|2:280 3:280 1:100 "},
          // Each read rebuilds the list; a first line without keys starts from 0.
          {{"<AntennaConfig AntennaId=\"2\" AntennaTxPower=\"280\"/>", "<AntennaConfig/>"},
           "0|0,0,0,,0,,0,0|0:0 "},
          // Mode 0 stops reading at once: later keys and antenna lines are not read.
          {{R"(<TagrelayConfig TagrelayMode="1" HeartBeatPeriod="10"/>)",
            "<AntennaConfig AntennaId=\"1\"/>\n<TagrelayConfig TagMetaData=\"7\" "
            "TagrelayMode=\"0\" "
            "IsAutostart=\"1\" HeartBeatPeriod=\"5\"/>\n<AntennaConfig AntennaId=\"2\"/>"},
           "0|0,0,7,,0,,10,0|1:0 "},
          {{R"(<TagrelayConfig TagrelayMode="2" InventoryControl="S5,Immediate,TAG:1,1" HeartBeatPeriod="30"/>)"},
           "-1|2,0,0,S5,Immediate,TAG:1,1,0,,30,1|"},
          {{overLong}, "-1|1,0,3,,0,,0,0|"},
          // A missing section or file keeps the fields that are not reset by every read.
          {{R"(<TagrelayConfig TagrelayMode="3" TagMetaData="5" HeartBeatPeriod="9" IsAutostart="1" PreFilterMode="1"/>)",
            "<AntennaConfig AntennaId=\"4\"/>"},
           "0|3,0,5,,0,,9,1|4:0 "},
          {{R"(<TagrelayConfig TagrelayMode="3" HeartBeatPeriod="9"/>)", ""}, "0|3,0,0,,0,,9,1|"},
      },
      relaySummary);
}

// What a reader cannot use is logged: a refused value first by the parser at level 3, then by
// its section at level 6; an unknown key, a missing section or file at level 6.
TEST(ConfigLog, RefusedValuesUnknownKeysAndMissingSections) {
  ASSERT_TRUE(Logger::echo()) << "run with MVM_DEBUG=enable, as ctest does";
  ConfigRoot root;
  root.config(R"(<TagrelayConfig TagrelayMode="1" InventoryControl="S0,Immediate,Delay:5000"/>)"
              "\n<SerialPortConf Foo=\"2\" />\n");
  Records r;
  testing::internal::CaptureStdout();
  EXPECT_EQ(readRelayConfig(r.relay, r.inventory), -1);
  readSerialPortConf(r.serial, r.inventory);
  EXPECT_EQ(readDataFormatConfig(r.format), -1);
  root.config("");
  readSerialPortConf(r.serial, r.inventory);
  std::string log = testing::internal::GetCapturedStdout();
  for (const char* line :
       {"E-Invalid Stop Trigger Type.\n\nI-Tagrelay: Unable to process InventoryControl.\n\n",
        "I-Unknown argument in SerialPortConf - Foo\n", "I-Unable to read from file.\n",
        "I-Serial Port configuration not present in the config file\n\n"}) {
    EXPECT_HAS(log, line);
  }
}

TEST(OutputSections, TcpIpConfig) {
  // Format is set to "JSON" whatever the outcome.
  readRows({{{""}, "0|0|JSON,Tab"},
            {{R"(<TCPIPConfig Port=5000 />)"}, "1|0|JSON,Tab"},  // unquoted: loses its ends
            {{R"(<TCPIPConfig Other="1" Port="6001"/>)"}, "1|6001|JSON,Tab"},
            {{R"(<Other TCPIPConfig Port="1"/>)"}, "-1|0|JSON,Tab"}},
           [](Records& r) {
             int32_t result = readTcpIpConfig(r.tcp, r.format);
             return std::to_string(result) + "|" + std::to_string(r.tcp.Port) + "|" +
                    r.format.Format + "," + r.format.Delimiter;
           });
}

TEST(OutputSections, TagrelayDataFormat) {
  readRows(
      {{{""}, "0|KeyValuePair,,,,,"},
       {{R"(<Other TagrelayDataFormat Format="JSON"/>)"}, "-1|KeyValuePair,,,,,"},
       {{R"(<TagrelayDataFormat Format="JSON" DataPrefix="" DataSuffix="#" Delimiter="Space"/>)"},
        "1|JSON,Space,,,,#"},
       // A blank ends a value; the rest of it is passed over as unknown tokens.
       {{R"(<TagrelayDataFormat Format="JSON" LineEnding="CRLF"/>)",
         R"(<TagrelayDataFormat DataPrefix="[[ ]]" LineEnding="LF"/>)"},
        "1|JSON,,LF,,[,"},
       {{"<TagrelayDataFormat Format=\"" + std::string(40, 'F') +
         "\" Delimiter=\"Semicolon\" DataPrefix=\"" + std::string(200, 'p') +
         "\" TimestampFormat=\"Numeric\"/>"},
        "1|" + std::string(31, 'F') + ",Semicol,,Numeric," + std::string(127, 'p') + ","}},
      [](Records& r) {
        const DataFormatConfig& format = r.format;
        int32_t result = readDataFormatConfig(r.format);
        return std::to_string(result) + "|" + format.Format + "," + format.Delimiter + "," +
               format.LineEnding + "," + format.TimestampFormat + "," + format.DataPrefix + "," +
               format.DataSuffix;
      });
}

TEST(OutputSections, HttpPostConfig) {
  const std::string proxied =
      R"(<HTTPPostConfig HTTPServerURL="https://collector.example:8443/rfid" VerifyPeer="2" VerifyHost="1" )"
      R"(HTTPAuthenticationType="Basic" HTTPProxyServerURL="http://proxy.example:3128" HTTPProxyPort="3128" )"
      R"(HTTPProxyTunnel="2" HTTPProxyAuthenticationType="anysafe" HTTPProxyUserName="p" HTTPProxyPassword="q" )"
      R"(HTTPPostInterval="12abc" Unknown="1" />)";
  const std::string longUrl = "http://" + std::string(200, 'h') + ".example/";
  // Names in single quotes keep their blanks; in double quotes a name runs up to the next "=".
  const char* named = R"(<HTTPPostConfig ReaderName='Gate 4 / North' HTTPUserName="u1" />)";
  readRows({{{""}, "0|,0,0,0,,,0|0,,0,0,0,,|"},
            {{R"(<Other HTTPPostConfig HTTPUserName="u"/>)"}, "-1|,0,0,0,,,0|0,,0,0,0,,|"},
            {{proxied},
             "1|https://collector.example:8443/rfid,1,1,4294967295,,,12|"
             "1,http://proxy.example:3128,3128,0,4294967278,p,q|"},
            // A later section without the proxy keeps it enabled; only named keys change.
            {{proxied, R"(<HTTPPostConfig HTTPProxyTunnel="1" />)"},
             "1|https://collector.example:8443/rfid,1,1,4294967295,,,12|"
             "1,http://proxy.example:3128,3128,1,4294967278,p,q|"},
            {{named}, "1|,0,0,0,u1,,0|0,,0,0,0,,|Gate 4 / North"},
            {{named, R"(<HTTPPostConfig ReaderName="Gate 5" HTTPUserName="u2" />)"},
             "1|,0,0,0,u1,,0|0,,0,0,0,,|\"Gate 5\" HTTPUserName"},
            {{"<HTTPPostConfig ReaderName='" + std::string(300, 'n') + "' />"},
             "1|,0,0,0,,,0|0,,0,0,0,,|" + std::string(127, 'n')},
            // A value right before the closing slash keeps its closing quote.
            {{R"(<HTTPPostConfig HTTPUserName="admin"/>)"}, "1|,0,0,0,admin\",,0|0,,0,0,0,,|"},
            {{"<HTTPPostConfig HTTPServerURL=\"" + longUrl + "\" HTTPPassword=\"pw\" />"},
             "1|" + longUrl.substr(0, 127) + ",0,0,0,,pw,0|0,,0,0,0,,|"}},
           [](Records& r) {
             const HttpPostConfig& h = r.http;
             int32_t result = readHttpPostConfig(r.http, r.name, r.format);
             EXPECT_STREQ(r.format.Format, "JSON");  // set whatever the outcome
             return std::to_string(result) + "|" + h.HTTPServerURL + "," +
                    std::to_string(h.VerifyPeer) + "," + std::to_string(h.VerifyHost) + "," +
                    std::to_string(h.HTTPAuthenticationType) + "," + h.HTTPUserName + "," +
                    h.HTTPPassword + "," + std::to_string(h.HTTPPostInterval) + "|" +
                    std::to_string(h.ProxyEnabled) + "," + h.HTTPProxyServerURL + "," +
                    std::to_string(h.HTTPProxyPort) + "," + std::to_string(h.HTTPProxyTunnel) +
                    "," + std::to_string(h.HTTPProxyAuthenticationType) + "," +
                    h.HTTPProxyUserName + "," + h.HTTPProxyPassword + "|" + r.name.text;
           });
}

// The names give libcurl's own masks (not a copy of the product's table); any other name, one
// with a blank too, sets every bit.
TEST(OutputSections, AuthenticationNamesMapToLibcurlMasks) {
  const std::pair<const char*, unsigned long> names[] = {{"none", CURLAUTH_NONE},
                                                         {"basic", CURLAUTH_BASIC},
                                                         {"digest", CURLAUTH_DIGEST},
                                                         {"ntlm", CURLAUTH_NTLM},
                                                         {"ntlm_wb", CURLAUTH_NTLM_WB},
                                                         {"digest_ie", CURLAUTH_DIGEST_IE},
                                                         {"any", CURLAUTH_ANY},
                                                         {"anysafe", CURLAUTH_ANYSAFE},
                                                         {"only", CURLAUTH_ONLY},
                                                         {"basic ", 0xFFFFFFFFu},
                                                         {"", 0xFFFFFFFFu}};
  for (const auto& [name, mask] : names) {
    EXPECT_EQ(httpAuthTypeFromName(name), static_cast<uint32_t>(mask)) << name;
  }
}

// result|BrokerURL|Topic|StatusTopic|QoS|ClientId|UserName|Password|CAFile|KeepAlive|reader
// name|Format, after a read.
std::string mqttSummary(Records& r) {
  int32_t result = readMqttConfig(r.mqtt, r.name, r.format);
  const MqttConfig& m = r.mqtt;
  return std::to_string(result) + "|" + m.BrokerURL + "|" + m.Topic + "|" + m.StatusTopic + "|" +
         std::to_string(static_cast<int>(m.QoS)) + "|" + m.ClientId + "|" + m.UserName + "|" +
         m.Password + "|" + m.CAFile + "|" + std::to_string(m.KeepAlive) + "|" + r.name.text + "|" +
         r.format.Format;
}

TEST(MqttSection, Lines) {
  readRows(
      {// Quoted values keep their blanks; empty values do not swallow the next key.
       {{R"(<MQTTConfig BrokerURL="mqtts://broker.example:8884/" Topic="site a/{mac}" )"
         R"(ClientId="" UserName="" Password="p w=x" CAFile="/etc/ca.pem" QoS="0" KeepAlive="60" )"
         R"(ReaderName="Dock Door 1"/>)"},
        "1|mqtts://broker.example:8884/|site a/{mac}|tessera/{reader_name}/status|0|||p w=x|"
        "/etc/ca.pem|60|Dock Door 1|JSON"},
       // Refused values keep the defaults; an earlier password does not live on.
       {{R"(<MQTTConfig Password="old"/>)",
         R"(<MQTTConfig BrokerURL="http://x" Topic="a/#" StatusTopic="" QoS="2" KeepAlive="4"/>)"},
        "1|mqtt://127.0.0.1:1883|tessera/{reader_name}/reads|tessera/{reader_name}/status|1|||||30|"
        "|JSON"},
       {{R"(<HTTPPostConfig HTTPServerURL="x"/>)"},
        "-1|mqtt://127.0.0.1:1883|"
        "tessera/{reader_name}/reads|tessera/{reader_name}/status|1|||||30||JSON"}},
      mqttSummary);
}

TEST(MqttNames, BrokerUrlsTopicsAndClientIds) {
  MqttBroker b;
  ASSERT_TRUE(parseBrokerUrl("mqtt://10.0.0.5", b));
  EXPECT_EQ(b.host, "10.0.0.5");
  EXPECT_EQ(b.port, 1883);
  EXPECT_FALSE(b.tls);
  ASSERT_TRUE(parseBrokerUrl("mqtts://broker:9000/", b));
  EXPECT_EQ(b.port, 9000);
  EXPECT_TRUE(b.tls);
  for (const char* bad : {"MQTT://h", "mqtt://", "mqtt://h:0", "mqtt://h:x", "mqtt://u@h", "h:1"}) {
    EXPECT_FALSE(parseBrokerUrl(bad, b)) << bad;
  }
  EXPECT_EQ(expandTopic("t/{reader_name}/{mac}/r", "Dock/1 +#", "00:11"), "t/Dock_1 __/00:11/r");
  MqttConfig config;
  EXPECT_EQ(mqttClientId(config, "00:11:22:33:44:55"), "tessera-00:11:22:33:44:55");
}

}  // namespace
}  // namespace tessera
