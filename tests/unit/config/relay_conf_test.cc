#include "config/relay_conf.h"

#include <gtest/gtest.h>

#include <string>

#include "config_test_support.h"

namespace tessera {
namespace {

class RelayConf : public testing::Test {
 protected:
  int32_t read(const std::string& text) {
    root.config(text);
    return readRelayConfig(relay, inventory);
  }
  test::TempRoot root;
  RelayConfig relay;
  InventoryControlConfig inventory;
};

TEST_F(RelayConf, ReadsTheDemoSection) {
  root.copySample("demo");
  ASSERT_EQ(readRelayConfig(relay, inventory), 0);
  EXPECT_EQ(relay.relayMode, static_cast<int32_t>(RelayMode::HttpPost));
  EXPECT_FALSE(relay.IsAutostart);
  EXPECT_EQ(relay.TagMetaData, 45);
  EXPECT_STREQ(relay.InventoryControl, "S1,Immediate,Delay:0,1");
  EXPECT_EQ(inventory.Session, 1);
  EXPECT_EQ(relay.PreFilterMode, 0);
  EXPECT_STREQ(relay.PreFilters, "");
  EXPECT_EQ(relay.HeartBeatPeriod, 30);
  EXPECT_TRUE(relay.HeartbeatEnabled);
  ASSERT_EQ(relay.Antennas.size(), 4u);
  EXPECT_EQ(relay.Antennas[0].AntennaId, 1);
  EXPECT_EQ(relay.Antennas[0].TxPower, 81);
  EXPECT_EQ(relay.Antennas[3].AntennaId, 4);
  EXPECT_EQ(relay.Antennas[3].TxPower, 61);
}

TEST_F(RelayConf, OnlyTheFirstRelaySectionCounts) {
  ASSERT_EQ(read("<TagrelayConfig TagrelayMode=\"3\" TagMetaData=\"1\"/>\n"
                 "<EasyTagrelayConfig EasyTagrelayMode=\"1\" TagMetaData=\"2\"/>\n"),
            0);
  EXPECT_EQ(relay.relayMode, 3);
  EXPECT_EQ(relay.TagMetaData, 1);
  ASSERT_EQ(
      read("<EasyTagrelayConfig EasyTagrelayMode=\"4\"/>\n<TagrelayConfig TagrelayMode=\"2\"/>\n"),
      0);
  EXPECT_EQ(relay.relayMode, 4);
}

TEST_F(RelayConf, PreFilterModeAndAutostart) {
  ASSERT_EQ(read(R"(<TagrelayConfig TagrelayMode="1" PreFilterMode="3" IsAutostart="1"/>)"), 0);
  EXPECT_EQ(relay.PreFilterMode, 0);
  EXPECT_TRUE(relay.IsAutostart);
  ASSERT_EQ(read(R"(<TagrelayConfig TagrelayMode="1" PreFilters="1,0,E280" PreFilterMode="2"/>)"),
            0);
  EXPECT_EQ(relay.PreFilterMode, 2);
  EXPECT_STREQ(relay.PreFilters, "1,0,E280");
  EXPECT_FALSE(relay.IsAutostart);
}

TEST_F(RelayConf, AntennaLinesAnywhereInheritMissingKeys) {
  ASSERT_EQ(read("<AntennaConfig AntennaId=\"2\" AntennaTxPower=\"280\"/>\n"
                 "<TagrelayConfig TagrelayMode=\"1\"/>\n"
                 "<AntennaConfig AntennaId=\"3\"/>\n"
                 "<AntennaConfig AntennaTxPower=\"100\" AntennaId=\"257\"/>\n"),
            0);
  ASSERT_EQ(relay.Antennas.size(), 3u);
  EXPECT_EQ(relay.Antennas[0].AntennaId, 2);
  EXPECT_EQ(relay.Antennas[1].AntennaId, 3);
  EXPECT_EQ(relay.Antennas[1].TxPower, 280);
  EXPECT_EQ(relay.Antennas[2].AntennaId, 1);  // low 8 bits
  EXPECT_EQ(relay.Antennas[2].TxPower, 100);
  // Each read rebuilds the list; a first line without keys starts from 0.
  ASSERT_EQ(read("<AntennaConfig/>\n"), 0);
  ASSERT_EQ(relay.Antennas.size(), 1u);
  EXPECT_EQ(relay.Antennas[0].AntennaId, 0);
  EXPECT_EQ(relay.Antennas[0].TxPower, 0);
}

TEST_F(RelayConf, ModeZeroStopsReadingAtOnce) {
  relay.HeartBeatPeriod = 10;
  ASSERT_EQ(read("<AntennaConfig AntennaId=\"1\"/>\n"
                 "<TagrelayConfig TagMetaData=\"7\" TagrelayMode=\"0\" IsAutostart=\"1\" "
                 "HeartBeatPeriod=\"5\"/>\n"
                 "<AntennaConfig AntennaId=\"2\"/>\n"),
            0);
  EXPECT_EQ(relay.relayMode, 0);
  EXPECT_EQ(relay.TagMetaData, 7);
  EXPECT_FALSE(relay.IsAutostart);
  EXPECT_EQ(relay.HeartBeatPeriod, 10);
  EXPECT_FALSE(relay.HeartbeatEnabled);
  EXPECT_EQ(relay.Antennas.size(), 1u);
}

TEST_F(RelayConf, RefusedInventoryControlReadsTheRest) {
  ASSERT_EQ(
      read(
          R"(<TagrelayConfig TagrelayMode="2" InventoryControl="S5,Immediate,TAG:1,1" HeartBeatPeriod="30"/>)"),
      -1);
  EXPECT_EQ(relay.relayMode, 2);
  EXPECT_STREQ(relay.InventoryControl, "S5,Immediate,TAG:1,1");
  EXPECT_EQ(relay.HeartBeatPeriod, 30);
  EXPECT_TRUE(relay.HeartbeatEnabled);
}

TEST_F(RelayConf, OverLongListsAreRefused) {
  std::string inventoryText = "S0,Immediate,Delay:1," + std::string(300, '1');
  std::string filters(400, 'F');
  ASSERT_EQ(read("<TagrelayConfig TagrelayMode=\"1\" InventoryControl=\"" + inventoryText +
                 "\" PreFilters=\"" + filters + "\" TagMetaData=\"3\"/>"),
            -1);
  EXPECT_STREQ(relay.InventoryControl, "");
  EXPECT_STREQ(relay.PreFilters, "");
  EXPECT_EQ(relay.TagMetaData, 3);
}

TEST_F(RelayConf, MissingFileOrSectionKeepsTheUnresetFields) {
  ASSERT_EQ(
      read(
          R"(<TagrelayConfig TagrelayMode="3" TagMetaData="5" HeartBeatPeriod="9" IsAutostart="1" PreFilterMode="1"/>)"
          "\n<AntennaConfig AntennaId=\"1\"/>\n"),
      0);
  ASSERT_EQ(read("<AntennaConfig AntennaId=\"4\"/>\n"), 0);
  EXPECT_EQ(relay.relayMode, 3);
  EXPECT_EQ(relay.TagMetaData, 5);
  EXPECT_FALSE(relay.IsAutostart);
  EXPECT_EQ(relay.PreFilterMode, 0);
  EXPECT_TRUE(relay.HeartbeatEnabled);
  ASSERT_EQ(relay.Antennas.size(), 1u);
  EXPECT_EQ(relay.Antennas[0].AntennaId, 4);
  std::filesystem::remove(root.dir() + "/readerconfig/AdvReaderConfig.xml");
  ASSERT_EQ(readRelayConfig(relay, inventory), 0);
  EXPECT_TRUE(relay.Antennas.empty());
  EXPECT_EQ(relay.relayMode, 3);
  EXPECT_TRUE(relay.HeartbeatEnabled);  // follows the held period
}

TEST_F(RelayConf, LogsARefusedInventoryControl) {
  if (!test::inEchoingProcess()) return;
  root.config(R"(<TagrelayConfig TagrelayMode="1" InventoryControl="S0,Immediate,Delay:5000"/>)");
  testing::internal::CaptureStdout();
  EXPECT_EQ(readRelayConfig(relay, inventory), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "E-Invalid Stop Trigger Type.\n\nI-Tagrelay: Unable to process InventoryControl.\n\n");
}

}  // namespace
}  // namespace tessera
