// The outage spool's own cost: appending relay batches of about 70 KiB (700 reads) with the
// fdatasync at most once a second that the relay uses, against one fdatasync per batch, and
// reading batches back for delivery. Runs in a temporary folder on the build's disk.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "spool/spool.h"

namespace {

constexpr uint32_t kReadsPerBatch = 700;

std::string batchText() {
  std::string text = "{\"mac_address\":\"00:11:22:33:44:55\", \"batch_seq\":1, \"tag_reads\":[";
  while (text.size() < 70 * 1024) {
    text +=
        "{\"epc\":\"E2801160600002054CD6F1A4\",\"antennaPort\":\"1\",\"peakRssi\":\"-55\","
        "\"timeStamp\":\"16/11/2026 21:34:40:123\"},";
  }
  text.back() = ']';
  return text + "}";
}

std::string freshFolder() {
  char pattern[] = "/tmp/tessera-spool-bench-XXXXXX";
  const char* made = mkdtemp(pattern);
  if (made == nullptr) std::abort();
  return std::string(made) + "/spool";
}

void appendBatches(benchmark::State& state, bool syncEach) {
  const std::string text = batchText();
  const std::string dir = freshFolder();
  tessera::spool::Spool spool;
  if (!spool.open(dir, 1ull << 40, 0)) std::abort();
  int64_t now = 0;
  for (auto _ : state) {
    if (!spool.append(spool.nextSeq(), kReadsPerBatch, text, now)) std::abort();
    if (syncEach) {
      spool.sync();
    } else {
      spool.syncIfDue(++now / 100);  // as if 100 batches arrived per second
    }
    // Keep the folder small: confirm as the relay would once the sink is back.
    tessera::spool::Batch b;
    if (spool.front(b)) spool.confirm(b.seq);
  }
  state.SetItemsProcessed(state.iterations() * kReadsPerBatch);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
  spool.close();
  std::filesystem::remove_all(std::filesystem::path(dir).parent_path());
}

void BM_AppendSyncedOncePerSecond(benchmark::State& state) { appendBatches(state, false); }
void BM_AppendSyncedPerBatch(benchmark::State& state) { appendBatches(state, true); }

// Replay: a spool of 1,500 batches (1.05 M reads) read back and confirmed, oldest first.
void BM_ReplayReadBackAndConfirm(benchmark::State& state) {
  const std::string text = batchText();
  for (auto _ : state) {
    state.PauseTiming();
    const std::string dir = freshFolder();
    tessera::spool::Spool spool;
    if (!spool.open(dir, 1ull << 40, 0)) std::abort();
    for (int i = 0; i < 1500; ++i) {
      if (!spool.append(spool.nextSeq(), kReadsPerBatch, text, 0)) std::abort();
    }
    spool.sync();
    state.ResumeTiming();
    tessera::spool::Batch b;
    while (spool.front(b)) spool.confirm(b.seq);
    state.PauseTiming();
    spool.close();
    std::filesystem::remove_all(std::filesystem::path(dir).parent_path());
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * 1500 * kReadsPerBatch);
}

BENCHMARK(BM_AppendSyncedOncePerSecond)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AppendSyncedPerBatch)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ReplayReadBackAndConfirm)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
