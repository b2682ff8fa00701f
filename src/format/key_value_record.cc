#include "format/key_value_record.h"

#include <cstring>

namespace tessera {
namespace {

// Days from the start of a four-year cycle (leap year first) to the first day of each month.
constexpr int kMonthStartTable[48] = {
    0,   31,   60,   91,   121,  152,  182,  213,  244,  274,  305,  335,  366,  397,  425,  456,
    486, 517,  547,  578,  609,  639,  670,  700,  731,  762,  790,  821,  851,  882,  912,  943,
    974, 1004, 1035, 1065, 1096, 1127, 1155, 1186, 1216, 1247, 1277, 1308, 1339, 1369, 1400, 1430};

char delimiterOf(const char* name) {
  if (std::strcmp(name, "Tab") == 0) return '\t';
  if (std::strcmp(name, "Space") == 0) return ' ';
  return ',';  // "Comma" and every unknown name
}

// The line ending text of a LineEnding value, or nullptr when the value names none of them.
const char* lineEndingOf(const char* name) {
  if (std::strcmp(name, "CRLF") == 0) return "\r\n";
  if (std::strcmp(name, "LF") == 0) return "\n";
  if (std::strcmp(name, "CR") == 0) return "\r";
  if (std::strcmp(name, "None") == 0) return "";
  return nullptr;
}

// Appends a label, a value formatted by `value` and the delimiter, or nothing at all.
template <typename Format>
void appendField(FixedText& text, const char* label, size_t labelLength, char delimiter,
                 Format value) {
  size_t mark = text.size();
  if (text.append(label, labelLength) < 0 || value(text) < 0 || text.append(delimiter) < 0) {
    while (text.size() > mark) text.dropLast();
  }
}

template <size_t N>
void appendField(FixedText& text, const char (&label)[N], char delimiter, auto value) {
  appendField(text, label, N - 1, delimiter, value);
}

}  // namespace

int64_t keyValueSeconds(const ReaderDateTime& time) {
  int64_t year = time.year;
  // A month outside 1 to 12 cannot come from the reader; keep the table index in range anyway.
  int month = time.month < 1 ? 1 : (time.month > 12 ? 12 : time.month);
  int64_t days = 1461 * (year / 4) + kMonthStartTable[12 * (year % 4) + (month - 1)] + time.day;
  return ((days * 24 + time.hour) * 60 + time.minute) * 60 + time.second;
}

size_t formatKeyValueRecord(std::span<char, kTagRecordSize> out, const ReaderTagData& tag,
                            const TagView& view, TagMetaFlags tagMetaData,
                            const DataFormatConfig& format) {
  FixedText text(out.data(), out.size());
  const char d = delimiterOf(format.Delimiter);
  (void)text.append(format.DataPrefix, strnlen(format.DataPrefix, sizeof format.DataPrefix));

  if (tagMetaData & kTagMetaEpc) {
    if (tagMetaData & 0xFE) {
      appendField(text, "epc=", d,
                  [&](FixedText& t) { return t.append(view.epc, view.epcLength); });
    } else {
      (void)text.append(view.epc, view.epcLength);
    }
  }
  if (tagMetaData & kTagMetaPc) {
    appendField(text, "pc=", d, [&](FixedText& t) { return t.appendHex(tag.PC); });
  }
  if (tagMetaData & kTagMetaAntenna) {
    appendField(text, "antennaPort=", d,
                [&](FixedText& t) { return t.appendDecimal(tag.antennaID); });
  }
  if (tagMetaData & kTagMetaRssi) {
    appendField(text, "peakRssi=", d, [&](FixedText& t) { return t.appendDecimal(tag.peakRSSI); });
  }
  if (tagMetaData & kTagMetaSeenCount) {
    appendField(text, "seenCount=", d,
                [&](FixedText& t) { return t.appendDecimal(tag.tagSeenCount); });
  }
  if (tagMetaData & kTagMetaTimeStamp) {
    if (std::strcmp(format.TimestampFormat, "UTC") == 0) {
      appendField(text, "timeStamp=", d, [&](FixedText& t) { return t.appendDateTime(view.time); });
    } else {
      appendField(text, "timeStamp=", d,
                  [&](FixedText& t) { return t.appendDecimal(keyValueSeconds(view.time)); });
    }
  }
  if (tagMetaData & kTagMetaPhase) {
    appendField(text, "phase=", d, [&](FixedText& t) { return t.appendFixed2(view.phase); });
  }
  if (tagMetaData & kTagMetaChannel) {
    appendField(text, "channelIndex=", d,
                [&](FixedText& t) { return t.appendDecimal(tag.channelIndex); });
  }

  const char* ending = lineEndingOf(format.LineEnding);
  if (format.DataSuffix[0] != '\0') {
    // An unknown line ending drops the suffix as well.
    if (ending != nullptr) {
      size_t mark = text.size();
      if (text.append(format.DataSuffix, strnlen(format.DataSuffix, sizeof format.DataSuffix)) <
              0 ||
          text.append(ending) < 0) {
        while (text.size() > mark) text.dropLast();
      }
    }
  } else if (ending != nullptr) {
    (void)text.append(ending);
  }
  return text.size();
}

}  // namespace tessera
