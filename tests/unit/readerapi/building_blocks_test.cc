// Tag buffer episodes, the ROSpec built for each trigger kind, and the status texts.
#include <gtest/gtest.h>

#include <cwchar>
#include <set>
#include <string>
#include <thread>

#include "readerapi/rfid_api.h"
#include "readerapi/rospec_builder.h"
#include "readerapi/tag_buffer.h"

namespace tessera::readerapi {
namespace {

ReaderTagData readWithId(uint8_t id) {
  ReaderTagData t;
  t.tagID[0] = id;
  t.tagIDLength = 1;
  return t;
}

TEST(TagBuffer, KeepsEveryReadInOrderAcrossTheMarksAndBeyondTheRing) {
  TagBuffer b(10);  // high water 8, low water 4
  for (uint8_t i = 0; i < 7; ++i) b.push(readWithId(i));
  EXPECT_FALSE(b.atHighWater());
  b.push(readWithId(7));
  EXPECT_TRUE(b.atHighWater());
  // One report may overshoot the ring: nothing is ever discarded.
  for (uint8_t i = 8; i < 25; ++i) b.push(readWithId(i));
  EXPECT_EQ(b.size(), 25u);
  ReaderTagData out;
  for (uint8_t i = 0; i < 21; ++i) {
    ASSERT_TRUE(b.pop(out));
    EXPECT_EQ(out.tagID[0], i);
  }
  EXPECT_FALSE(b.belowLowWater());  // 4 left
  ASSERT_TRUE(b.pop(out));
  EXPECT_EQ(out.tagID[0], 21);
  EXPECT_TRUE(b.belowLowWater());
  b.push(readWithId(25));
  EXPECT_EQ(b.clear(), 4u);
  EXPECT_TRUE(b.belowLowWater());
  EXPECT_FALSE(b.pop(out));
  EXPECT_EQ(b.popped(), 22u);
}

// A broken interrupt shows as a wait that lasts to its deadline: the receive thread would then
// sit out a whole wait at every stop.
TEST(TagBuffer, AWaitForRoomEndsWhenInterruptedOrDrained) {
  TagBuffer b(10);
  for (uint8_t i = 0; i < 9; ++i) b.push(readWithId(i));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  // Given before the wait, the interrupt is not lost.
  b.interruptWait();
  EXPECT_FALSE(b.waitForRoom(deadline));
  EXPECT_LT(std::chrono::steady_clock::now(), deadline);
  // Given during the wait, it wakes the waiter.
  bool roomAfterInterrupt = true;
  std::thread waiter([&] { roomAfterInterrupt = b.waitForRoom(deadline); });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  b.interruptWait();
  waiter.join();
  EXPECT_FALSE(roomAfterInterrupt);
  EXPECT_LT(std::chrono::steady_clock::now(), deadline);
  std::thread consumer([&] {
    ReaderTagData out;
    while (b.pop(out)) {
    }
  });
  EXPECT_TRUE(b.waitForRoom(deadline));
  consumer.join();
}

TEST(TagBuffer, ResizeClampsAndEmpties) {
  TagBuffer b(4);
  b.push(readWithId(1));
  EXPECT_EQ(b.resize(0), 1u);
  EXPECT_EQ(b.capacity(), 1u);
  EXPECT_EQ(b.size(), 0u);
  b.resize(TagBuffer::kMaxCapacity + 5);
  EXPECT_EQ(b.capacity(), TagBuffer::kMaxCapacity);
}

InventoryRequest requestWith(StartTriggerType start, StopTriggerType stop) {
  InventoryRequest r;
  r.roSpecId = 7;
  r.triggers.start.type = start;
  r.triggers.start.periodMs = 1500;
  r.triggers.start.gpiPort = 1;
  r.triggers.stop.type = stop;
  r.triggers.stop.durationMs = 5000;
  r.triggers.stop.gpiPort = 2;
  r.triggers.stop.tagCount = 100;
  r.triggers.stop.roundCount = 3;
  r.triggers.tagReportTrigger = 1;
  AntennaPlan a;
  a.antennaId = 2;
  a.transmitter = llrp::RFTransmitter{1, 0, 41};
  a.singulation.session = 2;
  r.antennas.push_back(a);
  return r;
}

// Start triggers are checked against the simulator (reader_session_test.cc), which starts only
// on the trigger it was given; the stop triggers' values are not all visible there.
TEST(RoSpecBuilder, StopTriggers) {
  bool needsStart;
  auto dur =
      buildRoSpec(requestWith(StartTriggerType::Immediate, StopTriggerType::Duration), needsStart);
  EXPECT_EQ(dur.roBoundarySpec.roSpecStopTrigger.roSpecStopTriggerType,
            llrp::ROSpecStopTriggerType::kDuration);
  EXPECT_EQ(dur.roBoundarySpec.roSpecStopTrigger.durationTriggerValue, 5000u);

  auto gpi =
      buildRoSpec(requestWith(StartTriggerType::Immediate, StopTriggerType::Gpi), needsStart);
  EXPECT_EQ(gpi.roBoundarySpec.roSpecStopTrigger.roSpecStopTriggerType,
            llrp::ROSpecStopTriggerType::kGPIWithTimeout);
  EXPECT_EQ(gpi.roBoundarySpec.roSpecStopTrigger.gpiTriggerValue->gpiPortNum, 2);

  auto tags =
      buildRoSpec(requestWith(StartTriggerType::Immediate, StopTriggerType::TagCount), needsStart);
  const auto& t = tags.aiSpecs[0].aiSpecStopTrigger;
  EXPECT_EQ(t.aiSpecStopTriggerType, llrp::AISpecStopTriggerType::kTagObservation);
  EXPECT_EQ(t.tagObservationTrigger->triggerType,
            llrp::TagObservationTriggerType::kUponSeeingNTagsOrTimeout);
  EXPECT_EQ(t.tagObservationTrigger->numberOfTags, 100);

  auto rounds = buildRoSpec(requestWith(StartTriggerType::Immediate, StopTriggerType::RoundCount),
                            needsStart);
  const auto& r = rounds.aiSpecs[0].aiSpecStopTrigger;
  EXPECT_EQ(r.tagObservationTrigger->triggerType,
            llrp::TagObservationTriggerType::kNAttemptsToSeeAllTagsInFOVOrTimeout);
  EXPECT_EQ(r.tagObservationTrigger->numberOfAttempts, 3);

  auto zero = requestWith(StartTriggerType::Immediate, StopTriggerType::Duration);
  zero.triggers.stop.durationMs = 0;  // "Delay:0" runs until stopped
  EXPECT_EQ(buildRoSpec(zero, needsStart).roBoundarySpec.roSpecStopTrigger.roSpecStopTriggerType,
            llrp::ROSpecStopTriggerType::kNull);
}

TEST(RoSpecBuilder, AntennaPowerSessionFiltersAndReportFields) {
  auto req = requestWith(StartTriggerType::Immediate, StopTriggerType::None);
  StoredPreFilter f;
  f.pattern = {0xE2, 0x80};
  f.patternBitCount = 16;
  f.bitOffset = 32;
  f.targetOrAction = 4;
  req.antennas[0].filters.push_back(f);
  req.tagFields = kDefaultTagFields | TAG_FIELD_CHANNEL_INDEX | TAG_FIELD_PHASE_INFO;
  req.triggers.hasValueBlock = true;
  req.triggers.valueBlock.value = 4;
  bool needsStart;
  auto roSpec = buildRoSpec(req, needsStart);
  ASSERT_EQ(roSpec.aiSpecs.size(), 1u);
  EXPECT_EQ(roSpec.aiSpecs[0].antennaIds, std::vector<uint16_t>{2});
  const auto& ac = roSpec.aiSpecs[0].inventoryParameterSpecs[0].antennaConfigurations[0];
  EXPECT_EQ(ac.rfTransmitter->transmitPower, 41);
  const auto& cmd = ac.inventoryCommands[0];
  EXPECT_EQ(cmd.singulationControl->session, 2);
  EXPECT_EQ(cmd.singulationControl->tagPopulation, 4);
  ASSERT_EQ(cmd.filters.size(), 1u);
  EXPECT_EQ(cmd.filters[0].tagInventoryMask.pointer, 32);
  EXPECT_EQ(cmd.filters[0].tagInventoryMask.tagMask.bitCount, 16);
  EXPECT_EQ(cmd.filters[0].stateUnawareAction->action,
            llrp::C1G2StateUnawareAction::kUnselectSelect);
  const auto& sel = roSpec.roReportSpec->tagReportContentSelector;
  EXPECT_EQ(roSpec.roReportSpec->n, 1);
  EXPECT_TRUE(sel.enableAntennaId && sel.enablePeakRSSI && sel.enableChannelIndex &&
              sel.enableTagSeenCount && sel.enableFirstSeenTimestamp);
  EXPECT_TRUE(sel.epcMemorySelectors.at(0).enablePCBits);
}

TEST(ErrorDescriptions, EveryStatusHasItsOwnText) {
  const uint32_t statuses[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 100, 101, 102, 103, 104, 105};
  std::set<std::wstring> texts;
  for (uint32_t s : statuses) {
    std::wstring t = RFID_GetErrorDescriptionW(s);
    EXPECT_NE(t, RFID_GetErrorDescriptionW(9999)) << s;
    texts.insert(t);
  }
  EXPECT_EQ(texts.size(), std::size(statuses));
}

TEST(Handles, UnknownHandlesFailWithoutTouchingTheReader) {
  ReaderTagData tag;
  EXPECT_EQ(RFID_GetReadTag(0, &tag), RFID_API_INVALID_HANDLE);
  EXPECT_EQ(RFID_StopInventory(12345), RFID_API_INVALID_HANDLE);
  EXPECT_EQ(RFID_AllocateTag(0), nullptr);
  ErrorInfo info;
  EXPECT_EQ(RFID_GetLastErrorInfoW(12345, &info), RFID_API_INVALID_HANDLE);
  ReaderHandle h = 99;
  EXPECT_EQ(RFID_ConnectW(&h, L"no host with blanks", 5084, 0, nullptr), RFID_HOST_UNRESOLVED);
  EXPECT_EQ(h, 0u);
}

}  // namespace
}  // namespace tessera::readerapi
