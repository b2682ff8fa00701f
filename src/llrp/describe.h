// src/llrp/describe.h — one human-readable line per LLRP message, for traces and --verbose.
#pragma once

#include <string>

#include "llrp/records.h"

namespace tessera::llrp {

// The message on one line: name, ID and the fields that matter, e.g.
// "RO_ACCESS_REPORT id=7 tags=2 [EPC=300833B2DDD9014000000001 ant=1 rssi=-52 ...] ...".
std::string describe(const Message& message);

}  // namespace tessera::llrp
