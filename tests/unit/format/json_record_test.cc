#include "format/json_record.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cstring>
#include <string>

#include "format_test_support.h"
#include "json_check.h"

namespace tessera {
namespace {

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
  ReaderTagData tag = test::sampleTag();
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
