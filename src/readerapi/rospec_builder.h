// src/readerapi/rospec_builder.h — turns the library's inventory request (triggers, antennas,
// singulation, pre-filters, tag fields) into one LLRP ROSpec. Pure: no connection involved.
//
// Trigger mapping (LLRP 1.0.1):
// - start Immediate: ROSpecStartTrigger Null, and the caller sends START_ROSPEC after
//   ENABLE_ROSPEC, so that the reply tells whether the reader really started;
// - start Periodic: ROSpecStartTrigger Periodic (offset 0, period ms);
// - start Gpi: ROSpecStartTrigger GPI (port, event: flag false = the input goes high);
// - stop Duration: ROSpecStopTrigger Duration (0 ms means no limit);
// - stop Gpi: ROSpecStopTrigger GPI_With_Timeout (port, event as above, time-out);
// - stop TagCount: AISpecStopTrigger Tag_Observation "upon seeing N tags", N = tagCount;
// - stop RoundCount: LLRP has no round counter; AISpecStopTrigger Tag_Observation "N attempts
//   to see all tags in the field of view", NumberOfAttempts = roundCount, which a reader counts
//   in inventory rounds;
// - stop None: runs until STOP_ROSPEC.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "llrp/records.h"
#include "readerapi/rfid_records.h"
#include "readerapi/rfid_types.h"

namespace tessera::readerapi {

// A pre-filter as the library keeps it (the caller's pattern copied).
struct StoredPreFilter {
  uint32_t index = 0;
  uint16_t antennaId = 0;  // 0: every antenna
  uint32_t memoryBank = 1;
  std::vector<uint8_t> pattern;
  uint16_t patternBitCount = 0;
  uint16_t bitOffset = 0;
  uint32_t filterType = PREFILTER_STATE_UNAWARE;
  uint32_t targetOrAction = 0;  // state-aware target, or the state-unaware action
  uint32_t stateAwareAction = 0;
};

// One antenna of the inventory.
struct AntennaPlan {
  uint16_t antennaId = 0;
  std::optional<llrp::RFReceiver> receiver;        // from the reader's configuration, if known
  std::optional<llrp::RFTransmitter> transmitter;  // idem: carries the power index
  SingulationControl singulation;
  std::vector<StoredPreFilter> filters;  // those of this antenna and of antenna 0, in index order
};

struct InventoryRequest {
  uint32_t roSpecId = 1;
  TriggerRecord triggers;
  std::vector<AntennaPlan> antennas;
  uint16_t tagFields = kDefaultTagFields;
  bool readerStateAware = false;  // the reader can do state-aware singulation
};

// The ROSpec for a request. Sets needsStart when the caller must send START_ROSPEC itself.
llrp::ROSpec buildRoSpec(const InventoryRequest& request, bool& needsStart);

// Whether the ROSpec's start trigger restarts it by itself (periodic or GPI): such an inventory
// stays in force after one run ends.
bool restartsByItself(const TriggerRecord& triggers);

}  // namespace tessera::readerapi
