// src/llrp/description_table.h — the records' descriptions as data: every message and parameter
// the codec knows, with its type number, fields and sub-parameters, for checks against LLRP's
// own definitions and for tools that list what the codec speaks.
#pragma once

#include <cstdint>
#include <vector>

namespace tessera::llrp {

// One fixed field in wire order. Reserved bits are fields too, named "".
struct FieldInfo {
  const char* name = "";
  const char* wireType = "";  // LLRP's spelling: "u8", "u1", "u16v", "utf8v", "reserved", ...
  int bits = 0;               // width of a bit field or of the reserved bits; 0 otherwise
};

// One message or parameter.
struct RecordInfo {
  const char* name = "";  // LLRP's name: "RO_ACCESS_REPORT", "TagReportData", "EPC_96"
  uint16_t type = 0;      // message or parameter type number
  bool message = false;
  bool tv = false;
  std::vector<FieldInfo> fields;
  // The sub-parameter slots in wire order; a slot lists the one type it takes, or the types of
  // a choice.
  std::vector<std::vector<uint16_t>> subParameters;
};

// Every described record: the messages first, in MessageBody order, then each parameter once,
// in the order the messages reach them.
std::vector<RecordInfo> recordTable();

}  // namespace tessera::llrp
