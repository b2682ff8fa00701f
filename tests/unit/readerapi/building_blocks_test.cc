// The library's parts checked without a reader: tag buffer episodes, the ROSpec built for each
// trigger kind, unknown handles, what the library makes of the reader's capabilities and tag
// reports, and which reads the post-filter lets through.
#include <gtest/gtest.h>

#include <thread>

#include "llrp/vendor_extension.h"
#include "readerapi/reader_caps.h"
#include "readerapi/rfid_api.h"
#include "readerapi/rospec_builder.h"
#include "readerapi/tag_buffer.h"
#include "readerapi/tag_report.h"

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

InventoryRequest requestWith(StopTriggerType stop) {
  InventoryRequest r;
  r.roSpecId = 7;
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
  using llrp::ROSpecStopTriggerType, llrp::TagObservationTriggerType;
  bool needsStart;
  auto built = [&](StopTriggerType type) { return buildRoSpec(requestWith(type), needsStart); };
  const auto dur = built(StopTriggerType::Duration).roBoundarySpec.roSpecStopTrigger;
  EXPECT_EQ(dur.roSpecStopTriggerType, ROSpecStopTriggerType::kDuration);
  EXPECT_EQ(dur.durationTriggerValue, 5000u);
  const auto gpi = built(StopTriggerType::Gpi).roBoundarySpec.roSpecStopTrigger;
  EXPECT_EQ(gpi.roSpecStopTriggerType, ROSpecStopTriggerType::kGPIWithTimeout);
  EXPECT_EQ(gpi.gpiTriggerValue->gpiPortNum, 2);
  const auto tags = built(StopTriggerType::TagCount).aiSpecs[0].aiSpecStopTrigger;
  EXPECT_EQ(tags.aiSpecStopTriggerType, llrp::AISpecStopTriggerType::kTagObservation);
  EXPECT_EQ(tags.tagObservationTrigger->triggerType,
            TagObservationTriggerType::kUponSeeingNTagsOrTimeout);
  EXPECT_EQ(tags.tagObservationTrigger->numberOfTags, 100);
  const auto rounds = built(StopTriggerType::RoundCount).aiSpecs[0].aiSpecStopTrigger;
  EXPECT_EQ(rounds.tagObservationTrigger->triggerType,
            TagObservationTriggerType::kNAttemptsToSeeAllTagsInFOVOrTimeout);
  EXPECT_EQ(rounds.tagObservationTrigger->numberOfAttempts, 3);
  auto zero = requestWith(StopTriggerType::Duration);
  zero.triggers.stop.durationMs = 0;  // "Delay:0" runs until stopped
  EXPECT_EQ(buildRoSpec(zero, needsStart).roBoundarySpec.roSpecStopTrigger.roSpecStopTriggerType,
            ROSpecStopTriggerType::kNull);
}

