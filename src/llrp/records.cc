// src/llrp/records.cc — names of message types and status codes, and record accessors.
#include "llrp/records.h"

namespace tessera::llrp {

MessageType messageType(const MessageBody& body) {
  return std::visit([](const auto& m) { return std::decay_t<decltype(m)>::kMessageType; }, body);
}

const char* statusCodeName(StatusCode code) {
  switch (code) {
    case StatusCode::kSuccess:
      return "M_Success";
    case StatusCode::kMParameterError:
      return "M_ParameterError";
    case StatusCode::kMFieldError:
      return "M_FieldError";
    case StatusCode::kMUnexpectedParameter:
      return "M_UnexpectedParameter";
    case StatusCode::kMMissingParameter:
      return "M_MissingParameter";
    case StatusCode::kMDuplicateParameter:
      return "M_DuplicateParameter";
    case StatusCode::kMOverflowParameter:
      return "M_OverflowParameter";
    case StatusCode::kMOverflowField:
      return "M_OverflowField";
    case StatusCode::kMUnknownParameter:
      return "M_UnknownParameter";
    case StatusCode::kMUnknownField:
      return "M_UnknownField";
    case StatusCode::kMUnsupportedMessage:
      return "M_UnsupportedMessage";
    case StatusCode::kMUnsupportedVersion:
      return "M_UnsupportedVersion";
    case StatusCode::kMUnsupportedParameter:
      return "M_UnsupportedParameter";
    case StatusCode::kPParameterError:
      return "P_ParameterError";
    case StatusCode::kPFieldError:
      return "P_FieldError";
    case StatusCode::kPUnexpectedParameter:
      return "P_UnexpectedParameter";
    case StatusCode::kPMissingParameter:
      return "P_MissingParameter";
    case StatusCode::kPDuplicateParameter:
      return "P_DuplicateParameter";
    case StatusCode::kPOverflowParameter:
      return "P_OverflowParameter";
    case StatusCode::kPOverflowField:
      return "P_OverflowField";
    case StatusCode::kPUnknownParameter:
      return "P_UnknownParameter";
    case StatusCode::kPUnknownField:
      return "P_UnknownField";
    case StatusCode::kPUnsupportedParameter:
      return "P_UnsupportedParameter";
    case StatusCode::kAInvalid:
      return "A_Invalid";
    case StatusCode::kAOutOfRange:
      return "A_OutOfRange";
    case StatusCode::kRDeviceError:
      return "R_DeviceError";
  }
  return "Unknown";
}

std::span<const uint8_t> epcBytes(const EPCParameter& epc) {
  if (const auto* e96 = std::get_if<EPC96>(&epc)) return e96->epc;
  return std::get<EPCData>(epc).epc.bytes;
}

}  // namespace tessera::llrp
