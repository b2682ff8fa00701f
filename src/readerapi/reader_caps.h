// src/readerapi/reader_caps.h — the reader's LLRP capabilities as the library's ReaderCaps.
// Pure: no connection involved.
#pragma once

#include "llrp/records.h"
#include "readerapi/rfid_types.h"

namespace tessera::readerapi {

// The ReaderCaps of a GET_READER_CAPABILITIES_RESPONSE; what the reader left out stays 0, and
// tables longer than ReaderCaps holds are cut.
ReaderCaps toReaderCaps(const llrp::GetReaderCapabilitiesResponse& response);

}  // namespace tessera::readerapi
