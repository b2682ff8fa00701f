#include "config/check_config.h"

#include <gtest/gtest.h>

#include <string>

#include "config/http_post_conf.h"
#include "config/output_conf.h"
#include "config/relay_conf.h"
#include "config/serial_port_conf.h"
#include "config_test_support.h"

namespace tessera {
namespace {

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
  test::ConfigRoot root;
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

  SerialPortConfig serial;
  InventoryControlConfig inventory;
  readSerialPortConf(serial, inventory);
  EXPECT_EQ(inventory.TriggerRecord.stop.type, StopTriggerType::Duration);
  EXPECT_TRUE(inventory.TriggerRecord.hasValueBlock);
  RelayConfig relay;
  ASSERT_EQ(readRelayConfig(relay, inventory), 0);
  EXPECT_EQ(relay.relayMode, static_cast<int32_t>(RelayMode::HttpPost));
  EXPECT_EQ(inventory.Session, 1);
  EXPECT_TRUE(relay.HeartbeatEnabled);
  ASSERT_EQ(relay.Antennas.size(), 4u);
  EXPECT_EQ(relay.Antennas[0].TxPower, 81);
  DataFormatConfig format;
  HttpPostConfig http;
  ReaderName name;
  EXPECT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_STREQ(http.HTTPPassword, "s3cret-Pw");
  TcpIpConfig tcp;
  EXPECT_EQ(readTcpIpConfig(tcp, format), 1);
  EXPECT_EQ(tcp.Port, 5000);
}

// A refused or cut value is reported with its section and key, and the check goes on.
TEST(CheckConfig, ReportsCutAndRefusedValuesWithTheirKeys) {
  test::ConfigRoot root;
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
  test::ConfigRoot root;
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

}  // namespace
}  // namespace tessera
