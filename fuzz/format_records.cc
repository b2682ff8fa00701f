// Every record format over arbitrary tag reads and configuration texts: output terminated
// inside its buffer, JSON objects and reports valid JSON, the serial line closed by its CRC.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../tests/unit/format/json_check.h"
#include "format/crc16.h"
#include "format/json_record.h"
#include "format/key_value_record.h"
#include "format/serial_record.h"

namespace {

template <size_t N>
void fill(FuzzedDataProvider& in, char (&field)[N]) {
  std::string text = in.ConsumeRandomLengthString(N + 8);
  size_t n = strnlen(text.c_str(), N - 1);
  std::memcpy(field, text.data(), n);
  field[n] = '\0';
}

tessera::ReaderDateTime dateTime(FuzzedDataProvider& in) {
  tessera::ReaderDateTime t;
  t.year = in.ConsumeIntegral<uint16_t>();
  t.month = in.ConsumeIntegral<uint16_t>();
  t.dayOfWeek = in.ConsumeIntegral<uint16_t>();
  t.day = in.ConsumeIntegral<uint16_t>();
  t.hour = in.ConsumeIntegral<uint16_t>();
  t.minute = in.ConsumeIntegral<uint16_t>();
  t.second = in.ConsumeIntegral<uint16_t>();
  t.milliseconds = in.ConsumeIntegral<uint16_t>();
  return t;
}

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tessera;
  FuzzedDataProvider in(data, size);
  ReaderTagData tag;
  for (uint8_t& b : tag.tagID) b = in.ConsumeIntegral<uint8_t>();
  tag.tagIDLength = in.ConsumeIntegral<uint32_t>();
  tag.PC = in.ConsumeIntegral<uint16_t>();
  tag.antennaID = in.ConsumeIntegral<uint16_t>();
  tag.peakRSSI = in.ConsumeIntegral<int8_t>();
  tag.channelIndex = in.ConsumeIntegral<uint16_t>();
  tag.tagSeenCount = in.ConsumeIntegral<uint16_t>();
  tag.tagEvent = in.ConsumeIntegral<uint32_t>();
  tag.phase = in.ConsumeIntegral<int16_t>();
  tag.seenTime = dateTime(in);
  tag.tagEventTime = dateTime(in);
  auto flags = in.ConsumeIntegral<int32_t>();
  bool heartbeat = in.ConsumeBool();
  auto mode = in.ConsumeIntegralInRange<int32_t>(0, 5);
  DataFormatConfig format;
  fill(in, format.Delimiter);
  fill(in, format.LineEnding);
  fill(in, format.TimestampFormat);
  fill(in, format.DataPrefix);
  fill(in, format.DataSuffix);
  ReaderName name;
  fill(in, name.text);
  std::string mac = in.ConsumeRandomLengthString(40);

  TagView view = makeTagView(tag);
  char out[kTagRecordSize];

  size_t n = formatKeyValueRecord(out, tag, view, flags, format);
  check(n < kTagRecordSize && std::strlen(out) == n);

  n = formatSerialRecord(out, tag, view, flags);
  check(n >= 8 && n < kTagRecordSize && std::strlen(out) == n);
  check(out[n - 2] == '\r' && out[n - 1] == '\n' && out[n - 8] == '<' && out[n - 3] == '>');
  char crc[8];
  std::snprintf(crc, sizeof crc, "<%04x>", crc16Genibus(out, n - 8));
  check(std::memcmp(out + n - 8, crc, 6) == 0);

  n = formatJsonTagRecord(out, tag, view, flags, heartbeat);
  check(n >= 3 && n < kTagRecordSize && std::strlen(out) == n);
  check(test::JsonCheck::valid(std::string_view(out, n - 1)));

  std::string batch;
  openJsonEnvelope(batch, mode, name.text, mac.c_str());
  batch.append(out, n);
  std::string heartbeatRecord;
  buildHeartbeatRecord(heartbeatRecord, flags);
  batch += heartbeatRecord;
  batch.pop_back();
  batch += "]}";
  check(test::JsonCheck::valid(batch));
  return 0;
}
