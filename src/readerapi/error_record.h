// src/readerapi/error_record.h — what went wrong in a handle's last failed call, kept as text
// until a caller asks for it through RFID_GetLastErrorInfoW.
#pragma once

#include <cstdint>
#include <string>

#include "readerapi/rfid_types.h"

namespace tessera::readerapi {

struct ErrorRecord {
  uint32_t status = 0;
  uint32_t llrpStatusCode = 0;
  uint16_t fieldNum = 0;
  uint16_t fieldErrorCode = 0;
  uint16_t parameterType = 0;
  uint16_t parameterErrorCode = 0;
  uint32_t messageType = 0;
  std::string what;   // the reader's description or ours
  std::string where;  // message, parameter and field
};

// A record of a failure of the library's own (no LLRP status involved).
ErrorRecord errorRecord(RfidStatus status, std::string what, std::string where = {},
                        uint32_t messageType = 0);
// Whether a status means the reader did not answer or the link is gone: further requests of the
// same call would only wait again.
bool unreachable(RfidStatus status);
// Copies a record into the caller's ErrorInfo (texts cut to fit, always terminated).
void fillErrorInfo(const ErrorRecord& record, ErrorInfo& info);

}  // namespace tessera::readerapi
