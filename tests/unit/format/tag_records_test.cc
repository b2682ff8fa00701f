// The three tag record formats (serial line, key=value, JSON) of one sample read.
#include <gtest/gtest.h>
#include <time.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "format/crc16.h"
#include "format/json_record.h"
#include "format/key_value_record.h"
#include "format/serial_record.h"
#include "json_check.h"

namespace tessera {
namespace {

// The read of every test here: EPC E2801160600002054CD6F1A4, PC 0x3000, antenna 1,
// seen once, a plain read (its time is the seen time) on 16 November 2026 21:34:40.123.
ReaderTagData sampleTag() {
  ReaderTagData tag;
  const uint8_t epc[] = {0xE2, 0x80, 0x11, 0x60, 0x60, 0x00, 0x02, 0x05, 0x4C, 0xD6, 0xF1, 0xA4};
  std::memcpy(tag.tagID, epc, sizeof epc);
  tag.tagIDLength = sizeof epc;
  tag.PC = 0x3000;
  tag.antennaID = 1;
  tag.tagSeenCount = 1;
  tag.tagEvent = kTagEventSeen;
  tag.seenTime = ReaderDateTime{2026, 11, 1, 16, 21, 34, 40, 123};
  tag.tagEventTime = ReaderDateTime{1999, 1, 5, 2, 3, 4, 5, 6};
  return tag;
}

std::string serialLine(const ReaderTagData& tag, TagMetaFlags flags) {
  char out[kTagRecordSize];
  size_t n = formatSerialRecord(out, tag, makeTagView(tag), flags);
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
    ReaderTagData tag = sampleTag();
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

DataFormatConfig formatOf(const char* delimiter, const char* ending, const char* stamp = "UTC",
                          const char* prefix = "", const char* suffix = "") {
  DataFormatConfig f;
  std::strcpy(f.Delimiter, delimiter);
  std::strcpy(f.LineEnding, ending);
  std::strcpy(f.TimestampFormat, stamp);
  std::strcpy(f.DataPrefix, prefix);
  std::strcpy(f.DataSuffix, suffix);
  return f;
}

std::string record(const ReaderTagData& tag, TagMetaFlags flags, const DataFormatConfig& format) {
  char out[kTagRecordSize];
  size_t n = formatKeyValueRecord(out, tag, makeTagView(tag), flags, format);
  EXPECT_EQ(n, std::strlen(out));
  return out;
}

TEST(KeyValueRecord, MatchesTheLiteral) {
  ReaderTagData tag = sampleTag();
  tag.peakRSSI = -55;
  tag.phase = -32767;
  tag.channelIndex = 12;
  tag.PC = 0x0400;
  const struct {
    TagMetaFlags flags;
    DataFormatConfig format;
    const char* expected;
  } rows[] = {
      // The EPC alone has no label; an unknown delimiter is a comma.
      {1, formatOf("Comma", "CRLF"), "E2801160600002054CD6F1A4\r\n"},
      {13, formatOf("Tab", "LF"), "epc=E2801160600002054CD6F1A4\tantennaPort=1\tpeakRssi=-55\t\n"},
      {6, formatOf("Pipe", "CR"), "pc=400,antennaPort=1,\r"},
      {3, formatOf("Space", "None"), "epc=E2801160600002054CD6F1A4 pc=400 "},
      {32, formatOf("Comma", "CRLF"), "timeStamp=16/11/2026 21:34:40:123,\r\n"},
      {32, formatOf("Comma", "CRLF", "Unix"), "timeStamp=63963466480,\r\n"},
      {255, formatOf("Comma", "CRLF", "UTC", "<", ">"),
       "<epc=E2801160600002054CD6F1A4,pc=400,antennaPort=1,peakRssi=-55,seenCount=1,"
       "timeStamp=16/11/2026 21:34:40:123,phase=-180.00,channelIndex=12,>\r\n"},
      {16, formatOf("Comma", "None", "UTC", "", "END"), "seenCount=1,END"},
      // An unknown line ending drops the suffix with it.
      {16, formatOf("Comma", "crlf", "UTC", "", "END"), "seenCount=1,"},
      {64, formatOf("Comma", "LF", "UTC", "R1:"), "R1:phase=-180.00,\n"},
      {0, formatOf("Comma", "CRLF", "UTC", "P", "S"), "PS\r\n"},
      {0, formatOf("Comma", "LF"), "\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(record(tag, row.flags, row.format), row.expected);
}

// The sample read's 63963466480 is checked in KeyValueRecord.MatchesTheLiteral.
TEST(KeyValueSeconds, CountsContinuouslyAcrossYearEnds) {
  EXPECT_EQ(keyValueSeconds(ReaderDateTime{2023, 12, 0, 31, 23, 59, 59, 999}), 63872668799);
  EXPECT_EQ(keyValueSeconds(ReaderDateTime{2024, 1, 0, 1, 0, 0, 0, 0}), 63872668800);
  EXPECT_EQ(keyValueSeconds(ReaderDateTime{2024, 2, 0, 29, 12, 0, 0, 0}), 63877809600);
  EXPECT_EQ(keyValueSeconds(ReaderDateTime{2024, 3, 0, 1, 0, 0, 0, 0}), 63877852800);
  // A month the reader never sends stays inside the table.
  EXPECT_EQ(keyValueSeconds(ReaderDateTime{2024, 0, 0, 1, 0, 0, 0, 0}),
            keyValueSeconds(ReaderDateTime{2024, 1, 0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(keyValueSeconds(ReaderDateTime{2024, 99, 0, 1, 0, 0, 0, 0}),
            keyValueSeconds(ReaderDateTime{2024, 12, 0, 1, 0, 0, 0, 0}));
}

TEST(KeyValueRecordBounds, FullPrefixAndSuffixFit) {
  ReaderTagData tag = sampleTag();
  DataFormatConfig f = formatOf("Comma", "CRLF");
  std::memset(f.DataPrefix, 'p', sizeof f.DataPrefix - 1);
  std::memset(f.DataSuffix, 's', sizeof f.DataSuffix - 1);
  std::string line = record(tag, 255, f);
  EXPECT_EQ(line.substr(0, 127), std::string(127, 'p'));
  EXPECT_EQ(line.substr(line.size() - 129), std::string(127, 's') + "\r\n");
}

std::string object(const ReaderTagData& tag, TagMetaFlags flags, bool heartbeat) {
  char out[kTagRecordSize];
  size_t n = formatJsonTagRecord(out, tag, makeTagView(tag), flags, heartbeat);
  EXPECT_EQ(n, std::strlen(out));
  return out;
}

// A report as the relay worker closes it: the objects' last "," replaced by "]}".
std::string report(std::string batch) {
  if (batch.back() == ',') batch.pop_back();
  return batch + "]}";
}

TEST(JsonTagObject, MatchesTheLiteralAndParses) {
  ReaderTagData tag = sampleTag();
  tag.peakRSSI = -60;
  tag.phase = 16384;
  tag.channelIndex = 3;
  const struct {
    TagMetaFlags flags;
    bool heartbeat;
    const char* expected;
  } rows[] = {
      {5, false, R"({"epc":"E2801160600002054CD6F1A4","antennaPort":"1"},)"},
      {5, true, R"({"epc":"E2801160600002054CD6F1A4","antennaPort":"1","isHeartBeat":"false"},)"},
      {8, false, R"({"peakRssi":"-60"},)"},  // a negative RSSI is quoted text too
      {255, false,
       R"({"epc":"E2801160600002054CD6F1A4","pc":"3000","antennaPort":"1","peakRssi":"-60",)"
       R"("seenCount":"1","timeStamp":"16/11/2026 21:34:40:123","phase":"90.00","channelIndex":"3"},)"},
      {0, false, "{},"},
      {256, true, R"({"isHeartBeat":"false"},)"}};
  for (const auto& row : rows) {
    std::string text = object(tag, row.flags, row.heartbeat);
    EXPECT_EQ(text, row.expected);
    EXPECT_TRUE(test::JsonCheck::valid(text.substr(0, text.size() - 1))) << text;
  }
  // The time follows the event, whatever the timestamp format.
  tag.tagEvent = 1;
  EXPECT_EQ(object(tag, 32, false), R"({"timeStamp":"02/01/1999 03:04:05:006"},)");
  tag.tagIDLength = 0;
  EXPECT_EQ(object(tag, 1, false), R"({"epc":""},)");
}

TEST(Heartbeat, FieldsAreZeroAndTheTimeIsLocal) {
  std::tm local{};
  ASSERT_NE(strptime("2027-01-05 07:08:09", "%Y-%m-%d %H:%M:%S", &local), nullptr);
  std::string record = "stale";
  buildHeartbeatRecord(record, 5, local, 42);
  EXPECT_EQ(record, R"({"epc":"********","antennaPort":"0","isHeartBeat":"true"},)");
  buildHeartbeatRecord(record, 255, local, 42);
  EXPECT_EQ(
      record,
      R"({"epc":"********","pc":"0","antennaPort":"0","peakRssi":"0","seenCount":"0",)"
      R"("timeStamp":"05/01/2027 07:08:09:042","phase":"0","channelIndex":"0","isHeartBeat":"true"},)");
  buildHeartbeatRecord(record, 0);  // from the clock
  EXPECT_EQ(record, R"({"isHeartBeat":"true"},)");
  buildHeartbeatRecord(record, 32);
  EXPECT_EQ(record.size(),
            std::strlen(R"({"timeStamp":"dd/mm/yyyy hh:mm:ss:mmm","isHeartBeat":"true"},)"));
}

TEST(Envelope, OpeningPerModeWithTheNameEscaped) {
  auto opening = [](int32_t mode, const char* name, const char* mac) {
    std::string batch;
    openJsonEnvelope(batch, mode, name, mac);
    EXPECT_TRUE(test::JsonCheck::valid(report(batch))) << batch;
    return batch;
  };
  EXPECT_EQ(opening(1, "Dock Door 1", "00:11:22:AA:BB:CC"),
            R"({"reader_name":"Dock Door 1", "mac_address":"00:11:22:AA:BB:CC", "tag_reads":[)");
  EXPECT_EQ(opening(3, "ignored", "00:11:22:AA:BB:CC"),
            R"({"mac_address":"00:11:22:AA:BB:CC", "tag_reads":[)");
  EXPECT_EQ(opening(1, "", nullptr), R"({"reader_name":"", "mac_address":"", "tag_reads":[)");
  EXPECT_EQ(opening(4, "Say \"hi\" \\ \t\x01 caf\xC3\xA9 \xFF end", "m"),
            "{\"reader_name\":\"Say \\\"hi\\\" \\\\ \\u0009\\u0001 caf\xC3\xA9 \xEF\xBF\xBD end\", "
            "\"mac_address\":\"m\", \"tag_reads\":[");
}

TEST(JsonCheckSelf, RejectsBrokenTexts) {
  for (const char* bad : {"{", "{\"a\":}", "[1,]", "\"\x01\"", "{\"a\":\"\xC3\"}", "01", "{} x"}) {
    EXPECT_FALSE(test::JsonCheck::valid(bad)) << bad;
  }
  EXPECT_TRUE(test::JsonCheck::valid(R"( {"a":[1,-2.5e3,true,null,"\u00e9"]} )"));
}

}  // namespace
}  // namespace tessera
