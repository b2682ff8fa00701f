// bench/llrp_bench.cc — cost of the LLRP codec on the reader's hottest message: an
// RO_ACCESS_REPORT of 100 TagReportData as a reader sends them when every field is enabled.
//
// Besides the Google Benchmark cases, two modes serve bench/llrp_vs_llrpjs.sh:
//   bench_llrp --dump FILE [--frames N] [--no-custom]
//                                          writes a READER_EVENT_NOTIFICATION (connection
//                                          success) and N such reports as one byte stream,
//                                          without the Custom parameter if asked
//   bench_llrp --tcp PORT [--frames N]     connects to 127.0.0.1:PORT, reads that stream
//                                          (acknowledging each report), frames and decodes
//                                          it, prints "ns_per_tag <x>"
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "llrp/llrp.h"

namespace {

using namespace tessera::llrp;

constexpr int kTagsPerReport = 100;

// A report as a reader fills it with every content selector bit on, plus one vendor Custom
// parameter (a phase reading, as readers add it).
ROAccessReport makeReport(uint32_t seed, bool custom = true) {
  ROAccessReport report;
  report.tagReportData.reserve(kTagsPerReport);
  const uint64_t now = 1'700'000'000'000'000ull + seed * 1000ull;
  for (int i = 0; i < kTagsPerReport; ++i) {
    TagReportData t;
    EPC96 epc;
    const uint32_t serial = seed * kTagsPerReport + static_cast<uint32_t>(i);
    const uint8_t head[8] = {0x30, 0x08, 0x33, 0xB2, 0xDD, 0xD9, 0x01, 0x40};
    std::memcpy(epc.epc.data(), head, 8);
    epc.epc[8] = static_cast<uint8_t>(serial >> 24);
    epc.epc[9] = static_cast<uint8_t>(serial >> 16);
    epc.epc[10] = static_cast<uint8_t>(serial >> 8);
    epc.epc[11] = static_cast<uint8_t>(serial);
    t.epc = epc;
    t.antennaId = static_cast<uint16_t>(1 + i % 4);
    t.peakRSSI = static_cast<int8_t>(-40 - i % 30);
    t.channelIndex = static_cast<uint16_t>(1 + i % 50);
    t.firstSeenTimestampUTC = now + static_cast<uint64_t>(i) * 150;
    t.lastSeenTimestampUTC = now + static_cast<uint64_t>(i) * 150 + 90'000;
    t.tagSeenCount = static_cast<uint16_t>(1 + i % 7);
    t.c1g2PC = 0x3000;
    if (custom) t.customs.push_back(Custom{32473, 56, {static_cast<uint8_t>(i), 0x2A}});
    report.tagReportData.push_back(std::move(t));
  }
  return report;
}

std::vector<uint8_t> reportFrame(uint32_t seed, bool custom = true) {
  std::vector<uint8_t> out;
  if (!encode(Message{seed, makeReport(seed, custom)}, out).ok()) std::abort();
  return out;
}

void perTag(benchmark::State& state) {
  const double tags = static_cast<double>(state.iterations()) * kTagsPerReport;
  state.SetItemsProcessed(static_cast<int64_t>(tags));
  // CPU time per tag, printed with its unit (e.g. "98.8ns").
  state.counters["time_per_tag"] =
      benchmark::Counter(tags, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Arg custom: 1 with the vendor Custom parameter in every tag report, 0 without.
void BM_DecodeROAccessReport100(benchmark::State& state) {
  const std::vector<uint8_t> frame = reportFrame(1, state.range(0) != 0);
  Message message;
  for (auto _ : state) {
    Error e = decode(frame, message);
    if (!e.ok()) state.SkipWithError(e.text().c_str());
    benchmark::DoNotOptimize(message);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * frame.size()));
  perTag(state);
}
BENCHMARK(BM_DecodeROAccessReport100)->ArgName("custom")->Arg(1)->Arg(0);

void BM_EncodeROAccessReport100(benchmark::State& state) {
  const Message message{1, makeReport(1)};
  std::vector<uint8_t> out;
  for (auto _ : state) {
    out.clear();
    Error e = encode(message, out);
    if (!e.ok()) state.SkipWithError(e.text().c_str());
    benchmark::DoNotOptimize(out.data());
  }
  perTag(state);
}
BENCHMARK(BM_EncodeROAccessReport100);

// The receive path as a client runs it: TCP-sized chunks into the framer, then decode.
void BM_FrameAndDecodeStream(benchmark::State& state) {
  std::vector<uint8_t> stream;
  for (uint32_t i = 0; i < 10; ++i) {
    const auto f = reportFrame(i);
    stream.insert(stream.end(), f.begin(), f.end());
  }
  Framer framer;
  std::vector<uint8_t> frame;
  Message message;
  for (auto _ : state) {
    for (size_t at = 0; at < stream.size(); at += 1448) {
      const size_t n = std::min<size_t>(1448, stream.size() - at);
      if (framer.feed(std::span(stream).subspan(at, n)) != 0) state.SkipWithError("feed");
      while (framer.pop(frame) == 1) {
        if (!decode(frame, message).ok()) state.SkipWithError("decode");
        benchmark::DoNotOptimize(message);
      }
    }
  }
  const double tags = static_cast<double>(state.iterations()) * 10 * kTagsPerReport;
  state.SetItemsProcessed(static_cast<int64_t>(tags));
  state.counters["time_per_tag"] =
      benchmark::Counter(tags, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_FrameAndDecodeStream);

void BM_DecodeKeepalive(benchmark::State& state) {
  std::vector<uint8_t> frame;
  if (!encode(Message{7, Keepalive{}}, frame).ok()) std::abort();
  Message message;
  for (auto _ : state) {
    Error e = decode(frame, message);
    benchmark::DoNotOptimize(e);
  }
}
BENCHMARK(BM_DecodeKeepalive);

std::vector<uint8_t> stream(int frames, bool custom) {
  std::vector<uint8_t> out;
  ReaderEventNotification hello;
  hello.readerEventNotificationData.timestamp.microseconds = 1'700'000'000'000'000ull;
  hello.readerEventNotificationData.connectionAttemptEvent = ConnectionAttemptEvent{};
  if (!encode(Message{0, hello}, out).ok()) std::abort();
  for (int i = 0; i < frames; ++i) {
    const auto f = reportFrame(static_cast<uint32_t>(i + 1), custom);
    out.insert(out.end(), f.begin(), f.end());
  }
  return out;
}

int dump(const char* path, int frames, bool custom) {
  const auto bytes = stream(frames, custom);
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out) {
    std::fprintf(stderr, "cannot write %s\n", path);
    return 1;
  }
  std::printf("wrote %zu bytes: 1 event + %d reports of %d tags\n", bytes.size(), frames,
              kTagsPerReport);
  return 0;
}

// Reads the stream from the loopback port, frames and decodes every message, answering each
// report with a KEEPALIVE_ACK (the server sends the next frame when it hears from us); prints
// the time per tag from the first report to the last, over the tags of reports 2 to N.
int tcpClient(int port, int frames) {
  std::vector<uint8_t> ack;
  if (!encode(Message{0, KeepaliveAck{}}, ack).ok()) return 1;
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return 1;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto start = std::chrono::steady_clock::now();
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    std::perror("connect");
    close(fd);
    return 1;
  }
  Framer framer;
  std::vector<uint8_t> frame;
  Message message;
  std::vector<uint8_t> buffer(65536);
  long tags = 0;
  int reports = 0;
  while (reports < frames) {
    const ssize_t n = read(fd, buffer.data(), buffer.size());
    if (n <= 0) break;
    if (framer.feed(std::span(buffer).first(static_cast<size_t>(n))) != 0) break;
    while (framer.pop(frame) == 1) {
      Error e = decode(frame, message);
      if (!e.ok()) {
        std::fprintf(stderr, "decode: %s\n", e.text().c_str());
        close(fd);
        return 1;
      }
      if (const auto* r = std::get_if<ROAccessReport>(&message.body)) {
        if (++reports == 1) {
          start = std::chrono::steady_clock::now();
        } else {
          tags += static_cast<long>(r->tagReportData.size());
        }
        if (write(fd, ack.data(), ack.size()) != static_cast<ssize_t>(ack.size())) break;
      }
    }
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  close(fd);
  if (reports < frames || tags == 0) {
    std::fprintf(stderr, "stream ended after %d of %d reports\n", reports, frames);
    return 1;
  }
  const double ns = std::chrono::duration<double, std::nano>(elapsed).count();
  std::printf("ns_per_tag %.1f tags %ld\n", ns / static_cast<double>(tags), tags);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const char* dumpPath = nullptr;
  int port = 0;
  int frames = 100;
  bool custom = true;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--no-custom") == 0) custom = false;
  }
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], "--dump") == 0) dumpPath = argv[i + 1];
    if (std::strcmp(argv[i], "--tcp") == 0) port = std::atoi(argv[i + 1]);
    if (std::strcmp(argv[i], "--frames") == 0) frames = std::atoi(argv[i + 1]);
  }
  if (frames <= 0) frames = 1;
  if (dumpPath != nullptr) return dump(dumpPath, frames, custom);
  if (port > 0) return tcpClient(port, frames);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
