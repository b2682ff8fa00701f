// src/format/key_value_record.h — the relay's key=value record: a prefix, the fields that
// TagMetaData selects each closed by the delimiter, a suffix and the line ending.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "config/config_records.h"
#include "format/fixed_text.h"
#include "format/tag_view.h"
#include "readerapi/rfid_records.h"

namespace tessera {

// Builds the key=value record of one read into out (NUL-terminated); its length. A field that
// would not fit is left out.
size_t formatKeyValueRecord(std::span<char, kTagRecordSize> out, const ReaderTagData& tag,
                            const TagView& view, TagMetaFlags tagMetaData,
                            const DataFormatConfig& format);

// The numeric time stamp: seconds counted from day 0 of year 0 in four-year cycles whose first
// year has 29 February (not Unix time). Milliseconds are dropped.
int64_t keyValueSeconds(const ReaderDateTime& time);

}  // namespace tessera
