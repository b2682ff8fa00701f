#include "format/json_record.h"

#include <sys/time.h>

#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace tessera {
namespace {

// Appends a quoted-key field: the label (which opens the value's quotes), the value and "\",";
// all or nothing.
template <size_t N>
void appendField(FixedText& text, const char (&label)[N], auto value) {
  size_t mark = text.size();
  if (text.append(label, N - 1) < 0 || value(text) < 0 || text.append("\",", 2) < 0) {
    while (text.size() > mark) text.dropLast();
  }
}

// Length of the valid UTF-8 sequence at p (at most `left` bytes), or 0 when it is not one.
size_t utf8SequenceLength(const unsigned char* p, size_t left) {
  unsigned char c = p[0];
  size_t n;
  uint32_t cp;
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) {
    n = 2;
    cp = c & 0x1F;
  } else if (c >= 0xE0 && c <= 0xEF) {
    n = 3;
    cp = c & 0x0F;
  } else if (c >= 0xF0 && c <= 0xF4) {
    n = 4;
    cp = c & 0x07;
  } else {
    return 0;
  }
  if (left < n) return 0;
  for (size_t i = 1; i < n; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (p[i] & 0x3F);
  }
  // Overlong forms, surrogates and values past U+10FFFF are no valid UTF-8.
  if ((n == 3 && cp < 0x800) || (n == 4 && cp < 0x10000) || cp > 0x10FFFF ||
      (cp >= 0xD800 && cp <= 0xDFFF))
    return 0;
  return n;
}

}  // namespace

size_t formatJsonTagRecord(std::span<char, kTagRecordSize> out, const ReaderTagData& tag,
                           const TagView& view, TagMetaFlags tagMetaData, bool heartbeatEnabled) {
  FixedText text(out.data(), out.size());
  (void)text.append('{');
  if (tagMetaData & kTagMetaEpc) {
    appendField(text, "\"epc\":\"",
                [&](FixedText& t) { return t.append(view.epc, view.epcLength); });
  }
  if (tagMetaData & kTagMetaPc) {
    appendField(text, "\"pc\":\"", [&](FixedText& t) { return t.appendHex(tag.PC); });
  }
  if (tagMetaData & kTagMetaAntenna) {
    appendField(text, "\"antennaPort\":\"",
                [&](FixedText& t) { return t.appendDecimal(tag.antennaID); });
  }
  if (tagMetaData & kTagMetaRssi) {
    appendField(text, "\"peakRssi\":\"",
                [&](FixedText& t) { return t.appendDecimal(tag.peakRSSI); });
  }
  if (tagMetaData & kTagMetaSeenCount) {
    appendField(text, "\"seenCount\":\"",
                [&](FixedText& t) { return t.appendDecimal(tag.tagSeenCount); });
  }
  if (tagMetaData & kTagMetaTimeStamp) {
    appendField(text, "\"timeStamp\":\"",
                [&](FixedText& t) { return t.appendDateTime(view.time); });
  }
  if (tagMetaData & kTagMetaPhase) {
    appendField(text, "\"phase\":\"", [&](FixedText& t) { return t.appendFixed2(view.phase); });
  }
  if (tagMetaData & kTagMetaChannel) {
    appendField(text, "\"channelIndex\":\"",
                [&](FixedText& t) { return t.appendDecimal(tag.channelIndex); });
  }
  if (heartbeatEnabled) {
    (void)text.append("\"isHeartBeat\":\"false\"},");
  } else {
    // Drop the "," of the last field; with no field there is only the "{" to keep.
    if (text.size() > 1) text.dropLast();
    (void)text.append("},");
  }
  return text.size();
}

void buildHeartbeatRecord(std::string& record, TagMetaFlags tagMetaData, const std::tm& local,
                          long milliseconds) {
  record.clear();
  record += '{';
  if (tagMetaData & kTagMetaEpc) record += "\"epc\":\"********\",";
  if (tagMetaData & kTagMetaPc) record += "\"pc\":\"0\",";
  if (tagMetaData & kTagMetaAntenna) record += "\"antennaPort\":\"0\",";
  if (tagMetaData & kTagMetaRssi) record += "\"peakRssi\":\"0\",";
  if (tagMetaData & kTagMetaSeenCount) record += "\"seenCount\":\"0\",";
  if (tagMetaData & kTagMetaTimeStamp) {
    char buffer[200];
    FixedText stamp(buffer, sizeof buffer);
    (void)stamp.append("\"timeStamp\":\"");
    (void)stamp.appendDateTime(local.tm_mday, local.tm_mon + 1, local.tm_year + 1900L,
                               local.tm_hour, local.tm_min, local.tm_sec, milliseconds);
    (void)stamp.append("\",");
    record.append(stamp.c_str(), stamp.size());
  }
  if (tagMetaData & kTagMetaPhase) record += "\"phase\":\"0\",";
  if (tagMetaData & kTagMetaChannel) record += "\"channelIndex\":\"0\",";
  record += "\"isHeartBeat\":\"true\"},";
}

void buildHeartbeatRecord(std::string& record, TagMetaFlags tagMetaData) {
  timeval now{};
  gettimeofday(&now, nullptr);
  time_t seconds = now.tv_sec + platform::settings().clockOffset;
  std::tm local{};
  localtime_r(&seconds, &local);
  buildHeartbeatRecord(record, tagMetaData, local, static_cast<long>(now.tv_usec / 1000));
}

void appendJsonEscaped(std::string& out, const char* text) {
  static constexpr char kHex[] = "0123456789abcdef";
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  size_t left = std::strlen(text);
  while (left > 0) {
    unsigned char c = *p;
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7F) {
      out += "\\u00";
      out += kHex[c >> 4];
      out += kHex[c & 0xF];
    } else if (c >= 0x80) {
      size_t n = utf8SequenceLength(p, left);
      if (n == 0) {
        out += "\xEF\xBF\xBD";
        n = 1;
      } else {
        out.append(reinterpret_cast<const char*>(p), n);
      }
      p += n;
      left -= n;
      continue;
    } else {
      out += static_cast<char>(c);
    }
    ++p;
    --left;
  }
}

void openJsonEnvelope(std::string& batch, int32_t relayMode, const char* readerName,
                      const char* macAddress, int64_t batchSeq) {
  if (relayMode == static_cast<int32_t>(RelayMode::TcpIp)) {
    batch += '{';
  } else {
    batch += "{\"reader_name\":\"";
    appendJsonEscaped(batch, readerName ? readerName : "");
    batch += "\", ";
  }
  batch += "\"mac_address\":\"";
  if (macAddress) appendJsonEscaped(batch, macAddress);
  batch += "\", ";
  if (batchSeq >= 0) {
    char seq[48];
    std::snprintf(seq, sizeof seq, "\"batch_seq\":%lld, ", static_cast<long long>(batchSeq));
    batch += seq;
  }
  batch += "\"tag_reads\":[";
}

}  // namespace tessera
