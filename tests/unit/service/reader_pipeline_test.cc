// Pure pieces of the reader pipeline: the serial buffer-full rule, pre-filter records and the
// command field grammar.
#include <gtest/gtest.h>

#include "command/command_fields.h"
#include "reader/prefilters.h"
#include "reader/tag_processing.h"

namespace tessera {
namespace {

TEST(SerialTx, OneFullEventThenOneClearedEvent) {
  bool full = false;
  EXPECT_EQ(serialTxUpdate(full, 3686), SerialTxChange::kNone);
  EXPECT_EQ(serialTxUpdate(full, 3687), SerialTxChange::kBecameFull);
  EXPECT_EQ(serialTxUpdate(full, 3687), SerialTxChange::kNone);
  EXPECT_EQ(serialTxUpdate(full, 0), SerialTxChange::kNone);
  EXPECT_TRUE(full);
  EXPECT_EQ(serialTxUpdate(full, 100), SerialTxChange::kCleared);
  EXPECT_EQ(serialTxUpdate(full, 100), SerialTxChange::kNone);
  EXPECT_FALSE(full);
}

TEST(PreFilters, StartAndEndMatchesWithStateUnawareActions) {
  SingulationControl unaware;
  PreFilterPlan first = planPreFilter("E280", 0, 1, unaware);
  EXPECT_EQ(first.pattern, (std::vector<uint8_t>{0xE2, 0x80}));
  EXPECT_EQ(first.record.patternBitCount, 16);
  EXPECT_EQ(first.record.bitOffset, 32);
  EXPECT_EQ(first.record.filterType, PREFILTER_STATE_UNAWARE);
  EXPECT_EQ(first.record.stateUnawareAction, 0u);
  PreFilterPlan second = planPreFilter("*1234", 1, 1, unaware);
  EXPECT_EQ(second.record.bitOffset, 112);
  EXPECT_EQ(second.record.stateUnawareAction, 1u);
  EXPECT_EQ(planPreFilter("E280", 0, 2, unaware).record.stateUnawareAction, 4u);
  EXPECT_EQ(planPreFilter("*1234", 1, 2, unaware).record.stateUnawareAction, 3u);
}

TEST(PreFilters, StateAwareTargetsTheSessionAndActsByInventoryState) {
  SingulationControl aware;
  aware.stateAware = true;
  aware.session = 2;
  aware.inventoryState = 1;
  PreFilterPlan plan = planPreFilter("E280*", 0, 1, aware);
  EXPECT_EQ(plan.record.filterType, PREFILTER_STATE_AWARE);
  EXPECT_EQ(plan.record.target, 3u);
  EXPECT_EQ(plan.record.stateAwareAction, 4u);
}

TEST(PreFilters, FilterTextsAndHex) {
  EXPECT_TRUE(isByteStringFilter("E280"));
  EXPECT_TRUE(isByteStringFilter("*"));
  EXPECT_TRUE(isByteStringFilter(""));
  EXPECT_TRUE(isByteStringFilter("e2*"));
  EXPECT_FALSE(isByteStringFilter("E28"));
  EXPECT_FALSE(isByteStringFilter("E2 0"));
  EXPECT_FALSE(isByteStringFilter("E2*80"));
  std::vector<uint8_t> bytes;
  EXPECT_EQ(hexToBytes("e2AB", bytes), 0);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0xE2, 0xAB}));
  EXPECT_EQ(hexToBytes("G1", bytes), -1);
  EXPECT_EQ(bytes.size(), 2u);
  EXPECT_EQ(splitText("E280,", ","), (std::vector<std::string>{"E280", ""}));
  EXPECT_EQ(splitText("a", ","), (std::vector<std::string>{"a"}));
}

TEST(CommandFields, TokensNeedACommaAndFieldsABlank) {
  EXPECT_EQ(commandKey("setup.operating_mode_serialPort=,5084 0 ,\r\n"),
            "setup.operating_mode_serialPort");
  EXPECT_EQ(commandKey("disconnect\r\n"), "disconnect\r\n");
  auto tokens = parseCommandFields("setup.operating_mode_Tagrelay=,5084 0 1 ,\r\n");
  ASSERT_EQ(tokens.size(), 2u);
  EXPECT_TRUE(tokens[0].empty());  // the key's token has no blank-terminated field
  EXPECT_EQ(tokens[1], (std::vector<long>{5084, 0, 1}));
  tokens = parseCommandFields("setup.operating_mode_Tagrelay=5084 0 1 ,\r\n");
  ASSERT_EQ(tokens.size(), 1u);
  EXPECT_EQ(tokens[0], (std::vector<long>{0, 0, 1}));
  EXPECT_TRUE(parseCommandFields("setup.connection_config=5084 0").empty());
  tokens = parseCommandFields("k=,1 200 1 ,2 150,\r\n");
  ASSERT_EQ(tokens.size(), 3u);
  EXPECT_EQ(tokens[2], (std::vector<long>{2}));  // "150" has no blank after it
}

}  // namespace
}  // namespace tessera
