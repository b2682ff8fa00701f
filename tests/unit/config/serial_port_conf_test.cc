#include "config/serial_port_conf.h"

#include <gtest/gtest.h>

#include <string>

#include "config_test_support.h"

namespace tessera {
namespace {

class SerialPortConf : public testing::Test {
 protected:
  // Reads a file that holds `line` as its section line, between two other lines.
  void read(const std::string& line) {
    root.config("<AdvReaderConfig>\n" + line + "\n</AdvReaderConfig>\n");
    readSerialPortConf(serial, inventory);
  }
  test::TempRoot root;
  SerialPortConfig serial;
  InventoryControlConfig inventory;
};

TEST_F(SerialPortConf, ReadsTheDemoSection) {
  root.copySample("demo");
  readSerialPortConf(serial, inventory);
  EXPECT_EQ(serial.Mode, 1);
  EXPECT_EQ(serial.Baudrate, 115200);
  EXPECT_EQ(serial.Databits, 8);
  EXPECT_STREQ(serial.Parity, "None");
  EXPECT_EQ(serial.Stopbits, 1);
  EXPECT_STREQ(serial.Flowcontrol, "None");
  EXPECT_EQ(serial.TagMetaData, 45);
  EXPECT_FALSE(serial.IsAutostart);
  EXPECT_STREQ(serial.TagMetaString, "EPC,AntennaID,RSSI,TimeStamp,<CRC>\r\n");
  EXPECT_EQ(inventory.TriggerRecord.stop.type, StopTriggerType::Duration);
  EXPECT_TRUE(inventory.TriggerRecord.hasValueBlock);
}

TEST_F(SerialPortConf, KeysInAnyOrderAndTheLaterOfTwoWins) {
  read(
      R"(<SerialPortConf TagMetaData="9" Parity="Even" Baudrate="9600" Mode="1" Baudrate="19200"/>)");
  EXPECT_EQ(serial.Baudrate, 19200);
  EXPECT_STREQ(serial.Parity, "Even");
  EXPECT_EQ(serial.Mode, 1);
  EXPECT_STREQ(serial.TagMetaString, "EPC,RSSI,<CRC>\r\n");
}

TEST_F(SerialPortConf, ValuesLoseFirstAndLastCharacterQuotedOrNot) {
  read(R"(<SerialPortConf Baudrate=9600 Databits="8" Mode=1 />)");
  EXPECT_EQ(serial.Baudrate, 60);
  EXPECT_EQ(serial.Databits, 8);
  EXPECT_EQ(serial.Mode, 0);  // Mode drops only its first character: "1" leaves nothing
  read(R"(<SerialPortConf Mode="2x" />)");
  EXPECT_EQ(serial.Mode, 2);
}

TEST_F(SerialPortConf, IsAutostartFollowedByTheClosingSlash) {
  read(R"(<SerialPortConf Mode="1" IsAutostart="1"/>)");
  EXPECT_TRUE(serial.IsAutostart);
  read(R"(<SerialPortConf Mode="1" IsAutostart="0"/>)");
  EXPECT_FALSE(serial.IsAutostart);
  read(R"(<SerialPortConf Mode="1" IsAutostart="1"/>)");
  read(R"(<SerialPortConf Mode="1" />)");
  EXPECT_FALSE(serial.IsAutostart);  // reset by every read
}

TEST_F(SerialPortConf, MissingKeysKeepFormerValues) {
  read(R"(<SerialPortConf Mode="1" Baudrate="57600" Parity="Odd" TagMetaData="5"/>)");
  read(R"(<SerialPortConf Databits="7"/>)");
  EXPECT_EQ(serial.Mode, 1);
  EXPECT_EQ(serial.Baudrate, 57600);
  EXPECT_EQ(serial.Databits, 7);
  EXPECT_STREQ(serial.Parity, "Odd");
  EXPECT_STREQ(serial.TagMetaString, "EPC,AntennaID,<CRC>\r\n");
}

TEST_F(SerialPortConf, KeyWithoutValueEndsTheSection) {
  read(R"(<SerialPortConf Baudrate="4800" Databits)");
  EXPECT_EQ(serial.Baudrate, 4800);
  EXPECT_EQ(serial.Databits, 0);
  EXPECT_STREQ(serial.TagMetaString, "EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n");
}

TEST_F(SerialPortConf, OverLongTextsAreCutWithoutTouchingTheirNeighbours) {
  read(R"(<SerialPortConf Parity="ABCDEFGHIJKLMNOP" Flowcontrol="RTSCTS" Stopbits="2"/>)");
  EXPECT_STREQ(serial.Parity, "ABCDEFGHIJK");
  EXPECT_STREQ(serial.Flowcontrol, "RTSCTS");
  EXPECT_EQ(serial.Stopbits, 2);
}

TEST_F(SerialPortConf, ClosingTagFirstGivesAnEmptySection) {
  serial.TagMetaData = 128;
  root.config("</SerialPortConf>\n<SerialPortConf Mode=\"1\" TagMetaData=\"1\"/>\n");
  readSerialPortConf(serial, inventory);
  EXPECT_EQ(serial.Mode, 0);
  EXPECT_STREQ(serial.TagMetaString, "ChannelIndex,<CRC>\r\n");
}

TEST_F(SerialPortConf, SectionNameInsideALineIsNoSection) {
  serial.Baudrate = 1200;
  serial.IsAutostart = true;
  read(R"(<Other SerialPortConf Mode="1" Baudrate="9600"/>)");
  EXPECT_EQ(serial.Baudrate, 1200);
  EXPECT_FALSE(serial.IsAutostart);
  EXPECT_STREQ(serial.TagMetaString, "");
}

TEST_F(SerialPortConf, MissingFileClearsTheHeaderOnly) {
  read(R"(<SerialPortConf Mode="1" Baudrate="9600"/>)");
  serial.IsAutostart = true;
  std::filesystem::remove(root.dir() + "/readerconfig/AdvReaderConfig.xml");
  readSerialPortConf(serial, inventory);
  EXPECT_EQ(serial.Baudrate, 9600);
  EXPECT_FALSE(serial.IsAutostart);
  EXPECT_STREQ(serial.TagMetaString, "");
}

TEST_F(SerialPortConf, KeysPastTheFirst255CharactersAreNotRead) {
  std::string line = "<SerialPortConf Baudrate=\"9600\" ";
  line += "Pad=\"" + std::string(255 - line.size() - 6, 'x') + "\" ";  // fills the first piece
  line += "Databits=\"7\"/>";
  ASSERT_GT(line.size(), 255u);
  read(line);
  EXPECT_EQ(serial.Baudrate, 9600);
  EXPECT_EQ(serial.Databits, 0);
}

TEST_F(SerialPortConf, RefusedInventoryControlStillReadsTheRest) {
  read(R"(<SerialPortConf InventoryControl="S0,Never,TAG:5,1" Baudrate="38400"/>)");
  EXPECT_EQ(serial.Baudrate, 38400);
  EXPECT_EQ(inventory.TriggerRecord.stop.tagCount, 5);
}

struct Header {
  int32_t tagMetaData;
  const char* text;
};

class TagMetaStringOf : public testing::TestWithParam<Header> {};

TEST_P(TagMetaStringOf, NamesTheColumnsInBitOrder) {
  SerialPortConfig serial;
  serial.TagMetaData = GetParam().tagMetaData;
  buildTagMetaString(serial);
  EXPECT_STREQ(serial.TagMetaString, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Values, TagMetaStringOf,
    testing::Values(
        Header{0, "EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
        Header{5, "EPC,AntennaID,<CRC>\r\n"}, Header{9, "EPC,RSSI,<CRC>\r\n"},
        Header{256, "<CRC>\r\n"}, Header{384, "ChannelIndex,<CRC>\r\n"},
        Header{255, "EPC,PC,AntennaID,RSSI,SeenCount,TimeStamp,Phase,ChannelIndex,<CRC>\r\n"},
        Header{-1, "EPC,PC,AntennaID,RSSI,SeenCount,TimeStamp,Phase,ChannelIndex,<CRC>\r\n"}));

TEST_F(SerialPortConf, LogsParsedValuesAndUnknownKeys) {
  if (!test::inEchoingProcess()) return;
  root.config(
      R"(<SerialPortConf Mode="1" Foo="2" Baudrate="115200" Databits="8" Parity="None" Stopbits="1" Flowcontrol="None" TagMetaData="45" />)"
      "\n");
  testing::internal::CaptureStdout();
  readSerialPortConf(serial, inventory);
  // The value of an unknown key is taken as the next key; the line end is a token too.
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "I-Unknown argument in SerialPortConf - Foo\n"
            "I-Unknown argument in SerialPortConf - \"2\"\n"
            "I-Unknown argument in SerialPortConf - \n\n"
            "I-Serial Port Config - Parsed values 1, 115200, 8, None, 1, None 45\n"
            "I-TagMetaString -- EPC,AntennaID,RSSI,TimeStamp,<CRC>\r\n\n\n");
  std::filesystem::remove(root.dir() + "/readerconfig/AdvReaderConfig.xml");
  testing::internal::CaptureStdout();
  readSerialPortConf(serial, inventory);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "I-Serial Port configuration not present in the config file\n\n");
}

}  // namespace
}  // namespace tessera
