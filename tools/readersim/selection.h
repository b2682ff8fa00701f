// tools/readersim/selection.h — which tags an inventory on one antenna singulates: Gen2
// Select filters (state-aware or not) over the tag's memory banks, then the singulation state.
#pragma once

#include "model.h"
#include "population.h"

namespace tessera::readersim {

// Whether the mask matches the bank bits of tag i (a mask beyond the bank end never matches).
bool maskMatches(const Population& population, size_t i, const TagFilter& filter);
// Whether the inventory command lets tag i take part (no filters: every tag).
bool tagSelected(const Population& population, size_t i, const InventoryCommand& command);
// A one-line check of an InventoryCommand that the reader cannot carry out; empty when fine.
std::string checkInventoryCommand(const InventoryCommand& command);

}  // namespace tessera::readersim
