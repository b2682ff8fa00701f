// tools/readersim/engine.cc — ROSpec state machine, triggers, reads and report accumulation.
#include "engine.h"

#include <algorithm>
#include <cmath>

#include "capabilities.h"
#include "selection.h"

namespace tessera::readersim {

namespace {

using std::chrono::milliseconds;

constexpr size_t kMaxRoSpecs = kMaxRoSpecsCap;
constexpr size_t kMaxAiSpecs = kMaxSpecsPerRoSpecCap;
constexpr size_t kMaxReadsPerTick = 4096;
// A round over an empty field still takes the air time of an empty Gen2 inventory round.
constexpr milliseconds kEmptyRoundTime{20};
// The hop dwell of the simulated FCC hop table.
constexpr int kHopDwellMs = 200;
constexpr int kHopChannels = 50;

uint64_t utcMicros() {
  using namespace std::chrono;
  return static_cast<uint64_t>(
      duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

const char* stateName(uint8_t s) {
  switch (s) {
    case 0: return "Disabled";
    case 1: return "Inactive";
    default: return "Active";
  }
}

Clock::time_point earlier(Clock::time_point a, Clock::time_point b) { return a < b ? a : b; }

}  // namespace

Engine::Engine(const Options& options, const Population& population, const ReaderConfig& config,
               EngineSink& sink)
    : options_(options), population_(population), config_(config), sink_(sink),
      rate_(options.rate) {}

Status Engine::add(RoSpecDef def, Clock::time_point now) {
  (void)now;
  if (def.id == 0) return Status::error(kPFieldError, "ROSpecID 0 is reserved");
  if (rospecs_.count(def.id) != 0) {
    return Status::error(kInvalid, "ROSpec " + std::to_string(def.id) + " already exists");
  }
  if (rospecs_.size() >= kMaxRoSpecs) {
    return Status::error(kOutOfRange, "the reader holds at most " + std::to_string(kMaxRoSpecs) +
                                          " ROSpecs");
  }
  if (def.aiSpecs.empty()) return Status::error(kPMissingParameter, "ROSpec has no AISpec");
  if (def.aiSpecs.size() > kMaxAiSpecs) {
    return Status::error(kOutOfRange, "at most " + std::to_string(kMaxAiSpecs) +
                                          " AISpecs per ROSpec");
  }
  if (def.priority > 7) return Status::error(kPFieldError, "Priority above 7");
  auto gpiOk = [&](const GpiTrigger& g) { return g.port >= 1 && g.port <= options_.gpis; };
  if (def.start.type > 3) return Status::error(kPFieldError, "unknown ROSpecStartTriggerType");
  if (def.start.type == 3 && !gpiOk(def.start.gpi)) {
    return Status::error(kPFieldError, "GPI start trigger names port " +
                                           std::to_string(def.start.gpi.port) + " of " +
                                           std::to_string(options_.gpis));
  }
  if (def.stop.type > 2) return Status::error(kPFieldError, "unknown ROSpecStopTriggerType");
  if (def.stop.type == 2 && !gpiOk(def.stop.gpi)) {
    return Status::error(kPFieldError, "GPI stop trigger names port " +
                                           std::to_string(def.stop.gpi.port) + " of " +
                                           std::to_string(options_.gpis));
  }
  for (const AiSpecDef& ai : def.aiSpecs) {
    if (ai.antennaIds.empty()) return Status::error(kPFieldError, "AISpec lists no antenna");
    for (uint16_t a : ai.antennaIds) {
      if (a > options_.antennas || (a == 0 && ai.antennaIds.size() != 1)) {
        return Status::error(kPFieldError, "AISpec names antenna " + std::to_string(a) +
                                               " of " + std::to_string(options_.antennas));
      }
    }
    if (ai.stop.type > 3) return Status::error(kPFieldError, "unknown AISpecStopTriggerType");
    if (ai.stop.type == 2 && !gpiOk(ai.stop.gpi)) {
      return Status::error(kPFieldError, "AISpec GPI stop trigger names port " +
                                             std::to_string(ai.stop.gpi.port));
    }
    if (ai.stop.type == 3 && ai.stop.observation.type > 2) {
      return Status::error(kPFieldError, "unknown TagObservationTriggerType");
    }
    if (ai.inventory.empty()) {
      return Status::error(kPMissingParameter, "AISpec has no InventoryParameterSpec");
    }
    for (const InventoryParams& ip : ai.inventory) {
      for (const AntennaOverride& ov : ip.antennas) {
        if (ov.id > options_.antennas) {
          return Status::error(kPFieldError, "AntennaConfiguration names antenna " +
                                                 std::to_string(ov.id));
        }
        if (ov.hasTransmitter &&
            (ov.transmitPower < 1 || ov.transmitPower > powerTableSize(options_))) {
          return Status::error(kPFieldError, "TransmitPower index " +
                                                 std::to_string(ov.transmitPower) +
                                                 " is not in the power table");
        }
        if (ov.hasInventory) {
          std::string why = checkInventoryCommand(ov.inventory);
          if (!why.empty()) return Status::error(kPFieldError, why);
        }
      }
    }
  }
  RoSpec s;
  s.def = std::move(def);
  uint32_t id = s.def.id;
  rospecs_.emplace(id, std::move(s));
  return Status::ok();
}

Status Engine::forEach(uint32_t id, const char* verb,
                       Status (Engine::*op)(RoSpec&, Clock::time_point), Clock::time_point now) {
  if (id != 0) {
    auto it = rospecs_.find(id);
    if (it == rospecs_.end()) {
      return Status::error(kInvalid, std::string("cannot ") + verb + ": no ROSpec " +
                                         std::to_string(id));
    }
    return (this->*op)(it->second, now);
  }
  for (auto& [key, roSpec] : rospecs_) {
    Status st = (this->*op)(roSpec, now);
    if (!st.isOk()) return st;
  }
  return Status::ok();
}

Status Engine::remove(uint32_t id, Clock::time_point now) {
  Status st = forEach(id, "delete", &Engine::disableOne, now);
  if (!st.isOk()) return st;
  if (id == 0) {
    rospecs_.clear();
  } else {
    rospecs_.erase(id);
  }
  return Status::ok();
}

Status Engine::enable(uint32_t id, Clock::time_point now) {
  return forEach(id, "enable", &Engine::enableOne, now);
}

Status Engine::disable(uint32_t id, Clock::time_point now) {
  return forEach(id, "disable", &Engine::disableOne, now);
}

Status Engine::enableOne(RoSpec& s, Clock::time_point now) {
  if (s.state != kDisabled) return Status::ok();
  s.state = kInactive;
  if (s.def.start.type == 2) {
    armPeriodic(s, now, true);
  } else if (s.def.start.type == 1 && activeRoSpec() == nullptr) {
    startRoSpec(s, now);
  }
  return Status::ok();
}

Status Engine::disableOne(RoSpec& s, Clock::time_point now) {
  if (s.state == kActive) endRoSpec(s, now);
  s.state = kDisabled;
  s.periodicArmed = false;
  return Status::ok();
}

Status Engine::start(uint32_t id, Clock::time_point now) {
  if (id == 0) return Status::error(kInvalid, "START_ROSPEC needs a ROSpecID other than 0");
  auto it = rospecs_.find(id);
  if (it == rospecs_.end()) return Status::error(kInvalid, "no ROSpec " + std::to_string(id));
  RoSpec& s = it->second;
  if (s.state == kDisabled) {
    return Status::error(kInvalid, "ROSpec " + std::to_string(id) + " is disabled");
  }
  if (s.state == kActive) {
    return Status::error(kInvalid, "ROSpec " + std::to_string(id) + " is already active");
  }
  if (RoSpec* other = activeRoSpec()) {
    return Status::error(kInvalid, "ROSpec " + std::to_string(other->def.id) + " is active");
  }
  startRoSpec(s, now);
  return Status::ok();
}

Status Engine::stop(uint32_t id, Clock::time_point now) {
  if (id == 0) return Status::error(kInvalid, "STOP_ROSPEC needs a ROSpecID other than 0");
  auto it = rospecs_.find(id);
  if (it == rospecs_.end()) return Status::error(kInvalid, "no ROSpec " + std::to_string(id));
  if (it->second.state != kActive) {
    return Status::error(kInvalid, "ROSpec " + std::to_string(id) + " is not active");
  }
  endRoSpec(it->second, now);
  return Status::ok();
}

void Engine::flushReports() {
  for (auto& [id, s] : rospecs_) emit(s);
}

void Engine::gpiChanged(uint16_t port, bool high, Clock::time_point now) {
  uint32_t stopped = 0;  // a ROSpec this very edge stopped does not start again on it
  if (RoSpec* a = activeRoSpec()) {
    const StopTrigger& st = a->def.stop;
    if (st.type == 2 && st.gpi.port == port && st.gpi.event == high) {
      stopped = a->def.id;
      endRoSpec(*a, now);
    } else if (a->aiIndex < a->def.aiSpecs.size()) {
      const AiStopTrigger& ai = a->def.aiSpecs[a->aiIndex].stop;
      if (ai.type == 2 && ai.gpi.port == port && ai.gpi.event == high) endAi(*a, now);
    }
  }
  if (activeRoSpec() != nullptr) return;
  for (auto& [id, s] : rospecs_) {
    const StartTrigger& t = s.def.start;
    if (s.state == kInactive && t.type == 3 && t.gpi.port == port && t.gpi.event == high &&
        id != stopped) {
      startRoSpec(s, now);
      break;
    }
  }
}

std::string Engine::describeROSpecs() const {
  std::string out;
  for (const auto& [id, s] : rospecs_) {
    if (!out.empty()) out += ' ';
    out += std::to_string(id) + "=" + stateName(s.state);
  }
  return out;
}

Engine::RoSpec* Engine::activeRoSpec() {
  for (auto& [id, s] : rospecs_) {
    if (s.state == kActive) return &s;
  }
  return nullptr;
}

const RoReportDef& Engine::roReportOf(const RoSpec& s) const {
  return s.def.hasReport ? s.def.report : config_.roReport;
}

void Engine::armPeriodic(RoSpec& s, Clock::time_point from, bool first) {
  const StartTrigger& t = s.def.start;
  if (first) {
    Clock::time_point at = from + milliseconds(t.offsetMs);
    if (t.hasUtc) {
      // A UTC start time is mapped onto the monotonic clock once, when the ROSpec is enabled.
      int64_t deltaUs = static_cast<int64_t>(t.utcUs) - static_cast<int64_t>(utcMicros());
      at = from + std::chrono::microseconds(std::max<int64_t>(deltaUs, 0)) +
           milliseconds(t.offsetMs);
    }
    s.nextPeriodicStart = at;
    s.periodicArmed = true;
    return;
  }
  if (t.periodMs == 0) {
    s.periodicArmed = false;
    return;
  }
  while (s.nextPeriodicStart <= from) s.nextPeriodicStart += milliseconds(t.periodMs);
  s.periodicArmed = true;
}

void Engine::startRoSpec(RoSpec& s, Clock::time_point now) {
  s.state = kActive;
  s.startedAt = now;
  s.aiIndex = 0;
  if (s.def.start.type == 2 && s.periodicArmed) armPeriodic(s, now, false);
  tokens_ = 0;
  lastTick_ = now;
  sink_.roSpecStarted(s.def.id);
  beginAi(s, now);
}

void Engine::endRoSpec(RoSpec& s, Clock::time_point now) {
  (void)now;
  if (s.aiIndex < s.def.aiSpecs.size()) {
    if (roReportOf(s).trigger == 1) emit(s);
    sink_.aiSpecEnded(s.def.id, static_cast<uint16_t>(s.aiIndex + 1));
  }
  if (roReportOf(s).trigger != 0) emit(s);
  s.state = kInactive;
  s.aiIndex = s.def.aiSpecs.size();
  runs_.clear();
  visibilityDirty_ = true;
  sink_.roSpecEnded(s.def.id);
}

void Engine::beginAi(RoSpec& s, Clock::time_point now) {
  s.aiStartedAt = now;
  s.seen.assign(population_.size(), false);
  s.seenCount = 0;
  s.lastNewTagAt = now;
  s.readsThisRound = 0;
  s.rounds = 0;
  s.roundStartedAt = now;
  visibilityDirty_ = true;
}

void Engine::endAi(RoSpec& s, Clock::time_point now) {
  if (roReportOf(s).trigger == 1) emit(s);
  sink_.aiSpecEnded(s.def.id, static_cast<uint16_t>(s.aiIndex + 1));
  ++s.aiIndex;
  if (s.aiIndex >= s.def.aiSpecs.size()) {
    // The last ROSpec of the list is done: so is the ROSpec.
    s.aiIndex = s.def.aiSpecs.size();
    if (roReportOf(s).trigger != 0) emit(s);
    s.state = kInactive;
    runs_.clear();
    visibilityDirty_ = true;
    sink_.roSpecEnded(s.def.id);
    return;
  }
  beginAi(s, now);
}

void Engine::emit(RoSpec& s) {
  if (s.pending.empty()) return;
  std::vector<TagRead> reads;
  reads.swap(s.pending);
  s.pendingAt.clear();
  sink_.report(std::move(reads), roReportOf(s).content);
}

void Engine::rebuildVisibility(const RoSpec& s) {
  visibilityDirty_ = false;
  runs_.clear();
  antennaCursor_ = 0;
  if (s.aiIndex >= s.def.aiSpecs.size()) return;
  const AiSpecDef& ai = s.def.aiSpecs[s.aiIndex];
  std::vector<uint16_t> ids;
  if (ai.antennaIds.size() == 1 && ai.antennaIds[0] == 0) {
    for (unsigned a = 1; a <= options_.antennas; ++a) ids.push_back(static_cast<uint16_t>(a));
  } else {
    ids = ai.antennaIds;
  }
  const InventoryParams* ip = ai.inventory.empty() ? nullptr : &ai.inventory[0];
  unsigned tableSize = powerTableSize(options_);
  for (uint16_t a : ids) {
    if (a < 1 || a > config_.antennas.size() || !config_.antennaConnected[a - 1]) continue;
    AntennaSettings eff = config_.antennas[a - 1];
    if (ip != nullptr) {
      for (const AntennaOverride& ov : ip->antennas) {
        if (ov.id != 0 && ov.id != a) continue;
        if (ov.hasReceiver) eff.receiverSensitivity = ov.receiverSensitivity;
        if (ov.hasTransmitter) {
          eff.transmitPower = ov.transmitPower;
          eff.hopTableId = ov.hopTableId;
          eff.channelIndex = ov.channelIndex;
        }
        if (ov.hasInventory) eff.inventory = ov.inventory;
      }
    }
    AntennaRun run;
    run.id = a;
    run.inventoryParameterSpecId = ip != nullptr ? ip->id : 0;
    unsigned power = std::clamp<unsigned>(eff.transmitPower, 1, tableSize);
    double fraction = static_cast<double>(power) / tableSize;
    run.powerDeficitDb = (powerTableValue(options_, tableSize) - powerTableValue(options_, power)) / 100.0;
    for (size_t i = 0; i < population_.size(); ++i) {
      if (population_.visible(i, fraction) && tagSelected(population_, i, eff.inventory)) {
        run.visible.push_back(static_cast<uint32_t>(i));
      }
    }
    // Antennas do not all begin with the same tag: a real field answers in no fixed order.
    if (!run.visible.empty()) run.cursor = (a * 7919u + s.def.id) % run.visible.size();
    runs_.push_back(std::move(run));
  }
}

void Engine::produce(RoSpec& s, size_t count, Clock::time_point now) {
  size_t pairs = 0;
  for (const AntennaRun& r : runs_) pairs += r.visible.size();
  if (pairs == 0 || count == 0) return;
  const AiSpecDef& ai = s.def.aiSpecs[s.aiIndex];
  const RoReportDef& rs = roReportOf(s);
  uint64_t utc = utcMicros();
  int64_t sinceStartMs =
      std::chrono::duration_cast<milliseconds>(now.time_since_epoch()).count();
  for (size_t k = 0; k < count; ++k) {
    // Round-robin over the antennas that see something.
    AntennaRun* run = nullptr;
    for (size_t tries = 0; tries < runs_.size(); ++tries) {
      AntennaRun& r = runs_[antennaCursor_ % runs_.size()];
      antennaCursor_ = (antennaCursor_ + 1) % runs_.size();
      if (!r.visible.empty()) {
        run = &r;
        break;
      }
    }
    if (run == nullptr) return;
    uint32_t tag = run->visible[run->cursor % run->visible.size()];
    run->cursor = (run->cursor + 1) % run->visible.size();
    ++readNo_;
    // The reader hops (FrequencyInformation.Hopping): RFTransmitter's ChannelIndex is kept
    // for GET_READER_CONFIG but the channel of a read follows the hop sequence.
    uint16_t channel = static_cast<uint16_t>(1 + (sinceStartMs / kHopDwellMs) % kHopChannels);
    uint64_t key = (static_cast<uint64_t>(tag) << 16) | run->id;
    auto it = s.pendingAt.find(key);
    if (it != s.pendingAt.end()) {
      TagRead& r = s.pending[it->second];
      if (r.seenCount < 0xFFFF) ++r.seenCount;
      r.lastSeenUs = utc;
      r.rssi = std::max(r.rssi, population_.rssi(tag, run->id, run->powerDeficitDb, readNo_));
      r.channel = channel;
      r.phase = population_.phase(tag, run->id, channel, readNo_);
    } else {
      TagRead r;
      r.tagIndex = tag;
      r.roSpecId = s.def.id;
      r.specIndex = static_cast<uint16_t>(s.aiIndex + 1);
      r.inventoryParameterSpecId = run->inventoryParameterSpecId;
      r.antenna = run->id;
      r.rssi = population_.rssi(tag, run->id, run->powerDeficitDb, readNo_);
      r.channel = channel;
      r.firstSeenUs = utc;
      r.lastSeenUs = utc;
      r.seenCount = 1;
      r.phase = population_.phase(tag, run->id, channel, readNo_);
      s.pendingAt.emplace(key, s.pending.size());
      s.pending.push_back(r);
    }
    if (!s.seen[tag]) {
      s.seen[tag] = true;
      ++s.seenCount;
      s.lastNewTagAt = now;
    }
    if (++s.readsThisRound >= pairs) {
      s.readsThisRound = 0;
      ++s.rounds;
    }
    if (rs.trigger != 0 && rs.n != 0 && s.pending.size() >= rs.n) emit(s);
    // A tag observation stop ends the AISpec at the read that satisfies it.
    if (ai.stop.type == 3) {
      const TagObservation& o = ai.stop.observation;
      if (o.type == 0 && o.numberOfTags != 0 && s.seenCount >= o.numberOfTags) return;
      if (o.type == 2 && o.numberOfAttempts != 0 && s.rounds >= o.numberOfAttempts) return;
    }
  }
}

bool Engine::aiStopDue(RoSpec& s, Clock::time_point now, Clock::time_point& next) {
  const AiStopTrigger& t = s.def.aiSpecs[s.aiIndex].stop;
  auto due = [&](Clock::time_point at) {
    if (now >= at) return true;
    next = earlier(next, at);
    return false;
  };
  switch (t.type) {
    case 1:
      return due(s.aiStartedAt + milliseconds(t.durationMs));
    case 2:
      return t.gpi.timeoutMs != 0 && due(s.aiStartedAt + milliseconds(t.gpi.timeoutMs));
    case 3: {
      const TagObservation& o = t.observation;
      if (o.timeoutMs != 0 && due(s.aiStartedAt + milliseconds(o.timeoutMs))) return true;
      if (o.type == 0) return o.numberOfTags != 0 && s.seenCount >= o.numberOfTags;
      if (o.type == 1) return o.tMs != 0 && due(s.lastNewTagAt + milliseconds(o.tMs));
      if (o.numberOfAttempts == 0) return false;
      size_t pairs = 0;
      for (const AntennaRun& r : runs_) pairs += r.visible.size();
      if (pairs == 0) {
        auto elapsed = now - s.roundStartedAt;
        s.rounds = static_cast<uint32_t>(elapsed / kEmptyRoundTime);
        if (s.rounds < o.numberOfAttempts) {
          next = earlier(next, s.roundStartedAt + kEmptyRoundTime * o.numberOfAttempts);
        }
      }
      return s.rounds >= o.numberOfAttempts;
    }
    default:
      return false;
  }
}

Clock::time_point Engine::tick(Clock::time_point now) {
  Clock::time_point next = now + std::chrono::seconds(1);
  // Periodic starts: an occurrence that falls while another ROSpec runs is skipped.
  for (auto& [id, s] : rospecs_) {
    if (!s.periodicArmed) continue;
    if (now >= s.nextPeriodicStart) {
      if (s.state == kInactive && activeRoSpec() == nullptr) {
        startRoSpec(s, now);
      } else {
        armPeriodic(s, now, false);
      }
    }
    if (s.periodicArmed) next = earlier(next, s.nextPeriodicStart);
  }
  RoSpec* a = activeRoSpec();
  if (a == nullptr) {
    tokens_ = 0;
    lastTick_ = now;
    return next;
  }
  if (visibilityDirty_) rebuildVisibility(*a);
  // Reads due since the last tick.
  size_t count = 0;
  if (rate_ > 0) {
    double dt = std::chrono::duration<double>(now - lastTick_).count();
    tokens_ = std::min(tokens_ + rate_ * std::max(dt, 0.0), std::max(1.0, rate_ * 0.25));
    count = static_cast<size_t>(std::min<double>(std::floor(tokens_), kMaxReadsPerTick));
    tokens_ -= static_cast<double>(count);
  } else {
    count = std::min(sink_.readRoom(), kMaxReadsPerTick);
  }
  lastTick_ = now;
  produce(*a, count, now);
  // Stop triggers, the ROSpec's first.
  const StopTrigger& st = a->def.stop;
  bool roDone = false;
  if (st.type == 1) {
    Clock::time_point at = a->startedAt + milliseconds(st.durationMs);
    if (now >= at) roDone = true; else next = earlier(next, at);
  } else if (st.type == 2 && st.gpi.timeoutMs != 0) {
    Clock::time_point at = a->startedAt + milliseconds(st.gpi.timeoutMs);
    if (now >= at) roDone = true; else next = earlier(next, at);
  }
  if (roDone) {
    endRoSpec(*a, now);
    return earlier(next, now + milliseconds(1));
  }
  if (a->aiIndex < a->def.aiSpecs.size() && aiStopDue(*a, now, next)) {
    endAi(*a, now);
    return earlier(next, now + milliseconds(1));
  }
  bool anyVisible = false;
  for (const AntennaRun& r : runs_) anyVisible = anyVisible || !r.visible.empty();
  if (anyVisible) {
    if (rate_ > 0) {
      double wait = std::max((1.0 - tokens_) / rate_, 0.002);
      next = earlier(next, now + std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(wait)));
    } else {
      next = earlier(next, now + milliseconds(20));
    }
  }
  return next;
}

}  // namespace tessera::readersim
