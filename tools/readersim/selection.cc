// tools/readersim/selection.cc — Gen2 Select and singulation state over the population.
#include "selection.h"

#include "capabilities.h"

namespace tessera::readersim {

namespace {

enum Effect { kNoop, kAssert, kDeassert, kNegate };

struct ActionEffects {
  Effect matching;
  Effect nonMatching;
};

// C1G2StateAwareAction 0..7: "assert" is SL asserted or inventoried A.
constexpr ActionEffects kStateAware[8] = {
    {kAssert, kDeassert}, {kAssert, kNoop},   {kNoop, kDeassert}, {kNegate, kNoop},
    {kDeassert, kAssert}, {kDeassert, kNoop}, {kNoop, kAssert},   {kNoop, kNegate},
};
// C1G2StateUnawareAction 0..5 on SL: Select_Unselect, Select_DoNothing, DoNothing_Unselect,
// Unselect_DoNothing, Unselect_Select, DoNothing_Select.
constexpr ActionEffects kStateUnaware[6] = {
    {kAssert, kDeassert}, {kAssert, kNoop},   {kNoop, kDeassert},
    {kDeassert, kNoop},   {kDeassert, kAssert}, {kNoop, kAssert},
};

void apply(Effect e, bool& flag) {
  switch (e) {
    case kAssert: flag = true; break;
    case kDeassert: flag = false; break;
    case kNegate: flag = !flag; break;
    case kNoop: break;
  }
}

}  // namespace

bool maskMatches(const Population& population, size_t i, const TagFilter& filter) {
  if (filter.maskBits == 0) return true;
  if (static_cast<size_t>(filter.maskBits) > filter.mask.size() * 8) return false;
  std::vector<uint8_t> bank = population.bank(i, filter.memoryBank);
  size_t bankBits = bank.size() * 8;
  if (static_cast<size_t>(filter.pointer) + filter.maskBits > bankBits) return false;
  for (size_t b = 0; b < filter.maskBits; ++b) {
    size_t at = filter.pointer + b;
    bool tagBit = (bank[at / 8] >> (7 - at % 8)) & 1;
    bool maskBit = (filter.mask[b / 8] >> (7 - b % 8)) & 1;
    if (tagBit != maskBit) return false;
  }
  return true;
}

bool tagSelected(const Population& population, size_t i, const InventoryCommand& command) {
  if (command.filters.empty()) return true;
  // Power-up state of a Gen2 tag: SL deasserted, every inventoried flag A.
  bool sl = false;
  bool inventoriedA[4] = {true, true, true, true};
  bool slTargeted = false;
  for (const TagFilter& f : command.filters) {
    bool match = maskMatches(population, i, f);
    if (command.stateAware && f.hasStateAware) {
      ActionEffects fx = kStateAware[f.stateAwareAction & 7];
      bool& flag = f.target == 0 ? sl : inventoriedA[(f.target - 1) & 3];
      if (f.target == 0) slTargeted = true;
      apply(match ? fx.matching : fx.nonMatching, flag);
    } else {
      uint8_t action = f.hasStateUnaware ? f.stateUnawareAction : 0;
      ActionEffects fx = kStateUnaware[action < 6 ? action : 0];
      slTargeted = true;
      apply(match ? fx.matching : fx.nonMatching, sl);
    }
  }
  if (!command.stateAware) return sl;
  uint8_t session = command.hasSingulation ? (command.session & 3) : 0;
  bool wantA = !command.hasSingulationAction || command.stateI == 0;
  if (inventoriedA[session] != wantA) return false;
  if (!slTargeted) return true;
  bool wantSl = !command.hasSingulationAction || command.stateS == 0;
  return sl == wantSl;
}

std::string checkInventoryCommand(const InventoryCommand& command) {
  if (command.filters.size() > kMaxSelectFiltersCap) {
    return "at most " + std::to_string(kMaxSelectFiltersCap) + " C1G2Filters per inventory command";
  }
  for (const TagFilter& f : command.filters) {
    if (static_cast<size_t>(f.maskBits) > f.mask.size() * 8) return "TagMask shorter than its bit count";
    if (f.hasStateAware && f.stateAwareAction > 7) return "state-aware filter action out of range";
    if (f.hasStateAware && f.target > 4) return "state-aware filter target out of range";
    if (f.hasStateUnaware && f.stateUnawareAction > 5) return "state-unaware filter action out of range";
  }
  return std::string();
}

}  // namespace tessera::readersim
