// The framer over TCP-like chunkings, and the one-line rendering of messages.
#include "llrp/framer.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "llrp/describe.h"
#include "llrp/random_records.h"

namespace tessera::llrp {
namespace {

std::vector<uint8_t> frameOf(const Message& m) {
  std::vector<uint8_t> out;
  EXPECT_TRUE(encode(m, out).ok());
  return out;
}

TEST(LlrpFramer, ReassemblesFramesFromRandomChunks) {
  testing::RandomRecords gen(11);
  std::vector<std::vector<uint8_t>> frames;
  std::vector<uint8_t> stream;
  for (int i = 0; i < 200; ++i) {
    frames.push_back(frameOf(gen.message(static_cast<size_t>(i) % testing::RandomRecords::kKinds)));
    stream.insert(stream.end(), frames.back().begin(), frames.back().end());
  }
  std::mt19937 rng(3);
  for (int round = 0; round < 20; ++round) {
    Framer framer;
    std::vector<std::vector<uint8_t>> got;
    std::vector<uint8_t> frame;
    size_t at = 0;
    while (at < stream.size()) {
      // Chunks of 1 byte up to a few frames, as a socket may deliver them.
      const size_t n = std::min(stream.size() - at, size_t{1} + rng() % (round % 2 ? 7 : 900));
      ASSERT_EQ(framer.feed(std::span(stream).subspan(at, n)), 0);
      at += n;
      int r;
      while ((r = framer.pop(frame)) == 1) got.push_back(frame);
      ASSERT_EQ(r, 0);
    }
    EXPECT_EQ(got, frames);
    EXPECT_EQ(framer.buffered(), 0u);
  }
}

TEST(LlrpFramer, BrokenHeadersStopTheStream) {
  const std::vector<uint8_t> ok = frameOf(Message{1, KeepaliveAck{}});
  ROAccessReport report;
  report.tagReportData.resize(4);
  const struct {
    std::vector<uint8_t> broken;  // the frame after a good one
    uint32_t limit;
    ErrorCode code;
  } cases[] = {
      {{0x04, 0x3E, 0, 0, 0, 4, 0, 0, 0, 1}, kMaxFrameSize, ErrorCode::kBadLength},
      {{0x04, 0x3D, 0x01, 0x00, 0x00, 0x01, 0, 0, 0, 1}, kMaxFrameSize, ErrorCode::kFrameTooLarge},
      {frameOf(Message{1, report}), 64, ErrorCode::kFrameTooLarge},  // a smaller limit holds
  };
  for (const auto& c : cases) {
    Framer framer(c.limit);
    std::vector<uint8_t> frame;
    ASSERT_EQ(framer.feed(ok), 0);
    ASSERT_EQ(framer.feed(c.broken), 0);
    EXPECT_EQ(framer.pop(frame), 1) << "the good frame before the broken one still comes out";
    EXPECT_EQ(framer.pop(frame), static_cast<int>(c.code));
    EXPECT_EQ(framer.error().code, c.code);
    EXPECT_EQ(framer.error().offset, 12u) << "offset counts from the start of the stream";
    EXPECT_EQ(framer.feed(ok), static_cast<int>(c.code)) << "the error sticks";
    EXPECT_EQ(framer.pop(frame), static_cast<int>(c.code));
    framer.reset();
    ASSERT_EQ(framer.feed(ok), 0);
    EXPECT_EQ(framer.pop(frame), 1) << "reset starts a new stream";
  }
}

// The rendering is for the simulator's log: one line whatever a text holds, long lists cut short.
TEST(LlrpDescribe, RendersOneLinePerMessage) {
  TagReportData tag;
  tag.epc = EPC96{{0x30, 0x08, 0x33, 0xB2, 0xDD, 0xD9, 0x01, 0x40, 0, 0, 0, 1}};
  tag.peakRSSI = -52;
  ROAccessReport report;
  report.tagReportData.assign(6, tag);
  LLRPStatus bad;
  bad.statusCode = StatusCode::kMUnsupportedVersion;
  bad.errorDescription = "version \"2\"\n";
  const std::pair<Message, const char*> cases[] = {
      {Message{5, Keepalive{}}, "KEEPALIVE id=5"},
      {Message{6, ErrorMessage{bad}},
       "ERROR_MESSAGE id=6 LLRPStatus(StatusCode=M_UnsupportedVersion "
       "ErrorDescription=\"version \\\"2\\\"\\x0a\")"},
      {Message{7, report},
       "RO_ACCESS_REPORT id=7"
       " TagReportData(EPC_96=300833B2DDD9014000000001 PeakRSSI=-52)"
       " TagReportData(EPC_96=300833B2DDD9014000000001 PeakRSSI=-52)"
       " TagReportData(EPC_96=300833B2DDD9014000000001 PeakRSSI=-52)"
       " TagReportData(EPC_96=300833B2DDD9014000000001 PeakRSSI=-52) ... 2 more"},
      {Message{8, CustomMessage{32473, 21, {0xCA, 0xFE}}},
       "CUSTOM_MESSAGE id=8 VendorIdentifier=32473 MessageSubtype=21 Data=CAFE"},
  };
  for (const auto& [message, line] : cases) EXPECT_EQ(describe(message), line);
}

}  // namespace
}  // namespace tessera::llrp
