// Properties over generated records: every message kind survives encode/decode unchanged, and
// no cut or corrupted frame makes the decoder do more than return an error.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

#include "llrp/codec.h"
#include "llrp/describe.h"
#include "llrp/llrp_generate.h"

namespace tessera::llrp {
namespace {

using testing::Generator;

TEST(LlrpRoundTrip, EveryMessageKindDecodesToTheRecordItWasEncodedFrom) {
  Generator gen(20240611);
  std::vector<int> seen(Generator::kKinds, 0);
  for (int i = 0; i < 6000; ++i) {
    const size_t kind = static_cast<size_t>(i) % Generator::kKinds;
    const Message m = gen.message(kind);
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
    ++seen[back.body.index()];
  }
  for (size_t k = 0; k < seen.size(); ++k) EXPECT_GT(seen[k], 0) << "kind " << k;
}

TEST(LlrpRoundTrip, EncodeAppendsFramesBackToBack) {
  Generator gen(7);
  std::vector<uint8_t> stream;
  std::vector<Message> sent;
  for (size_t k = 0; k < Generator::kKinds; ++k) {
    sent.push_back(gen.message(k));
    ASSERT_TRUE(encode(sent.back(), stream).ok());
  }
  size_t at = 0;
  for (const Message& m : sent) {
    FrameHeader h;
    ASSERT_TRUE(decodeHeader(std::span(stream).subspan(at), h).ok());
    Message back;
    ASSERT_TRUE(decode(std::span(stream).subspan(at, h.length), back).ok());
    EXPECT_EQ(back, m);
    at += h.length;
  }
  EXPECT_EQ(at, stream.size());
}

TEST(LlrpTruncation, EveryPrefixOfAValidFrameIsAnError) {
  Generator gen(99);
  for (int i = 0; i < 300; ++i) {
    const Message m = gen.message(static_cast<size_t>(i) % Generator::kKinds);
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(encode(m, bytes).ok());
    for (size_t n = 0; n < bytes.size(); ++n) {
      // A copy of exactly n bytes, so that the sanitizers see any read past them.
      std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
      Message out;
      Error e = decode(cut, out);
      ASSERT_EQ(e.code, ErrorCode::kTruncated) << n << " of " << bytes.size();
    }
  }
}

TEST(LlrpTruncation, CutFramesWithAMatchingLengthNeverOverRead) {
  // The header is patched to the cut length, so the decoder believes the frame and has to
  // catch every parameter that now runs past the end. Some cuts fall on a parameter boundary
  // and decode; the rest must fail cleanly.
  Generator gen(4242);
  int failures = 0;
  for (int i = 0; i < 300; ++i) {
    const Message m = gen.message(static_cast<size_t>(i) % Generator::kKinds);
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(encode(m, bytes).ok());
    for (size_t n = kHeaderSize; n < bytes.size(); ++n) {
      std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
      cut[2] = static_cast<uint8_t>(n >> 24);
      cut[3] = static_cast<uint8_t>(n >> 16);
      cut[4] = static_cast<uint8_t>(n >> 8);
      cut[5] = static_cast<uint8_t>(n);
      Message out;
      Error e = decode(cut, out);
      if (!e.ok()) {
        ++failures;
        EXPECT_LE(e.offset, n) << e.text();
      }
    }
  }
  EXPECT_GT(failures, 0);
}

TEST(LlrpTruncation, RandomByteFlipsNeverCrash) {
  Generator gen(5);
  std::mt19937 rng(5);
  int decodedAgain = 0;
  for (int i = 0; i < 3000; ++i) {
    const Message m = gen.message(static_cast<size_t>(i) % Generator::kKinds);
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(encode(m, bytes).ok());
    // Keep the header intact so the flips land in parameters.
    const size_t at = kHeaderSize + rng() % std::max<size_t>(1, bytes.size() - kHeaderSize);
    if (at >= bytes.size()) continue;
    bytes[at] ^= static_cast<uint8_t>(1u << (rng() % 8));
    Message out;
    if (decode(bytes, out).ok()) {
      // Whatever decodes must encode and decode to the same record.
      std::vector<uint8_t> again;
      ASSERT_TRUE(encode(out, again).ok());
      Message back;
      ASSERT_TRUE(decode(again, back).ok());
      ASSERT_EQ(back, out);
      ++decodedAgain;
    }
  }
  EXPECT_GT(decodedAgain, 0);
}

// Writes one frame per message kind into $TESSERA_WRITE_CORPUS, the libFuzzer seed corpus
// (fuzz/corpus/llrp_decode). Does nothing when the variable is not set.
TEST(LlrpCorpus, WritesSeedFramesWhenAsked) {
  const char* dir = std::getenv("TESSERA_WRITE_CORPUS");
  if (dir == nullptr) GTEST_SKIP() << "TESSERA_WRITE_CORPUS not set";
  Generator gen(1);
  for (size_t k = 0; k < Generator::kKinds; ++k) {
    const Message m = gen.message(k);
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(encode(m, bytes).ok());
    std::string name = std::string(dir) + "/" + messageName(messageType(m.body)) + ".bin";
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
}

}  // namespace
}  // namespace tessera::llrp

namespace tessera::llrp {
namespace {

TEST(LlrpRoundTrip, DecodingIntoAUsedMessageGivesTheSameRecordAsAFreshOne) {
  // Reports reuse the buffers of the previous report held by the Message; nothing of the
  // previous report may leak into the next one.
  testing::Generator gen(31337);
  const size_t reportKind = MessageBody(ROAccessReport{}).index();
  Message reused;
  for (int i = 0; i < 400; ++i) {
    // Mostly reports, sometimes another kind in between.
    const Message m =
        gen.message(i % 5 == 4 ? static_cast<size_t>(i) % testing::Generator::kKinds : reportKind);
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(encode(m, bytes).ok());
    Message fresh;
    ASSERT_TRUE(decode(bytes, fresh).ok());
    ASSERT_TRUE(decode(bytes, reused).ok());
    ASSERT_EQ(reused, fresh) << describe(fresh);
  }
}

}  // namespace
}  // namespace tessera::llrp
