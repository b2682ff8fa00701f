#include "format/serial_record.h"

#include <cstring>

#include "format/crc16.h"

namespace tessera {
namespace {

// Appends a field's text and its ","; all or nothing.
int closeField(FixedText& dest, size_t mark) {
  if (dest.append(',') < 0) {
    while (dest.size() > mark) dest.dropLast();
    return -1;
  }
  return static_cast<int>(dest.size() - mark);
}

// "%3.2f," of a phase already in degrees.
int appendDegreesField(FixedText& dest, double degrees) {
  size_t mark = dest.size();
  if (dest.appendFixed2(degrees) < 0) return -1;
  return closeField(dest, mark);
}

// Room kept at the end of a record for "<xxxx>" and "\r\n".
constexpr size_t kSerialTail = 8;

}  // namespace

int appendTextField(FixedText& dest, const char* text, size_t length) {
  size_t mark = dest.size();
  if (dest.append(text, length) < 0) return -1;
  return closeField(dest, mark);
}

int appendHexField(FixedText& dest, uint32_t value) {
  size_t mark = dest.size();
  if (dest.appendHex(value) < 0) return -1;
  return closeField(dest, mark);
}

int appendDecimalField(FixedText& dest, int32_t value) {
  size_t mark = dest.size();
  if (dest.appendDecimal(value) < 0) return -1;
  return closeField(dest, mark);
}

int appendPhaseField(FixedText& dest, int16_t rawPhase) {
  return appendDegreesField(dest, phaseDegrees(rawPhase));
}

int appendDateTimeField(FixedText& dest, ReaderDateTime time) {
  size_t mark = dest.size();
  if (dest.appendDateTime(time) < 0) return -1;
  return closeField(dest, mark);
}

int appendSerialCrc(char* text, size_t capacity) {
  size_t n = strnlen(text, capacity);
  if (n + 7 > capacity) return -1;
  static constexpr char kDigits[] = "0123456789abcdef";
  uint16_t crc = crc16Genibus(text, n);
  char* p = text + n;
  *p++ = '<';
  *p++ = kDigits[(crc >> 12) & 0xF];
  *p++ = kDigits[(crc >> 8) & 0xF];
  *p++ = kDigits[(crc >> 4) & 0xF];
  *p++ = kDigits[crc & 0xF];
  *p++ = '>';
  *p = '\0';
  return 0;
}

size_t formatSerialRecord(std::span<char, kTagRecordSize> out, const ReaderTagData& tag,
                          const TagView& view, TagMetaFlags tagMetaData) {
  // The fields may fill all but the tail, so that the CRC and the line end always fit.
  FixedText text(out.data(), out.size() - kSerialTail);
  // A field that does not fit is left out; the record still goes out with its CRC.
  if (tagMetaData == 0) {
    (void)appendTextField(text, view.epc, view.epcLength);
    (void)appendHexField(text, tag.PC);
    (void)appendDecimalField(text, tag.antennaID);
    (void)appendDecimalField(text, tag.tagSeenCount);
  } else {
    if (tagMetaData & kTagMetaEpc) (void)appendTextField(text, view.epc, view.epcLength);
    if (tagMetaData & kTagMetaPc) (void)appendHexField(text, tag.PC);
    if (tagMetaData & kTagMetaAntenna) (void)appendDecimalField(text, tag.antennaID);
    if (tagMetaData & kTagMetaRssi) (void)appendDecimalField(text, tag.peakRSSI);
    if (tagMetaData & kTagMetaSeenCount) (void)appendDecimalField(text, tag.tagSeenCount);
    if (tagMetaData & kTagMetaTimeStamp) (void)appendDateTimeField(text, view.time);
    if (tagMetaData & kTagMetaPhase) (void)appendDegreesField(text, view.phase);
    if (tagMetaData & kTagMetaChannel) (void)appendDecimalField(text, tag.channelIndex);
  }
  size_t n = text.size();
  if (appendSerialCrc(out.data(), out.size()) != 0) return n;  // cannot happen: the tail is kept
  n += 6;
  out[n++] = '\r';
  out[n++] = '\n';
  out[n] = '\0';
  return n;
}

}  // namespace tessera
