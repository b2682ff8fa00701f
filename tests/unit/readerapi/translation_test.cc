// What the library makes of the reader's capabilities and tag reports, and which reads the
// post-filter lets through: pure translations, checked without a reader.
#include <gtest/gtest.h>

#include "llrp/vendor_extension.h"
#include "readerapi/reader_caps.h"
#include "readerapi/tag_report.h"

namespace tessera::readerapi {
namespace {

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
