// src/llrp/vendor_extension.h — the LLRP extensions Tessera's reader API and its reader
// simulator both speak: one vendor number, its subtypes and what their bytes mean.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tessera::llrp {

// The vendor number of the extensions: 32473 is the IANA enterprise number set aside for
// documentation (RFC 5612), so it can never clash with a real reader maker's. A reader that
// reports it as its manufacturer understands every extension below.
inline constexpr uint32_t kVendorId = 32473;

// Subtypes of Custom parameters (type 1023) of this vendor.
enum class VendorParameter : uint32_t {
  // In TagReportData: RF phase, data = s16 big-endian raw phase, degrees = raw * 180 / 32767.
  kPhase = 1,
};

// Subtypes of CUSTOM_MESSAGE of this vendor.
enum class VendorMessage : uint8_t {
  // Client to reader: save the current configuration so it survives a restart (no data).
  kSaveConfig = 1,
  // Reader to client, the answer to kSaveConfig: data = one LLRPStatus parameter (TLV 287).
  kSaveConfigReply = 2,
};

// The data bytes of a kPhase parameter carrying the raw phase.
inline std::vector<uint8_t> phaseData(int16_t raw) {
  const auto bits = static_cast<uint16_t>(raw);
  return {static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
}

// The raw phase in the data bytes of a kPhase parameter; nothing if there are too few bytes.
inline std::optional<int16_t> phaseFromData(std::span<const uint8_t> data) {
  if (data.size() < 2) return std::nullopt;
  return static_cast<int16_t>((uint16_t{data[0]} << 8) | data[1]);
}

}  // namespace tessera::llrp