TEST(RoSpecBuilder, AntennaPowerSessionFiltersAndReportFields) {
  auto req = requestWith(StopTriggerType::None);
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
  EXPECT_EQ(roSpec.roSpecId, 7u);
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

TEST(Translation, CapabilityTablesAreCutToFitAndPowersNeverNegative) {
  llrp::GetReaderCapabilitiesResponse r;
  r.generalDeviceCapabilities.emplace().maxNumberOfAntennaSupported = 2;
  r.generalDeviceCapabilities->readerFirmwareVersion = "7.1.2";
  for (uint16_t i = 0; i < kMaxSensitivityLevels + 3; ++i)
    r.generalDeviceCapabilities->receiveSensitivityTable.push_back({i, static_cast<int16_t>(-i)});
  auto& uhf = r.regulatoryCapabilities.emplace().uhfBandCapabilities.emplace();
  uhf.transmitPowerLevels = {{1, 1000}, {2, -50}, {9, 3000}};
  uhf.frequencyInformation.hopTables.push_back({1, {902750, 903250, 903750}});
  const ReaderCaps caps = toReaderCaps(r);
  EXPECT_EQ(caps.numAntennas, 2);
  EXPECT_STREQ(caps.firmwareVersion, L"7.1.2");
  EXPECT_EQ(caps.numReceiveSensitivities, kMaxSensitivityLevels);
  ASSERT_EQ(caps.numTransmitPowerLevels, 3);
  EXPECT_EQ(caps.transmitPowerIndexes[2], 9);
  EXPECT_EQ(caps.transmitPowerLevels[1], 0);
  EXPECT_EQ(caps.transmitPowerLevels[2], 3000);
  EXPECT_EQ(caps.numChannels, 3);
  EXPECT_EQ(toReaderCaps({}).numAntennas, 0);  // a reader that tells nothing: zeros, no failure
}

TEST(Translation, ATagReportKeepsItsFieldsAndLeftOutOnesReadAsNotReported) {
  llrp::TagReportData r;
  r.epc = llrp::EPC96{{0xE2, 0x80, 0x11, 0x60, 0x60, 0, 0x02, 0, 0, 0, 0, 0x01}};
  r.antennaId = 3;
  r.peakRSSI = -48;
  r.c1g2PC = 0x3000;
  r.tagSeenCount = 5;
  r.lastSeenTimestampUTC = 1'700'000'000'987'000;
  r.firstSeenTimestampUTC = 1'700'000'000'123'000;              // wins over the last seen time
  r.customs.push_back({llrp::kVendorId + 1, 1, {0x12, 0x34}});  // another vendor's: ignored
  r.customs.push_back({llrp::kVendorId, static_cast<uint32_t>(llrp::VendorParameter::kPhase),
                       llrp::phaseData(-1234)});
  const ReaderTagData t = toReaderTagData(r, kMaxTagIdBytes, 0);
  ASSERT_EQ(t.tagIDLength, 12u);
  EXPECT_EQ(t.tagID[11], 0x01);
  EXPECT_EQ(t.antennaID, 3);
  EXPECT_EQ(t.peakRSSI, -48);
  EXPECT_EQ(t.channelIndex, kChannelNotReported);
  EXPECT_EQ(t.PC, 0x3000);
  EXPECT_EQ(t.tagSeenCount, 5);
  EXPECT_EQ(t.phase, -1234);
  EXPECT_EQ(t.seenTime.milliseconds, 123);

  // 20 bits: the last byte's 4 padding bits read as 0 whatever the reader sent there.
  r = llrp::TagReportData{};
  r.epc = llrp::EPCData{llrp::BitString{20, {0xAB, 0xCD, 0xEF}}};
  const ReaderTagData odd = toReaderTagData(r, kMaxTagIdBytes, 1'700'000'000'456'000);
  EXPECT_EQ(odd.tagID[2], 0xE0);
  EXPECT_EQ(odd.antennaID, kAntennaNotReported);
  EXPECT_EQ(odd.peakRSSI, kRssiNotReported);
  EXPECT_EQ(odd.PC, kPcNotReported);
  EXPECT_EQ(odd.tagSeenCount, 1);
  EXPECT_EQ(odd.seenTime.milliseconds, 456);           // no timestamp: the time it arrived
  const ReaderTagData cut = toReaderTagData(r, 2, 0);  // the storage setting cuts the EPC
  EXPECT_EQ(cut.tagIDLength, 2u);
  EXPECT_EQ(cut.tagID[1], 0xCD);
}

TEST(Translation, ThePostFilterMatchesEpcBitsAtTheOffsetAndTheRssiRange) {
  const std::vector<uint8_t> epc = {0xE2, 0x80, 0x30, 0x08};
  const PostFilterData any;
  const PostFilterData bits{{0x30, 0x08}, 12, 16};
  const PostFilterData rssi{{}, 0, 0, true, -60, -40};
  const struct {
    const PostFilterData& filter;
    uint16_t offset;
    int8_t rssi;
    bool passes;
  } cases[] = {{any, 0, -60, true},   {bits, 16, -60, true},
               {bits, 8, -60, false}, {bits, 24, -60, false},  // runs past the end of the EPC
               {rssi, 0, -60, true},  {rssi, 0, -40, true},
               {rssi, 0, -61, false}, {rssi, 0, -39, false}};
  for (const auto& c : cases) {
    PostFilterData f = c.filter;
    f.offset = c.offset;
    EXPECT_EQ(passesPostFilter(f, epc, c.rssi), c.passes) << c.offset << " " << int{c.rssi};
  }
}

}  // namespace
}  // namespace tessera::readerapi
