// tools/readersim/engine.h — the reader's operation engine: ROSpecs and their state machine,
// start/stop triggers, AISpecs with their stop triggers, tag reads at the configured rate and
// report accumulation per ROReportSpec. Pure logic driven by tick(now); not thread-aware (the
// Reader calls it under its lock).
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "model.h"
#include "options.h"
#include "population.h"

namespace tessera::readersim {

using Clock = std::chrono::steady_clock;

// What the engine produces; implemented by the Reader.
class EngineSink {
 public:
  virtual ~EngineSink() = default;
  virtual void roSpecStarted(uint32_t roSpecId) = 0;
  virtual void roSpecEnded(uint32_t roSpecId) = 0;
  virtual void aiSpecEnded(uint32_t roSpecId, uint16_t specIndex) = 0;
  // Hands over one report's reads with the content selector in force.
  virtual void report(std::vector<TagRead>&& reads, const ContentSelector& content) = 0;
  // Link-speed mode: how many more reads the client can take now (0 = wait).
  virtual size_t readRoom() = 0;
};

class Engine {
 public:
  Engine(const Options& options, const Population& population, const ReaderConfig& config,
         EngineSink& sink);

  // ADD_ROSPEC: the ROSpec is stored Disabled.
  Status add(RoSpecDef def, Clock::time_point now);
  // DELETE_ROSPEC (0 = all); an active ROSpec ends first.
  Status remove(uint32_t id, Clock::time_point now);
  // ENABLE_ROSPEC (0 = all): Disabled -> Inactive, arming the start trigger.
  Status enable(uint32_t id, Clock::time_point now);
  // DISABLE_ROSPEC (0 = all): an active ROSpec ends first.
  Status disable(uint32_t id, Clock::time_point now);
  // START_ROSPEC: an Inactive ROSpec becomes Active.
  Status start(uint32_t id, Clock::time_point now);
  // STOP_ROSPEC: an Active ROSpec ends.
  Status stop(uint32_t id, Clock::time_point now);
  // GET_REPORT: every pending read goes out now.
  void flushReports();
  // A GPI port changed level: start, stop and AISpec triggers that wait for it fire.
  void gpiChanged(uint16_t port, bool high, Clock::time_point now);
  // The antenna configuration, connection or power changed: recompute who sees what.
  void configChanged() { visibilityDirty_ = true; }
  // Sets reads per second (0 = link speed).
  void setRate(double rate) { rate_ = rate; }
  double rate() const { return rate_; }
  // Runs due triggers and produces due reads; the time of the next thing to do.
  Clock::time_point tick(Clock::time_point now);
  // "ID=STATE" of every ROSpec (Disabled, Inactive or Active), in ID order, blank-separated;
  // "" when none.
  std::string describeROSpecs() const;
  // Number of stored ROSpecs.
  size_t rospecCount() const { return rospecs_.size(); }

 private:
  enum State : uint8_t { kDisabled = 0, kInactive = 1, kActive = 2 };

  struct AntennaRun {
    uint16_t id = 0;
    std::vector<uint32_t> visible;  // tag indexes this antenna singulates
    size_t cursor = 0;
    double powerDeficitDb = 0;
    uint16_t inventoryParameterSpecId = 0;
  };

  struct RoSpec {
    RoSpecDef def;
    State state = kDisabled;
    bool periodicArmed = false;
    Clock::time_point nextPeriodicStart{};
    Clock::time_point startedAt{};
    size_t aiIndex = 0;
    Clock::time_point aiStartedAt{};
    std::vector<bool> seen;  // unique tags seen during the AISpec run
    size_t seenCount = 0;
    Clock::time_point lastNewTagAt{};
    uint64_t readsThisRound = 0;
    uint32_t rounds = 0;
    Clock::time_point roundStartedAt{};
    std::vector<TagRead> pending;                   // reads not yet reported
    std::unordered_map<uint64_t, size_t> pendingAt;  // (tag, antenna) -> index in pending
  };

  Status forEach(uint32_t id, const char* verb, Status (Engine::*op)(RoSpec&, Clock::time_point),
                 Clock::time_point now);
  Status enableOne(RoSpec& s, Clock::time_point now);
  Status disableOne(RoSpec& s, Clock::time_point now);
  void startRoSpec(RoSpec& s, Clock::time_point now);
  void endRoSpec(RoSpec& s, Clock::time_point now);
  void beginAi(RoSpec& s, Clock::time_point now);
  void endAi(RoSpec& s, Clock::time_point now);
  void armPeriodic(RoSpec& s, Clock::time_point from, bool first);
  RoSpec* activeRoSpec();
  const RoReportDef& roReportOf(const RoSpec& s) const;
  void emit(RoSpec& s);
  void rebuildVisibility(const RoSpec& s);
  void produce(RoSpec& s, size_t count, Clock::time_point now);
  bool aiStopDue(RoSpec& s, Clock::time_point now, Clock::time_point& next);

  const Options& options_;
  const Population& population_;
  const ReaderConfig& config_;
  EngineSink& sink_;
  std::map<uint32_t, RoSpec> rospecs_;
  double rate_;
  double tokens_ = 0;
  Clock::time_point lastTick_{};
  bool visibilityDirty_ = true;
  std::vector<AntennaRun> runs_;
  size_t antennaCursor_ = 0;
  uint64_t readNo_ = 0;
};

}  // namespace tessera::readersim
