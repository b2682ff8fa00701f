// src/config/inventory_control.h — the InventoryControl value "Session,StartTrigger,StopTrigger,
// Number" (e.g. "S0,Immediate,Delay:5000,1"), shared by the serial and the relay sections.
#pragma once

#include "config/config_records.h"

namespace tessera {

// Parses the value (without its quotes) into `config`: 0, or -1 after a level-3 log line, with
// `config` filled as far as the parse got. When `failure` is given it receives the logged text.
[[nodiscard]] int parseInventoryControl(InventoryControlConfig& config, const char* text,
                                        const char** failure = nullptr);

}  // namespace tessera
