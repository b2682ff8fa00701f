// src/llrp/codec.cc — LLRP frames to records and back, driven by the records' descriptions.
#include "llrp/codec.h"

#include <utility>
#include <variant>

#include "llrp/decoder.h"
#include "llrp/descriptions_messages.h"
#include "llrp/encoder.h"
#include "llrp/wire.h"

namespace tessera::llrp {
namespace {

// Decodes a body into the alternative of MessageBody whose message type is `type`; an
// RO_ACCESS_REPORT decoded into a Message that holds one keeps its buffers.
template <size_t I = 0>
bool decodeBody(decoding::Decoder& d, uint16_t type, wire::Range r, MessageBody& body) {
  if constexpr (I == std::variant_size_v<MessageBody>) {
    return d.fail(ErrorCode::kUnknownMessage, 0, "header", "MessageType");
  } else {
    using Body = std::variant_alternative_t<I, MessageBody>;
    using D = desc::MessageOf<Body>;
    if (type != D::kType) return decodeBody<I + 1>(d, type, r, body);
    Body* held = std::get_if<I>(&body);
    if (held == nullptr) held = &body.template emplace<I>();
    decoding::decodeRecord<D>(d, r, r.begin, *held);
    return d.ok();
  }
}

}  // namespace

std::string Error::text() const {
  std::string s = errorCodeName(code);
  if (ok()) return s;
  s += " at byte ";
  s += std::to_string(offset);
  if (parameter && *parameter) {
    s += " in ";
    s += parameter;
  }
  if ((field && *field) || parameterType != 0) {
    s += " (";
    if (field && *field) s += field;
    if (parameterType != 0) {
      if (field && *field) s += ", ";
      s += "parameter type ";
      s += std::to_string(parameterType);
    }
    s += ")";
  }
  return s;
}

const char* errorCodeName(ErrorCode code) {
  switch (code) {
    case ErrorCode::kOk:
      return "ok";
    case ErrorCode::kTruncated:
      return "truncated";
    case ErrorCode::kBadLength:
      return "bad length";
    case ErrorCode::kFrameTooLarge:
      return "frame too large";
    case ErrorCode::kBadVersion:
      return "unsupported version";
    case ErrorCode::kUnknownMessage:
      return "unknown message type";
    case ErrorCode::kUnknownTvType:
      return "unknown TV parameter type";
    case ErrorCode::kMissingParameter:
      return "missing parameter";
    case ErrorCode::kDuplicateParameter:
      return "duplicate parameter";
    case ErrorCode::kTooDeep:
      return "nesting too deep";
    case ErrorCode::kBadField:
      return "bad field";
    case ErrorCode::kTooLong:
      return "value too long";
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
  out.length = wire::load32(bytes.data() + 2);
  out.id = wire::load32(bytes.data() + 6);
  e.messageType = out.type;
  e.messageId = out.id;
  if (out.length < kHeaderSize) {
    e.code = ErrorCode::kBadLength;
    e.offset = 2;
    e.field = "MessageLength";
  } else if (out.length > maxFrameSize) {
    e.code = ErrorCode::kFrameTooLarge;
    e.offset = 2;
    e.field = "MessageLength";
  }
  return e;
}

Error decode(std::span<const uint8_t> frame, Message& out) {
  FrameHeader h;
  Error e = decodeHeader(frame, h);
  if (!e.ok()) return e;
  if (frame.size() < h.length) {
    e.code = ErrorCode::kTruncated;
    e.offset = static_cast<uint32_t>(frame.size());
    e.field = "message body";
    return e;
  }
  if (frame.size() > h.length) {
    e.code = ErrorCode::kBadLength;
    e.offset = h.length;
    e.field = "bytes after the frame";
    return e;
  }
  if (h.version != kVersion) {
    e.code = ErrorCode::kBadVersion;
    e.field = "Version";
    return e;
  }
  decoding::Decoder d;
  d.frame = frame.data();
  out.id = h.id;
  if (!decodeBody(d, h.type, wire::Range{kHeaderSize, h.length}, out.body)) {
    d.err.messageType = h.type;
    d.err.messageId = h.id;
    return d.err;
  }
  return d.err;
}

Error encode(const Message& message, std::vector<uint8_t>& out) {
  const size_t start = out.size();
  encoding::Encoder e(out, start);
  const uint16_t type = static_cast<uint16_t>(messageType(message.body));
  e.u16("MessageType", static_cast<uint16_t>((kVersion << 10) | (type & 0x3ff)));
  e.u32("MessageLength", 0);
  e.u32("MessageID", message.id);
  std::visit(
      [&e](const auto& body) {
        e.body<desc::MessageOf<std::decay_t<decltype(body)>>>(body);
      },
      message.body);
  e.finish();
  const size_t length = out.size() - start;
  if (e.err.ok() && length > kMaxFrameSize) {
    e.err.code = ErrorCode::kFrameTooLarge;
    e.err.parameter = messageName(static_cast<MessageType>(type));
    e.err.offset = kMaxFrameSize;
  }
  e.err.messageType = type;
  e.err.messageId = message.id;
  if (!e.err.ok()) {
    out.resize(start);
    return e.err;
  }
  out[start + 2] = static_cast<uint8_t>(length >> 24);
  out[start + 3] = static_cast<uint8_t>(length >> 16);
  out[start + 4] = static_cast<uint8_t>(length >> 8);
  out[start + 5] = static_cast<uint8_t>(length);
  return e.err;
}

LLRPStatus statusForError(const Error& error) {
  LLRPStatus s;
  switch (error.code) {
    case ErrorCode::kOk:
      s.statusCode = StatusCode::kSuccess;
      break;
    case ErrorCode::kBadVersion:
      s.statusCode = StatusCode::kMUnsupportedVersion;
      break;
    case ErrorCode::kUnknownMessage:
      s.statusCode = StatusCode::kMUnsupportedMessage;
      break;
    case ErrorCode::kMissingParameter:
      s.statusCode = StatusCode::kMMissingParameter;
      break;
    case ErrorCode::kDuplicateParameter:
      s.statusCode = StatusCode::kMDuplicateParameter;
      break;
    case ErrorCode::kUnknownTvType:
      s.statusCode = StatusCode::kMUnknownParameter;
      break;
    case ErrorCode::kBadField:
      s.statusCode = StatusCode::kMFieldError;
      break;
    default:
      s.statusCode = StatusCode::kMParameterError;
      break;
  }
  if (!error.ok()) s.errorDescription = error.text();
  return s;
}

}  // namespace tessera::llrp
