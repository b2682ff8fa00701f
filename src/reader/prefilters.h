// src/reader/prefilters.h — the relay section's pre-filters (up to two EPC byte patterns, matched
// at the start or the end of the EPC) installed on the reader before an inventory starts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "readerapi/rfid_types.h"

namespace tessera {

// Most pre-filters a configuration may hold.
inline constexpr size_t kMaxPreFilterTexts = 2;

// Replaces the reader's pre-filters with the configured ones; 0, or -1 when the configuration
// is refused (the reader is then left with none).
[[nodiscard]] int32_t applyPreFilters(ReaderHandle handle);
// Whether a filter text is hex digit pairs with at most a leading or a trailing "*"; logs a refusal.
[[nodiscard]] bool isByteStringFilter(const std::string& filter);
// Appends the bytes of a hex text to out; -1 (nothing appended) on a non-hex character.
[[nodiscard]] int32_t hexToBytes(const std::string& hex, std::vector<uint8_t>& out);
// Cuts a text at every separator; empty pieces included.
std::vector<std::string> splitText(const std::string& text, const std::string& separator);

// The record of one filter text as the reader API takes it (without the pattern pointer).
struct PreFilterPlan {
  std::vector<uint8_t> pattern;
  PreFilter record;
};
// Builds the record of the piece at `position` (0 first) for the mode and singulation settings.
PreFilterPlan planPreFilter(const std::string& piece, size_t position, int32_t preFilterMode,
                            const SingulationControl& singulation);

}  // namespace tessera
