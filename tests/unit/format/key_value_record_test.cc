#include "format/key_value_record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "format_test_support.h"

namespace tessera {
namespace {

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
  ReaderTagData tag = test::sampleTag();
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
  ReaderTagData tag = test::sampleTag();
  DataFormatConfig f = formatOf("Comma", "CRLF");
  std::memset(f.DataPrefix, 'p', sizeof f.DataPrefix - 1);
  std::memset(f.DataSuffix, 's', sizeof f.DataSuffix - 1);
  std::string line = record(tag, 255, f);
  EXPECT_EQ(line.substr(0, 127), std::string(127, 'p'));
  EXPECT_EQ(line.substr(line.size() - 129), std::string(127, 's') + "\r\n");
}

}  // namespace
}  // namespace tessera
