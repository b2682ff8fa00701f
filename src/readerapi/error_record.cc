// src/readerapi/error_record.cc — see error_record.h.
#include "readerapi/error_record.h"

#include "readerapi/wide_text.h"

namespace tessera::readerapi {

ErrorRecord errorRecord(RfidStatus status, std::string what, std::string where,
                        uint32_t messageType) {
  ErrorRecord r;
  r.status = status;
  r.messageType = messageType;
  r.what = std::move(what);
  r.where = std::move(where);
  return r;
}

bool unreachable(RfidStatus status) {
  return status == RFID_API_COMMAND_TIMEOUT || status == RFID_API_NOT_CONNECTED;
}

void fillErrorInfo(const ErrorRecord& r, ErrorInfo& info) {
  info = ErrorInfo{};
  info.status = r.status;
  info.llrpStatusCode = r.llrpStatusCode;
  info.fieldNum = r.fieldNum;
  info.fieldErrorCode = r.fieldErrorCode;
  info.parameterType = r.parameterType;
  info.parameterErrorCode = r.parameterErrorCode;
  info.messageType = r.messageType;
  copyWide(info.statusDesc, r.what);
  copyWide(info.vendorMessage, r.where);
}

}  // namespace tessera::readerapi
