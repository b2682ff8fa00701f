#include "config/relay_conf.h"

#include <gtest/gtest.h>

#include <string>

#include "config/output_conf.h"
#include "config/serial_port_conf.h"
#include "config_test_support.h"
#include "platform/logger.h"

namespace tessera {
namespace {

struct Records {
  RelayConfig relay;
  InventoryControlConfig inventory;
};

// result|relayMode,IsAutostart,TagMetaData,InventoryControl,PreFilterMode,PreFilters,
// HeartBeatPeriod,HeartbeatEnabled|AntennaId:TxPower of each antenna line, after a read.
std::string readAndSummarize(Records& records) {
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
  test::readRows<Records>(
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
      readAndSummarize);
}

// What a reader cannot use is logged: a refused value first by the parser at level 3, then by
// its section at level 6; an unknown key, a missing section or file at level 6.
TEST(ConfigLog, RefusedValuesUnknownKeysAndMissingSections) {
  ASSERT_TRUE(Logger::echo()) << "run with MVM_DEBUG=enable, as ctest does";
  test::ConfigRoot root;
  root.config(R"(<TagrelayConfig TagrelayMode="1" InventoryControl="S0,Immediate,Delay:5000"/>)"
              "\n<SerialPortConf Foo=\"2\" />\n");
  RelayConfig relay;
  InventoryControlConfig inventory;
  SerialPortConfig serial;
  DataFormatConfig format;
  testing::internal::CaptureStdout();
  EXPECT_EQ(readRelayConfig(relay, inventory), -1);
  readSerialPortConf(serial, inventory);
  EXPECT_EQ(readDataFormatConfig(format), -1);
  root.config("");
  readSerialPortConf(serial, inventory);
  std::string log = testing::internal::GetCapturedStdout();
  for (const char* line :
       {"E-Invalid Stop Trigger Type.\n\nI-Tagrelay: Unable to process InventoryControl.\n\n",
        "I-Unknown argument in SerialPortConf - Foo\n", "I-Unable to read from file.\n",
        "I-Serial Port configuration not present in the config file\n\n"}) {
    EXPECT_NE(log.find(line), std::string::npos) << line << " in\n" << log;
  }
}

}  // namespace
}  // namespace tessera
