#include "config/inventory_control.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace tessera {
namespace {

// "S<session> delay <start delay> start <type>/<period>/<GPI port> stop <type>/<duration>/
// <GPI port>/<tag count>/<round count> value <value block>", with the fields a parse never sets
// checked on the way. Types by letter: Immediate, Periodic, Gpi; None, Duration, Gpi, Tags, Rounds.
std::string summary(const InventoryControlConfig& c) {
  const TriggerRecord& r = c.TriggerRecord;
  EXPECT_FALSE(r.start.gpiEvent);
  EXPECT_EQ(r.start.gpiTimeoutMs + r.stop.timeoutMs, 0u);
  for (uint32_t word : r.valueBlock.reserved) EXPECT_EQ(word, 0u);
  EXPECT_EQ(r.tagReportTrigger + r.tagReportOptions, 0u);  // set by the inventory starters
  auto n = [](auto value) { return std::to_string(static_cast<int64_t>(value)); };
  std::string text = "S";  // appended, not "S" + ..., for GCC 12's false -Wrestrict
  return text + n(c.Session) + " delay " + n(c.StartDelay) + " start " +
         "IPG"[static_cast<int>(r.start.type)] + "/" + n(r.start.periodMs) + "/" +
         n(r.start.gpiPort) + " stop " + "NDGTR"[static_cast<int>(r.stop.type)] + "/" +
         n(r.stop.durationMs) + "/" + n(r.stop.gpiPort) + "/" + n(r.stop.tagCount) + "/" +
         n(r.stop.roundCount) + (r.hasValueBlock ? " value " + n(r.valueBlock.value) : "");
}

TEST(InventoryControl, AcceptedTexts) {
  const std::string overLong = "S0,Immediate,Delay:5000," + std::string(3000, '7');
  // strtol saturates at LONG_MAX, whose low 32 bits differ between the appliance and a PC.
  const std::string saturated = "S0 delay 0 start I/0/0 stop D/5000/0/0/0 value " +
                                std::to_string(static_cast<uint32_t>(LONG_MAX));
  const struct {
    const char* text;
    const char* expected;
  } rows[] = {
      {"S0,Immediate,Delay:5000,1", "S0 delay 0 start I/0/0 stop D/5000/0/0/0 value 1"},
      {"S2,Periodic:10000,TAG:100,0", "S2 delay 0 start P/10000/0 stop T/0/0/100/0 value 0"},
      {"S1,Delay:2000,Round:3,4", "S1 delay 2000 start I/0/0 stop R/0/0/0/3 value 4"},
      {"S3,GPI:1,GPI:2,0", "S3 delay 0 start G/0/1 stop G/0/2/0/0 value 0"},
      // 16-bit fields keep the low 16 bits; no digits read as 0.
      {"S0,Immediate,TAG:70000,1", "S0 delay 0 start I/0/0 stop T/0/0/4464/0 value 1"},
      {"S0,Immediate,TAG:abc,1", "S0 delay 0 start I/0/0 stop T/0/0/0/0 value 1"},
      {"S1,GPI:70001,Round:65537,x", "S1 delay 0 start G/0/4465 stop R/0/0/0/1 value 0"},
      {"S2,Periodic:12ms,Delay:-1,-2",
       "S2 delay 0 start P/12/0 stop D/4294967295/0/0/0 value 4294967294"},
      // The working copy keeps 1023 characters: the number is cut, the rest parses.
      {overLong.c_str(), saturated.c_str()},
  };
  for (const auto& row : rows) {
    InventoryControlConfig config;
    config.Session = 9;
    config.StartDelay = 77;
    ASSERT_EQ(parseInventoryControl(config, row.text), 0) << row.text;
    EXPECT_EQ(summary(config), row.expected) << row.text;
  }
}

// One row per rule the parser applies; each stops it with its own message.
TEST(InventoryControl, RefusedTexts) {
  const std::string longSession = std::string(2000, 'S') + ",Immediate,Delay:1,1";
  const struct {
    const char* text;
    const char* message;
  } rows[] = {
      // The last field of three is taken as the number; "Immediate" is then the stop trigger.
      {"S0,Immediate,Delay:5000", "Invalid Stop Trigger Type.\n"},
      {"S0,Immediate", "Incorrect Inventory Control parameters\n"},
      {"X,S0,Immediate,Delay:100,1", "Incorrect Inventory Control parameters\n"},
      {"S0,Periodic5000,TAG:10,1", "Periodic value not found in Start Trigger\n"},
      {"S0,Immediate,TAG,1", "TAG value not found in Stop Trigger\n"},
      {"S0,Immediate,TAGS:10,1", "TAG value not found in Stop Trigger\n"},
      {"S0,Immediate,GPI2,1", "GPI value not found in Stop Trigger\n"},
      {"S0,Immediate,Round,1", "Round value not found in Stop Trigger\n"},
      {"S0,Immediate,Delay=5,1", "Delay value not found in Stop Trigger\n"},
      {"S0,GPI,TAG:5,1", "GPI value not found in Start Trigger\n"},
      {"S0,immediate,TAG:5,1", "Invalid Start Trigger Type.\n"},
      {"S0,Immediately,TAG:5,1", "Invalid Start Trigger Type.\n"},
      {"s0,Immediate,Delay:100,1", "Invalid Session Type.\n"},
      {"S4,Immediate,Delay:100,1", "Invalid Session Type.\n"},
      {"S01,Immediate,Delay:100,1", "Invalid Session Type.\n"},
      {longSession.c_str(), "Incorrect Inventory Control parameters\n"},  // cut before a comma
  };
  for (const auto& row : rows) {
    InventoryControlConfig config;
    const char* failure = nullptr;
    SCOPED_TRACE(std::string(row.text).substr(0, 40));
    EXPECT_EQ(parseInventoryControl(config, row.text, &failure), -1);
    EXPECT_STREQ(failure, row.message);
  }
}

TEST(InventoryControl, FailureKeepsWhatWasSetBefore) {
  InventoryControlConfig config;
  ASSERT_EQ(parseInventoryControl(config, "S3,Delay:500,GPI:2,9"), 0);
  EXPECT_EQ(parseInventoryControl(config, "S1,Bogus,TAG:5,7"), -1);
  // The session is reached last; the record was cleared before the triggers were read.
  EXPECT_EQ(summary(config), "S3 delay 0 start I/0/0 stop T/0/0/5/0 value 7");
  ASSERT_EQ(parseInventoryControl(config, "S2,Periodic:100,TAG:5,7"), 0);
  EXPECT_EQ(parseInventoryControl(config, "nothing"), -1);  // no comma clears the whole record
  EXPECT_EQ(summary(config), "S2 delay 0 start I/0/0 stop N/0/0/0/0");
}

}  // namespace
}  // namespace tessera
