#include "config/check_config.h"

#include <gtest/gtest.h>

#include <string>

#include "config_test_support.h"

namespace tessera {
namespace {

// Runs the check and returns its result and what it printed.
std::pair<int, std::string> runCheck() {
  FILE* out = std::tmpfile();
  EXPECT_NE(out, nullptr);
  int result = checkConfig(out);
  std::string text;
  std::rewind(out);
  char buffer[4096];
  size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, out)) > 0) text.append(buffer, got);
  std::fclose(out);
  return {result, text};
}

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

TEST(CheckConfig, DemoIsUsableAndHidesThePassword) {
  test::TempRoot root;
  root.copySample("demo");
  auto [result, text] = runCheck();
  EXPECT_EQ(result, 0) << text;
  EXPECT_TRUE(contains(text, "[SerialPortConf]\n  Mode = \"1\"\n  Baudrate = \"115200\"\n"))
      << text;
  EXPECT_TRUE(contains(text, "  header line: EPC,AntennaID,RSSI,TimeStamp,<CRC>\n")) << text;
  EXPECT_TRUE(contains(text, "  => serial push mode usable\n")) << text;
  EXPECT_TRUE(contains(text, "  antenna line 4: AntennaId 4, AntennaTxPower 61\n")) << text;
  EXPECT_TRUE(contains(text, "  HTTPPassword = \"***\"\n")) << text;
  EXPECT_TRUE(contains(text, "  ReaderName = \"Dock Door 1\"\n")) << text;
  EXPECT_TRUE(contains(text, "  => relay mode usable (HttpPost)\n")) << text;
  EXPECT_TRUE(contains(text, "\nconfiguration usable\n")) << text;
  EXPECT_FALSE(contains(text, "s3cret")) << text;
  EXPECT_FALSE(contains(text, "PROBLEM")) << text;
}

TEST(CheckConfig, ReportsCutAndRefusedValuesWithTheirKeys) {
  test::TempRoot root;
  root.config(
      "<SerialPortConf Mode=\"1\" Parity=\"NoneAtAllReally\" "
      "InventoryControl=\"S7,Immediate,TAG:1,1\"/>\n"
      "<TagrelayConfig TagrelayMode=\"3\" HeartBeatPeriod=\"0\"/>\n"
      "<TCPIPConfig Port=\"70000\"/>\n"
      "<HTTPPostConfig HTTPPassword=\"" +
      std::string(200, 'x') + "\" />\n");
  auto [result, text] = runCheck();
  EXPECT_EQ(result, 1) << text;
  EXPECT_TRUE(contains(
      text, "PROBLEM: SerialPortConf Parity: value \"NoneAtAllReally\" cut to 11 characters"))
      << text;
  EXPECT_TRUE(
      contains(text,
               "PROBLEM: SerialPortConf InventoryControl: value \"S7,Immediate,TAG:1,1\" refused "
               "(Invalid Session Type.\n)"))
      << text;
  EXPECT_TRUE(contains(text, "  => serial push mode NOT usable\n")) << text;
  EXPECT_TRUE(contains(text, "PROBLEM: Port 70000 is no TCP port")) << text;
  EXPECT_TRUE(contains(text, "missing (former value kept): TagMetaData, InventoryControl")) << text;
  EXPECT_TRUE(contains(text, "\nconfiguration NOT usable\n")) << text;
  EXPECT_FALSE(contains(text, "xxxx")) << text;
}

TEST(CheckConfig, NoFileOrNoModeIsNotUsable) {
  test::TempRoot root;
  auto [noFile, text] = runCheck();
  EXPECT_EQ(noFile, 1);
  EXPECT_TRUE(contains(text, "file not found: no streaming mode can start")) << text;
  root.config("<SerialPortConf Mode=\"0\"/>\n<TagrelayConfig TagrelayMode=\"0\"/>\n");
  auto [noMode, text2] = runCheck();
  EXPECT_EQ(noMode, 1);
  EXPECT_TRUE(contains(text2, "no streaming mode is configured")) << text2;
}

TEST(CheckConfig, RelayOutputSectionMustExist) {
  test::TempRoot root;
  root.config("<EasyTagrelayConfig EasyTagrelayMode=\"2\" TagMetaData=\"1\"/>\n");
  root.cloud("ENROLLED=1\nAUTO_CONNECT=1\n");
  auto [result, text] = runCheck();
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(contains(text, "[TagrelayDataFormat]\n  section not found")) << text;
  EXPECT_TRUE(contains(text, "no streaming mode starts at boot")) << text;
  root.config(
      "<EasyTagrelayConfig EasyTagrelayMode=\"2\" TagMetaData=\"1\"/>\n"
      "<TagrelayDataFormat Format=\"KeyValuePair\"/>\n");
  auto [fixed, text2] = runCheck();
  EXPECT_EQ(fixed, 0) << text2;
}

}  // namespace
}  // namespace tessera
