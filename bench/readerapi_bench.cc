// bench/readerapi_bench.cc — tag reads from the reader simulator at link speed (--rate 0)
// through the reader API into a callback that drains RFID_GetReadTag. Reports reads per second,
// CPU time of this process per read, resident memory early and late in the run, and the
// simulator's own reads_sent so that any loss between the two shows.
//
// Run: build/bin/bench_readerapi   (finds tessera-readersim beside itself or in $TESSERA_BIN)
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "../tests/unit/readerapi/sim_process.h"
#include "readerapi/rfid_api.h"

namespace {

using namespace tessera;
using namespace std::chrono_literals;

struct Counter {
  std::atomic<uint64_t> reads{0};
  std::atomic<uint64_t> fullEvents{0};
};

void onEvent(ReaderHandle h, uint32_t code, void* context) {
  auto* c = static_cast<Counter*>(context);
  if (code == BUFFER_FULL_EVENT) c->fullEvents.fetch_add(1, std::memory_order_relaxed);
  if (code != TAG_READ_EVENT) return;
  ReaderTagData t;
  uint64_t n = 0;
  while (RFID_GetReadTag(h, &t) == RFID_API_SUCCESS) ++n;
  c->reads.fetch_add(n, std::memory_order_relaxed);
}

double cpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

long rssKiB() {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return -1;
}

void findSimulator() {
  if (std::getenv("TESSERA_BIN") != nullptr) return;
  char exe[4096];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) return;
  exe[n] = '\0';
  std::string dir(exe);
  dir = dir.substr(0, dir.rfind('/'));
  setenv("TESSERA_BIN", dir.c_str(), 0);
}

// state.range(0): seconds of inventory; state.range(1): tag reads per report (ROReportSpec N).
void BM_ReadsThroughLibrary(benchmark::State& state) {
  findSimulator();
  if (testing::SimProcess::binary().empty()) {
    state.SkipWithError("tessera-readersim not found (set TESSERA_BIN)");
    return;
  }
  for (auto _ : state) {
    testing::SimProcess sim;
    if (!sim.start({"--rate", "0", "--tags", "1000"})) {
      state.SkipWithError("simulator did not start");
      return;
    }
    ReaderHandle h = 0;
    if (RFID_ConnectW(&h, L"127.0.0.1", static_cast<uint32_t>(sim.llrpPort()), 0, nullptr) !=
        RFID_API_SUCCESS) {
      state.SkipWithError("connect failed");
      return;
    }
    Counter counter;
    const uint32_t events[] = {TAG_READ_EVENT, BUFFER_FULL_EVENT};
    (void)RFID_RegisterEventNotificationCallback(h, events, 2, nullptr, &onEvent, &counter);
    TriggerRecord t;
    t.tagReportTrigger = static_cast<uint32_t>(state.range(1));
    const double cpu0 = cpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    if (RFID_PerformInventory(h, nullptr, nullptr, &t, nullptr) != RFID_API_SUCCESS) {
      state.SkipWithError("inventory did not start");
      return;
    }
    std::this_thread::sleep_for(1s);
    const long rssEarly = rssKiB();
    std::this_thread::sleep_for(std::chrono::seconds(state.range(0) - 1));
    const long rssLate = rssKiB();
    (void)RFID_StopInventory(h);
    // Let the reports already on the wire arrive.
    uint64_t seen = counter.reads.load();
    for (int i = 0; i < 50; ++i) {
      std::this_thread::sleep_for(100ms);
      const uint64_t now = counter.reads.load();
      if (now == seen && i > 2) break;
      seen = now;
    }
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const double cpu = cpuSeconds() - cpu0;
    const long sent = sim.stat("reads_sent");
    const long dropped = sim.stat("reads_dropped");
    (void)RFID_Disconnect(h);
    const uint64_t got = counter.reads.load();
    state.SetIterationTime(secs);
    state.counters["reads_received"] = static_cast<double>(got);
    state.counters["reads_sent"] = static_cast<double>(sent);
    state.counters["sim_dropped"] = static_cast<double>(dropped);
    state.counters["lost"] = static_cast<double>(sent - static_cast<long>(got));
    state.counters["reads_per_s"] = static_cast<double>(got) / secs;
    state.counters["cpu_us_per_read"] = got ? cpu * 1e6 / static_cast<double>(got) : 0;
    state.counters["rss_kib_1s"] = static_cast<double>(rssEarly);
    state.counters["rss_kib_end"] = static_cast<double>(rssLate);
    state.counters["full_events"] = static_cast<double>(counter.fullEvents.load());
  }
}
BENCHMARK(BM_ReadsThroughLibrary)
    ->ArgsProduct({{5}, {1, 16}})
    ->ArgNames({"seconds", "reads_per_report"})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);

}  // namespace
