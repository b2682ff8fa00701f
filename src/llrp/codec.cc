// src/llrp/codec.cc — LLRP binary encoder and decoder.
#include "llrp/codec.h"

namespace tessera::llrp {

std::string Error::text() const { return errorCodeName(code); }

const char* errorCodeName(ErrorCode code) {
  switch (code) {
    case ErrorCode::kOk: return "ok";
    case ErrorCode::kTruncated: return "truncated";
    case ErrorCode::kBadLength: return "bad length";
    case ErrorCode::kFrameTooLarge: return "frame too large";
    case ErrorCode::kBadVersion: return "unsupported version";
    case ErrorCode::kUnknownMessage: return "unknown message type";
    case ErrorCode::kUnknownTvType: return "unknown TV parameter type";
    case ErrorCode::kMissingParameter: return "missing parameter";
    case ErrorCode::kDuplicateParameter: return "duplicate parameter";
    case ErrorCode::kTooDeep: return "nesting too deep";
    case ErrorCode::kBadField: return "bad field";
    case ErrorCode::kTooLong: return "value too long";
  }
  return "unknown error";
}

Error decodeHeader(std::span<const uint8_t> bytes, FrameHeader& out, uint32_t maxFrameSize) {
  Error e;
  e.parameter = "header";
  if (bytes.size() < kHeaderSize) {
    e.code = ErrorCode::kTruncated;
    e.offset = static_cast<uint32_t>(bytes.size());
    return e;
  }
  out.version = static_cast<uint8_t>((bytes[0] >> 2) & 0x7);
  out.type = static_cast<uint16_t>(((bytes[0] & 0x3) << 8) | bytes[1]);
  out.length = (uint32_t{bytes[2]} << 24) | (uint32_t{bytes[3]} << 16) |
               (uint32_t{bytes[4]} << 8) | bytes[5];
  out.id = (uint32_t{bytes[6]} << 24) | (uint32_t{bytes[7]} << 16) | (uint32_t{bytes[8]} << 8) |
           bytes[9];
  e.messageType = out.type;
  e.messageId = out.id;
  e.field = "MessageLength";
  e.offset = 2;
  if (out.length < kHeaderSize) {
    e.code = ErrorCode::kBadLength;
  } else if (out.length > maxFrameSize) {
    e.code = ErrorCode::kFrameTooLarge;
  } else {
    e.field = "";
    e.offset = 0;
  }
  return e;
}

Error decode(std::span<const uint8_t> frame, Message& out) {
  FrameHeader h;
  Error e = decodeHeader(frame, h);
  if (!e.ok()) return e;
  out.id = h.id;
  e.code = ErrorCode::kUnknownMessage;
  return e;
}

Error encode(const Message& message, std::vector<uint8_t>& out) {
  (void)message;
  (void)out;
  Error e;
  e.code = ErrorCode::kUnknownMessage;
  return e;
}

LLRPStatus statusForError(const Error& error) {
  LLRPStatus s;
  s.statusCode = StatusCode::kMParameterError;
  s.errorDescription = error.text();
  return s;
}

}  // namespace tessera::llrp
