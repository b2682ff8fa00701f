// src/llrp/codec.h — LLRP 1.0.1 binary encoding: typed records (records.h) to frames and back.
//
// Decoding never trusts a length: every length is checked against the bytes that are there and
// against its parent, nesting is capped at kMaxDepth, and a frame longer than kMaxFrameSize is
// refused before anything is allocated for it. A failure is an Error naming what went wrong,
// the parameter and field being read and the byte offset in the frame; nothing throws.
//
// Both directions walk one description per record (descriptions_*.h), which covers every
// message and parameter of LLRP 1.0.1. Sub-parameters may come in any order; they are written
// in the order LLRP lists them. A well-formed TLV or TV parameter that is not expected where it
// stands (a type LLRP does not define there) is skipped; a TV parameter of an unknown type
// cannot be skipped (its width is unknown), so it fails the frame. A parameter that must
// appear once and is missing, or that may appear once and repeats, fails the frame. Reserved
// bits are ignored when read and written as zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "llrp/records.h"

namespace tessera::llrp {

// Largest frame accepted or produced, header included. A reader's biggest messages are
// RO_ACCESS_REPORTs; a dense inventory reported only at the end of its ROSpec, with OpSpec
// results, passes 1 MiB. 16 MiB holds about 240000 fully populated tag reports and still
// refuses a length that is garbage. It is a cap, not a buffer size: nothing is allocated
// from it.
constexpr uint32_t kMaxFrameSize = 16u << 20;
// Size of the message header: type word, length, message ID.
constexpr uint32_t kHeaderSize = 10;
// The protocol version this codec speaks (LLRP 1.0.1).
constexpr uint8_t kVersion = 1;
// Deepest TLV nesting accepted below the message (the deepest valid frame needs 7).
constexpr int kMaxDepth = 16;

enum class ErrorCode : int {
  kOk = 0,
  kTruncated = -1,           // the bytes end before the frame, a parameter or a field does
  kBadLength = -2,           // a length is below its header size, past its parent, or leaves bytes
  kFrameTooLarge = -3,       // the announced or produced length is above kMaxFrameSize
  kBadVersion = -4,          // header version is not 1
  kUnknownMessage = -5,      // message type this codec does not model
  kUnknownTvType = -6,       // TV parameter type with no known width
  kMissingParameter = -7,    // a required parameter is absent
  kDuplicateParameter = -8,  // a parameter allowed once appears again
  kTooDeep = -9,             // nesting deeper than kMaxDepth
  kBadField = -10,           // a field value is inconsistent (bit count vs bytes, u2 overflow...)
  kTooLong = -11,            // encode: a value or parameter does not fit its length field
};

// The result of a codec call. code 0 is success; the rest locate the failure.
struct [[nodiscard]] Error {
  ErrorCode code = ErrorCode::kOk;
  uint32_t offset = 0;         // byte offset from the start of the frame where it failed
  const char* parameter = "";  // message or parameter being read or written, e.g. "TagReportData"
  const char* field = "";      // field or sub-parameter, e.g. "PeakRSSI"; "" when not known
  uint16_t parameterType = 0;  // type number of the offending sub-parameter, 0 when none
  uint16_t messageType = 0;    // from the header, once it has been read
  uint32_t messageId = 0;      // from the header, once it has been read

  bool ok() const { return code == ErrorCode::kOk; }
  // One line, e.g. "truncated at byte 37 in TagReportData (PeakRSSI)".
  std::string text() const;
};

// The fixed part of every frame.
struct FrameHeader {
  uint8_t version = 0;
  uint16_t type = 0;    // 10-bit message type
  uint32_t length = 0;  // whole frame, header included
  uint32_t id = 0;
};

// Reads the header at the start of bytes; fails when fewer than 10 bytes are given, the length
// is below the header size or above maxFrameSize. The version is returned, not checked.
[[nodiscard]] Error decodeHeader(std::span<const uint8_t> bytes, FrameHeader& out,
                                 uint32_t maxFrameSize = kMaxFrameSize);
// Decodes exactly one frame (bytes must hold the frame and nothing after it) into out.
[[nodiscard]] Error decode(std::span<const uint8_t> frame, Message& out);
// Appends the frame of a message to out (version 1); out is left as it was on failure.
[[nodiscard]] Error encode(const Message& message, std::vector<uint8_t>& out);
// The text of an error code ("truncated", "bad length", ...).
const char* errorCodeName(ErrorCode code);
// The LLRPStatus a reader answers to a frame that failed to decode with this error, e.g.
// M_UnsupportedVersion for kBadVersion, M_UnsupportedMessage for kUnknownMessage.
LLRPStatus statusForError(const Error& error);

}  // namespace tessera::llrp
