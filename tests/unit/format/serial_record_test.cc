#include "format/serial_record.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "format/crc16.h"
#include "format_test_support.h"

namespace tessera {
namespace {

std::string serialLine(const ReaderTagData& tag, TagMetaFlags flags) {
  char out[kTagRecordSize];
  TagView view = makeTagView(tag);
  size_t n = formatSerialRecord(out, tag, view, flags);
  EXPECT_EQ(n, std::strlen(out));
  return out;
}

// The CRC bit by bit, as the polynomial defines it.
uint16_t crcBitwise(const std::string& text) {
  if (text.empty()) return 0;
  unsigned crc = 0xFFFF;
  for (unsigned char b : text) {
    crc ^= static_cast<unsigned>(b) << 8;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x8000) ? ((crc << 1) ^ 0x1021) : (crc << 1);
    crc &= 0xFFFF;
  }
  return static_cast<uint16_t>(crc ^ 0xFFFF);
}

// The table-driven CRC against the bitwise definition over lengths 0 to 100; its text needs room.
TEST(SerialCrc, AgreesWithTheBitwiseDefinition) {
  std::string text;
  uint32_t seed = 12345;
  for (int length = 0; length <= 100; ++length) {
    EXPECT_EQ(crc16Genibus(text.data(), text.size()), crcBitwise(text)) << length;
    seed = seed * 1103515245u + 12345u;
    text += static_cast<char>(seed >> 16);
  }
  static_assert(crc16Genibus("123456789", 9) == 0xD64E);
  char check[32] = "123456789";
  ASSERT_EQ(appendSerialCrc(check, sizeof check), 0);
  EXPECT_STREQ(check, "123456789<d64e>");
  char empty[8] = "";
  ASSERT_EQ(appendSerialCrc(empty, sizeof empty), 0);
  EXPECT_STREQ(empty, "<0000>");
  char tight[16] = "123456789";  // no room for the seven bytes "<xxxx>" and its end
  EXPECT_EQ(appendSerialCrc(tight, 15), -1);
  EXPECT_STREQ(tight, "123456789");
  EXPECT_EQ(appendSerialCrc(tight, 16), 0);
}

TEST(SerialRecord, MatchesTheLiteral) {
  const struct {
    TagMetaFlags flags;
    void (*change)(ReaderTagData&);
    std::string expected;
  } rows[] = {
      // Default fields: EPC, PC, antenna and seen count; no RSSI value.
      {0, nullptr, "E2801160600002054CD6F1A4,3000,1,1,<d454>\r\n"},
      {64, [](ReaderTagData& t) { t.phase = -16384; }, "-90.00,<5187>\r\n"},
      {0, [](ReaderTagData& t) { t.PC = 0x0400; }, "E2801160600002054CD6F1A4,400,1,1,<c9b4>\r\n"},
      {0, [](ReaderTagData& t) { t.tagIDLength = 0; }, ",3000,1,1,<d001>\r\n"},
      {255,
       [](ReaderTagData& t) {
         t.peakRSSI = -55;
         t.tagSeenCount = 3;
         t.phase = 32767;
         t.channelIndex = 7;
       },
       "E2801160600002054CD6F1A4,3000,1,-55,3,16/11/2026 21:34:40:123,180.00,7,<d3e2>\r\n"},
      // Bits above the eight fields select nothing.
      {256 + 1 + 4, [](ReaderTagData& t) { t.tagIDLength = 4; }, "E2801160,1,<48b4>\r\n"},
      {512, nullptr, "<0000>\r\n"},
      // The time is the event's when the read is not a plain one.
      {32, [](ReaderTagData& t) { t.tagEvent = 2; }, "02/01/1999 03:04:05:006,<a3f9>\r\n"},
      // An EPC length past the field is clamped to it.
      {1,
       [](ReaderTagData& t) {
         for (uint8_t& b : t.tagID) b = 0xAA;
         t.tagIDLength = 100000;
       },
       std::string(2 * kMaxTagIdBytes, 'A') + ",<e8df>\r\n"},
  };
  for (const auto& row : rows) {
    ReaderTagData tag = test::sampleTag();
    if (row.change) row.change(tag);
    EXPECT_EQ(serialLine(tag, row.flags), row.expected);
  }
}

TEST(SerialAppenders, ReportWhatTheyWroteAndFailWhole) {
  char buffer[9];
  FixedText text(buffer, sizeof buffer);
  EXPECT_EQ(appendDecimalField(text, -62), 4);
  EXPECT_EQ(appendHexField(text, 0xABC), 4);  // "abc," leaves no room for more
  EXPECT_EQ(appendHexField(text, 0x1), -1);
  EXPECT_EQ(appendPhaseField(text, 0), -1);
  EXPECT_STREQ(text.c_str(), "-62,abc,");
  char small[12];
  FixedText date(small, sizeof small);
  EXPECT_EQ(appendDateTimeField(date, ReaderDateTime{2026, 1, 0, 5, 0, 0, 0, 0}), -1);
  EXPECT_STREQ(date.c_str(), "");
  EXPECT_EQ(appendTextField(date, "E280", 4), 5);
  EXPECT_STREQ(date.c_str(), "E280,");
}

// Every raw phase prints exactly as "%3.2f" of raw * 180 / 32767 does.
TEST(PhaseText, MatchesPrintfForEveryRawValue) {
  int mismatches = 0;
  for (int raw = -32768; raw <= 32767; ++raw) {
    double degrees = phaseDegrees(static_cast<int16_t>(raw));
    char expected[32];
    std::snprintf(expected, sizeof expected, "%3.2f", degrees);
    char buffer[32];
    FixedText text(buffer, sizeof buffer);
    ASSERT_GT(text.appendFixed2(degrees), 0);
    if (std::strcmp(expected, text.c_str()) != 0 && ++mismatches < 5) {
      ADD_FAILURE() << "raw " << raw << ": " << text.c_str() << " != " << expected;
    }
  }
  EXPECT_EQ(mismatches, 0);
}

}  // namespace
}  // namespace tessera
