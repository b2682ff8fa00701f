// Formatting one tag read in each record format, the view of the read included.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "format/crc16.h"
#include "format/json_record.h"
#include "format/key_value_record.h"
#include "format/serial_record.h"

namespace {

using namespace tessera;

ReaderTagData sampleTag() {
  ReaderTagData tag;
  const uint8_t epc[] = {0xE2, 0x80, 0x11, 0x60, 0x60, 0x00, 0x02, 0x05, 0x4C, 0xD6, 0xF1, 0xA4};
  std::memcpy(tag.tagID, epc, sizeof epc);
  tag.tagIDLength = sizeof epc;
  tag.PC = 0x3000;
  tag.antennaID = 2;
  tag.peakRSSI = -57;
  tag.tagSeenCount = 3;
  tag.channelIndex = 11;
  tag.phase = 12345;
  tag.seenTime = ReaderDateTime{2026, 11, 1, 16, 21, 34, 40, 123};
  return tag;
}

DataFormatConfig keyValueFormat(const char* stamp) {
  DataFormatConfig f;
  std::strcpy(f.Format, "KeyValuePair");
  std::strcpy(f.Delimiter, "Comma");
  std::strcpy(f.LineEnding, "CRLF");
  std::strcpy(f.TimestampFormat, stamp);
  std::strcpy(f.DataPrefix, "R1:");
  return f;
}

void KeyValue(benchmark::State& state, TagMetaFlags flags, const char* stamp) {
  ReaderTagData tag = sampleTag();
  DataFormatConfig format = keyValueFormat(stamp);
  char out[kTagRecordSize];
  for (auto _ : state) {
    TagView view = makeTagView(tag);
    benchmark::DoNotOptimize(formatKeyValueRecord(out, tag, view, flags, format));
    benchmark::ClobberMemory();
  }
}

void Json(benchmark::State& state, TagMetaFlags flags) {
  ReaderTagData tag = sampleTag();
  char out[kTagRecordSize];
  for (auto _ : state) {
    TagView view = makeTagView(tag);
    benchmark::DoNotOptimize(formatJsonTagRecord(out, tag, view, flags, true));
    benchmark::ClobberMemory();
  }
}

void Serial(benchmark::State& state, TagMetaFlags flags) {
  ReaderTagData tag = sampleTag();
  char out[kTagRecordSize];
  for (auto _ : state) {
    TagView view = makeTagView(tag);
    benchmark::DoNotOptimize(formatSerialRecord(out, tag, view, flags));
    benchmark::ClobberMemory();
  }
}

void Heartbeat(benchmark::State& state) {
  std::string record;
  for (auto _ : state) {
    buildHeartbeatRecord(record, 255);
    benchmark::DoNotOptimize(record.data());
  }
}

}  // namespace

BENCHMARK_CAPTURE(KeyValue, epc_antenna_rssi, 13, "UTC");
BENCHMARK_CAPTURE(KeyValue, all_fields_utc, 255, "UTC");
BENCHMARK_CAPTURE(KeyValue, all_fields_seconds, 255, "Seconds");
BENCHMARK_CAPTURE(Json, epc_antenna, 5);
BENCHMARK_CAPTURE(Json, all_fields, 255);
BENCHMARK_CAPTURE(Serial, default_fields, 0);
BENCHMARK_CAPTURE(Serial, epc_antenna_rssi_time, 45);
BENCHMARK_CAPTURE(Serial, all_fields, 255);
BENCHMARK(Heartbeat);

namespace {
void Crc(benchmark::State& state) {
  const char text[] = "E2801160600002054CD6F1A4,3000,2,-57,3,16/11/2026 21:34:40:123,67.82,11,";
  for (auto _ : state) benchmark::DoNotOptimize(crc16Genibus(text, sizeof text - 1));
}
void View(benchmark::State& state) {
  ReaderTagData tag = sampleTag();
  for (auto _ : state) {
    TagView v = makeTagView(tag);
    benchmark::DoNotOptimize(v);
  }
}
}  // namespace
BENCHMARK(Crc);
BENCHMARK(View);
