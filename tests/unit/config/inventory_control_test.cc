#include "config/inventory_control.h"

#include <gtest/gtest.h>

#include <string>

#include "config_test_support.h"

namespace tessera {
namespace {

struct Accepted {
  const char* text;
  int32_t session;
  uint32_t startDelay;
  StartTriggerType start;
  uint32_t periodMs;
  uint16_t startGpi;
  StopTriggerType stop;
  uint32_t durationMs;
  uint16_t stopGpi;
  uint16_t tagCount;
  uint16_t roundCount;
  uint32_t value;
};

class AcceptedValue : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedValue, FillsTheRecord) {
  const Accepted& c = GetParam();
  InventoryControlConfig config;
  config.Session = 9;
  config.StartDelay = 77;
  ASSERT_EQ(parseInventoryControl(config, c.text), 0);
  const TriggerRecord& r = config.TriggerRecord;
  EXPECT_EQ(config.Session, c.session);
  EXPECT_EQ(config.StartDelay, c.startDelay);
  EXPECT_EQ(r.start.type, c.start);
  EXPECT_EQ(r.start.periodMs, c.periodMs);
  EXPECT_EQ(r.start.gpiPort, c.startGpi);
  EXPECT_FALSE(r.start.gpiEvent);
  EXPECT_EQ(r.start.gpiTimeoutMs, 0u);
  EXPECT_EQ(r.stop.type, c.stop);
  EXPECT_EQ(r.stop.durationMs, c.durationMs);
  EXPECT_EQ(r.stop.gpiPort, c.stopGpi);
  EXPECT_EQ(r.stop.tagCount, c.tagCount);
  EXPECT_EQ(r.stop.roundCount, c.roundCount);
  EXPECT_EQ(r.stop.timeoutMs, 0u);
  EXPECT_TRUE(r.hasValueBlock);
  EXPECT_EQ(r.valueBlock.value, c.value);
  for (uint32_t word : r.valueBlock.reserved) EXPECT_EQ(word, 0u);
  EXPECT_EQ(r.tagReportTrigger, 0u);  // set by the inventory starters, not the parser
  EXPECT_EQ(r.tagReportOptions, 0u);
}

using S = StartTriggerType;
using T = StopTriggerType;
INSTANTIATE_TEST_SUITE_P(
    Examples, AcceptedValue,
    testing::Values(
        Accepted{"S0,Immediate,Delay:5000,1", 0, 0, S::Immediate, 0, 0, T::Duration, 5000, 0, 0, 0,
                 1},
        Accepted{"S2,Periodic:10000,TAG:100,0", 2, 0, S::Periodic, 10000, 0, T::TagCount, 0, 0, 100,
                 0, 0},
        Accepted{"S1,Delay:2000,Round:3,4", 1, 2000, S::Immediate, 0, 0, T::RoundCount, 0, 0, 0, 3,
                 4},
        Accepted{"S3,GPI:1,GPI:2,0", 3, 0, S::Gpi, 0, 1, T::Gpi, 0, 2, 0, 0, 0},
        Accepted{"S0,Immediate,Delay:0,0", 0, 0, S::Immediate, 0, 0, T::Duration, 0, 0, 0, 0, 0},
        // 16-bit fields keep the low 16 bits; no digits read as 0.
        Accepted{"S0,Immediate,TAG:70000,1", 0, 0, S::Immediate, 0, 0, T::TagCount, 0, 0, 4464, 0,
                 1},
        Accepted{"S0,Immediate,TAG:abc,1", 0, 0, S::Immediate, 0, 0, T::TagCount, 0, 0, 0, 0, 1},
        Accepted{"S1,GPI:70001,Round:65537,x", 1, 0, S::Gpi, 0, 4465, T::RoundCount, 0, 0, 0, 1, 0},
        Accepted{"S2,Periodic:12ms,Delay:-1,-2", 2, 0, S::Periodic, 12, 0, T::Duration, 4294967295u,
                 0, 0, 0, 4294967294u}));

struct Refused {
  const char* text;
  const char* message;
};

class RefusedValue : public testing::TestWithParam<Refused> {};

TEST_P(RefusedValue, FailsWithItsMessage) {
  InventoryControlConfig config;
  const char* failure = nullptr;
  EXPECT_EQ(parseInventoryControl(config, GetParam().text, &failure), -1);
  ASSERT_NE(failure, nullptr);
  EXPECT_STREQ(failure, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Examples, RefusedValue,
    testing::Values(
        // The last field of three is taken as the number; "Immediate" is then the stop trigger.
        Refused{"S0,Immediate,Delay:5000", "Invalid Stop Trigger Type.\n"},
        Refused{"S0,Immediate", "Incorrect Inventory Control parameters\n"},
        Refused{"", "Incorrect Inventory Control parameters\n"},
        Refused{"S0", "Incorrect Inventory Control parameters\n"},
        Refused{"X,S0,Immediate,Delay:100,1", "Incorrect Inventory Control parameters\n"},
        Refused{"S0,Periodic5000,TAG:10,1", "Periodic value not found in Start Trigger\n"},
        Refused{"S0,Periodic,TAG:10,1", "Periodic value not found in Start Trigger\n"},
        Refused{"S0,Immediate,TAGS:10,1", "TAG value not found in Stop Trigger\n"},
        Refused{"S0,Immediate,TAG,1", "TAG value not found in Stop Trigger\n"},
        Refused{"S0,Immediate,Delay=5,1", "Delay value not found in Stop Trigger\n"},
        Refused{"S0,Immediate,GPI2,1", "GPI value not found in Stop Trigger\n"},
        Refused{"S0,Immediate,Round,1", "Round value not found in Stop Trigger\n"},
        Refused{"S0,Immediate,tag:5,1", "Invalid Stop Trigger Type.\n"},
        Refused{"S0,Delay5,TAG:5,1", "Delay value not found in Start Trigger\n"},
        Refused{"S0,GPI,TAG:5,1", "GPI value not found in Start Trigger\n"},
        Refused{"S0,Immediately,TAG:5,1", "Invalid Start Trigger Type.\n"},
        Refused{"S0,Immed:100,TAG:5,1", "Invalid Start Trigger Type.\n"},
        Refused{"S0,immediate,TAG:5,1", "Invalid Start Trigger Type.\n"},
        Refused{"s0,Immediate,Delay:100,1", "Invalid Session Type.\n"},
        Refused{"S4,Immediate,Delay:100,1", "Invalid Session Type.\n"},
        Refused{"S01,Immediate,Delay:100,1", "Invalid Session Type.\n"},
        Refused{",Immediate,Delay:100,1", "Invalid Session Type.\n"}));

TEST(InventoryControl, FailureKeepsWhatWasSetBefore) {
  InventoryControlConfig config;
  ASSERT_EQ(parseInventoryControl(config, "S3,Delay:500,GPI:2,9"), 0);
  ASSERT_EQ(config.StartDelay, 500u);
  EXPECT_EQ(parseInventoryControl(config, "S1,Bogus,TAG:5,7"), -1);
  EXPECT_EQ(config.Session, 3);  // the session is reached last
  EXPECT_EQ(config.StartDelay, 0u);
  EXPECT_EQ(config.TriggerRecord.start.type, StartTriggerType::Immediate);
  EXPECT_EQ(config.TriggerRecord.stop.type, StopTriggerType::TagCount);
  EXPECT_EQ(config.TriggerRecord.stop.tagCount, 5);
  EXPECT_EQ(config.TriggerRecord.stop.gpiPort, 0);  // cleared with the record
  EXPECT_EQ(config.TriggerRecord.valueBlock.value, 7u);
}

TEST(InventoryControl, NoCommaClearsTheWholeRecord) {
  InventoryControlConfig config;
  ASSERT_EQ(parseInventoryControl(config, "S2,Periodic:100,TAG:5,7"), 0);
  EXPECT_EQ(parseInventoryControl(config, "nothing"), -1);
  EXPECT_FALSE(config.TriggerRecord.hasValueBlock);
  EXPECT_EQ(config.TriggerRecord.start.type, StartTriggerType::Immediate);
  EXPECT_EQ(config.TriggerRecord.start.periodMs, 0u);
  EXPECT_EQ(config.TriggerRecord.stop.type, StopTriggerType::None);
  EXPECT_EQ(config.Session, 2);
}

TEST(InventoryControl, OverLongTextIsCutNotOverflowed) {
  InventoryControlConfig config;
  std::string text = "S0,Immediate,Delay:5000," + std::string(3000, '7');
  // The working copy keeps 1023 characters: the number is cut, the rest parses.
  ASSERT_EQ(parseInventoryControl(config, text.c_str()), 0);
  EXPECT_EQ(config.TriggerRecord.stop.durationMs, 5000u);
  std::string session = std::string(2000, 'S') + ",Immediate,Delay:1,1";
  EXPECT_EQ(parseInventoryControl(config, session.c_str()), -1);
}

TEST(InventoryControl, LogsTheFailureAtLevelThree) {
  if (!test::inEchoingProcess()) return;
  InventoryControlConfig config;
  testing::internal::CaptureStdout();
  EXPECT_EQ(parseInventoryControl(config, "S0,Immediate"), -1);
  EXPECT_EQ(parseInventoryControl(config, "S9,Immediate,TAG:1,1"), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "E-Incorrect Inventory Control parameters\n\nE-Invalid Session Type.\n\n");
}

}  // namespace
}  // namespace tessera
