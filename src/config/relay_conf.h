// src/config/relay_conf.h — the relay section (TagrelayConfig or EasyTagrelayConfig) and the
// AntennaConfig lines: output channel, autostart, TagMetaData, triggers, pre-filters, antennas
// and heartbeat period.
#pragma once

#include <cstdint>

#include "config/config_records.h"
#include "config/config_scan.h"

namespace tessera {

// Reads the first relay section line and every AntennaConfig line into `relay` (its
// InventoryControl into `inventory`): 0, also for a missing file or section or relay mode 0;
// -1 when the InventoryControl value was refused (the rest is still read).
[[nodiscard]] int32_t readRelayConfig(RelayConfig& relay, InventoryControlConfig& inventory,
                                      ConfigNotes* notes = nullptr);

}  // namespace tessera
