// Round trips over real frames (the fuzz seed corpora) and over random messages of every kind:
// whatever decodes encodes back to the same bytes, and a frame cut short fails cleanly.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <system_error>

#include "llrp/codec.h"
#include "llrp/describe.h"
#include "llrp/framer.h"
#include "llrp/random_records.h"

namespace tessera::llrp {
namespace {

using testing::RandomRecords;
namespace fs = std::filesystem;

std::vector<uint8_t> readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The frames of both seed corpora: one frame per file for the decoder's, the frames of each
// stream (after its chunk-size byte) for the framer's.
std::vector<std::vector<uint8_t>> corpusFrames() {
  const fs::path root = fs::path(TESSERA_TEST_SOURCE_DIR) / "fuzz" / "corpus";
  std::vector<std::vector<uint8_t>> frames;
  std::error_code missing;  // a corpus that is not there adds no frame
  for (const auto& entry : fs::directory_iterator(root / "llrp_decode", missing))
    frames.push_back(readFile(entry.path()));
  for (const auto& entry : fs::directory_iterator(root / "llrp_framer", missing)) {
    const std::vector<uint8_t> stream = readFile(entry.path());
    Framer framer;
    std::vector<uint8_t> frame;
    if (stream.empty() || framer.feed(std::span(stream).subspan(1)) < 0) continue;
    while (framer.pop(frame) == 1) frames.push_back(frame);
  }
  return frames;
}

TEST(LlrpCorpus, EveryFrameReEncodesToItsOwnBytesAndEveryCutFailsInside) {
  const auto frames = corpusFrames();
  if (frames.empty()) GTEST_SKIP() << "no seed corpus under fuzz/corpus";
  std::set<size_t> kinds;
  int cutFailures = 0;
  Message reused;
  for (const auto& bytes : frames) {
    Message m;
    Error e = decode(bytes, m);
    if (!e.ok()) {
      EXPECT_LE(e.offset, bytes.size()) << e.text();
      continue;
    }
    kinds.insert(m.body.index());
    std::vector<uint8_t> again;
    ASSERT_TRUE(encode(m, again).ok()) << describe(m);
    EXPECT_EQ(again, bytes) << "nothing of the frame is lost or reordered: " << describe(m);
    ASSERT_TRUE(decode(bytes, reused).ok());
    EXPECT_EQ(reused, m) << "a Message decoded into before holds nothing of its last frame";
    // The length patched to the cut, so that the decoder believes the frame and has to catch
    // every parameter that now runs past its end (the copy lets the sanitizers see over-reads).
    for (size_t n = kHeaderSize; n < bytes.size(); ++n) {
      std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
      for (int i = 0; i < 4; ++i) cut[2 + i] = static_cast<uint8_t>(n >> (24 - 8 * i));
      Message out;
      Error c = decode(cut, out);
      if (!c.ok()) {
        ++cutFailures;
        EXPECT_LE(c.offset, n) << c.text();
      }
    }
  }
  EXPECT_EQ(kinds.size(), RandomRecords::kKinds) << "the corpus holds a frame of every message";
  EXPECT_GT(cutFailures, 0);
}

TEST(LlrpRoundTrip, RandomMessagesOfEveryKindSurviveEncodeAndDecode) {
  RandomRecords random(20240611);
  const size_t reportKind = MessageBody(ROAccessReport{}).index();
  Message reused;
  for (int i = 0; i < 8000; ++i) {
    // Every kind in turn, and a report between two of them, so that the reused Message goes
    // from report to report and from kind to kind.
    const size_t kind = i % 2 ? reportKind : static_cast<size_t>(i / 2) % RandomRecords::kKinds;
    const Message m = random.message(kind);
    std::vector<uint8_t> bytes;
    Error e = encode(m, bytes);
    ASSERT_TRUE(e.ok()) << e.text() << " kind " << kind;
    Message back;
    e = decode(bytes, back);
    ASSERT_TRUE(e.ok()) << e.text() << " in " << describe(m);
    ASSERT_EQ(back, m) << describe(m) << "\n" << describe(back);
    std::vector<uint8_t> again;
    ASSERT_TRUE(encode(back, again).ok());
    ASSERT_EQ(again, bytes) << "the encoding is canonical";
    ASSERT_TRUE(decode(bytes, reused).ok());
    ASSERT_EQ(reused, m) << "a Message decoded into before holds nothing of its last frame";
    ASSERT_EQ(describe(m).find('\n'), std::string::npos) << "one log line: " << describe(m);
  }
}

}  // namespace
}  // namespace tessera::llrp
