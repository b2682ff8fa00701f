// src/format/json_record.h — the pieces of a relay JSON report: the report opening, one object
// per tag read and the heartbeat object. Every value is a JSON string.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <string>

#include "config/config_records.h"
#include "format/fixed_text.h"
#include "format/tag_view.h"
#include "readerapi/rfid_records.h"

namespace tessera {

// Builds one tag object, ending in "},", into out (NUL-terminated); its length. With heartbeats
// on the object also says "isHeartBeat":"false". With no field selected and heartbeats off the
// object is "{},".
size_t formatJsonTagRecord(std::span<char, kTagRecordSize> out, const ReaderTagData& tag,
                           const TagView& view, TagMetaFlags tagMetaData, bool heartbeatEnabled);

// Replaces `record` with a heartbeat object stamped with the current local time.
void buildHeartbeatRecord(std::string& record, TagMetaFlags tagMetaData);
// The same with a given local time and milliseconds (for tests).
void buildHeartbeatRecord(std::string& record, TagMetaFlags tagMetaData, const std::tm& local,
                          long milliseconds);

// Appends the report opening to `batch`: {"reader_name":"<name>", "mac_address":"<mac>",
// "tag_reads":[ — without the reader_name pair in the TCP/IP mode. The name is escaped for
// JSON; a missing MAC address (nullptr or empty) gives an empty "mac_address" value. A batch
// number of 0 or more (the outage spool's) adds "batch_seq":N before "tag_reads".
void openJsonEnvelope(std::string& batch, int32_t relayMode, const char* readerName,
                      const char* macAddress, int64_t batchSeq = -1);

// Appends text as the inside of a JSON string: quotes, backslashes and control characters
// escaped, invalid UTF-8 bytes replaced by U+FFFD.
void appendJsonEscaped(std::string& out, const char* text);

}  // namespace tessera
