// src/format/serial_record.h — the serial push mode's CSV record: the fields that TagMetaData
// selects, each closed by ",", then "<%04x>" with the CRC-16 of the text and "\r\n".
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "config/config_records.h"
#include "format/fixed_text.h"
#include "format/tag_view.h"
#include "readerapi/rfid_records.h"

namespace tessera {

// Field appenders: the value and ","; the characters appended, or -1 (text unchanged).
// A text such as the EPC hex.
int appendTextField(FixedText& dest, const char* text, size_t length);
// "%x," of an unsigned word (the PC).
int appendHexField(FixedText& dest, uint32_t value);
// "%d," of a signed number (antenna, RSSI, seen count, channel).
int appendDecimalField(FixedText& dest, int32_t value);
// "%3.2f," of the raw phase in degrees.
int appendPhaseField(FixedText& dest, int16_t rawPhase);
// "%02d/%02d/%04d %02d:%02d:%02d:%03d," of a reader date and time.
int appendDateTimeField(FixedText& dest, ReaderDateTime time);

// Appends "<%04x>" with the CRC-16 of the text's bytes; 0, or -1 (text unchanged) when fewer
// than 7 bytes of `capacity` are free.
[[nodiscard]] int appendSerialCrc(char* text, size_t capacity);

// Builds the whole serial line of one read (fields, CRC, "\r\n") into out; its length.
size_t formatSerialRecord(std::span<char, kTagRecordSize> out, const ReaderTagData& tag,
                          const TagView& view, TagMetaFlags tagMetaData);

}  // namespace tessera
