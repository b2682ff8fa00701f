// src/readerapi/rospec_builder.cc — see rospec_builder.h.
#include "readerapi/rospec_builder.h"

#include <algorithm>

namespace tessera::readerapi {

namespace {

// The trigger record's GPI flag is false in every configuration the service writes, and the
// useful trigger there is "the input becomes active": false selects the high level.
bool gpiLevel(bool flag) { return !flag; }

llrp::ROBoundarySpec boundary(const TriggerRecord& t, bool& needsStart) {
  llrp::ROBoundarySpec b;
  needsStart = false;
  switch (t.start.type) {
    case StartTriggerType::Periodic: {
      b.roSpecStartTrigger.roSpecStartTriggerType = llrp::ROSpecStartTriggerType::kPeriodic;
      llrp::PeriodicTriggerValue p;
      p.offset = 0;
      p.period = t.start.periodMs;
      b.roSpecStartTrigger.periodicTriggerValue = p;
      break;
    }
    case StartTriggerType::Gpi: {
      b.roSpecStartTrigger.roSpecStartTriggerType = llrp::ROSpecStartTriggerType::kGPI;
      llrp::GPITriggerValue g;
      g.gpiPortNum = t.start.gpiPort;
      g.gpiEvent = gpiLevel(t.start.gpiEvent);
      g.timeout = 0;  // ignored by readers for a start trigger
      b.roSpecStartTrigger.gpiTriggerValue = g;
      break;
    }
    case StartTriggerType::Immediate:
    default:
      b.roSpecStartTrigger.roSpecStartTriggerType = llrp::ROSpecStartTriggerType::kNull;
      needsStart = true;
      break;
  }
  switch (t.stop.type) {
    case StopTriggerType::Duration:
      if (t.stop.durationMs > 0) {
        b.roSpecStopTrigger.roSpecStopTriggerType = llrp::ROSpecStopTriggerType::kDuration;
        b.roSpecStopTrigger.durationTriggerValue = t.stop.durationMs;
      }
      break;
    case StopTriggerType::Gpi: {
      b.roSpecStopTrigger.roSpecStopTriggerType = llrp::ROSpecStopTriggerType::kGPIWithTimeout;
      llrp::GPITriggerValue g;
      g.gpiPortNum = t.stop.gpiPort;
      g.gpiEvent = gpiLevel(t.stop.gpiEvent);
      g.timeout = t.stop.timeoutMs;
      b.roSpecStopTrigger.gpiTriggerValue = g;
      break;
    }
    default:
      break;  // the AISpec stop trigger ends tag-count and round-count inventories
  }
  return b;
}

llrp::AISpecStopTrigger aiStop(const TriggerRecord& t) {
  llrp::AISpecStopTrigger s;
  if (t.stop.type == StopTriggerType::TagCount || t.stop.type == StopTriggerType::RoundCount) {
    llrp::TagObservationTrigger o;
    if (t.stop.type == StopTriggerType::TagCount) {
      o.triggerType = llrp::TagObservationTriggerType::kUponSeeingNTagsOrTimeout;
      o.numberOfTags = t.stop.tagCount;
    } else {
      o.triggerType = llrp::TagObservationTriggerType::kNAttemptsToSeeAllTagsInFOVOrTimeout;
      o.numberOfAttempts = t.stop.roundCount;
    }
    o.timeout = t.stop.timeoutMs;
    s.aiSpecStopTriggerType = llrp::AISpecStopTriggerType::kTagObservation;
    s.tagObservationTrigger = o;
  }
  return s;
}

llrp::C1G2Filter filterOf(const StoredPreFilter& f) {
  llrp::C1G2Filter c;
  c.t = llrp::C1G2TruncateAction::kUnspecified;
  c.tagInventoryMask.mb = static_cast<uint8_t>(f.memoryBank & 3u);
  c.tagInventoryMask.pointer = f.bitOffset;
  c.tagInventoryMask.tagMask.bitCount = f.patternBitCount;
  c.tagInventoryMask.tagMask.bytes = f.pattern;
  c.tagInventoryMask.tagMask.bytes.resize((f.patternBitCount + 7u) / 8u, 0);
  if (f.filterType == PREFILTER_STATE_AWARE) {
    llrp::C1G2TagInventoryStateAwareFilterAction a;
    a.target = static_cast<llrp::C1G2StateAwareTarget>(std::min<uint32_t>(f.targetOrAction, 4));
    a.action = static_cast<llrp::C1G2StateAwareAction>(std::min<uint32_t>(f.stateAwareAction, 7));
    c.stateAwareAction = a;
  } else {
    llrp::C1G2TagInventoryStateUnawareFilterAction a;
    a.action = static_cast<llrp::C1G2StateUnawareAction>(std::min<uint32_t>(f.targetOrAction, 5));
    c.stateUnawareAction = a;
  }
  return c;
}

llrp::AntennaConfiguration antennaConfig(const AntennaPlan& a, const InventoryRequest& r) {
  llrp::AntennaConfiguration c;
  c.antennaId = a.antennaId;
  c.rfReceiver = a.receiver;
  c.rfTransmitter = a.transmitter;
  llrp::C1G2InventoryCommand cmd;
  const bool stateAware = a.singulation.stateAware && r.readerStateAware;
  cmd.tagInventoryStateAware = stateAware;
  for (const auto& f : a.filters) cmd.filters.push_back(filterOf(f));
  llrp::C1G2SingulationControl s;
  s.session = static_cast<uint8_t>(a.singulation.session & 3u);
  s.tagPopulation = a.singulation.tagPopulation;
  // The fourth field of the inventory control value is the expected tag population.
  if (r.triggers.hasValueBlock && r.triggers.valueBlock.value > 0) {
    s.tagPopulation = static_cast<uint16_t>(std::min<uint32_t>(r.triggers.valueBlock.value, 65535));
  }
  s.tagTransitTime = a.singulation.tagTransitTimeMs;
  if (stateAware) {
    llrp::C1G2TagInventoryStateAwareSingulationAction act;
    act.i = a.singulation.inventoryState != 0;
    act.s = a.singulation.slFlag != 0;
    s.stateAwareAction = act;
  }
  cmd.singulationControl = s;
  c.inventoryCommands.push_back(std::move(cmd));
  return c;
}

llrp::ROReportSpec roReportSpec(const InventoryRequest& r) {
  llrp::ROReportSpec report;
  report.roReportTrigger = llrp::ROReportTriggerType::kUponNTagsOrEndOfROSpec;
  // One read per report unless the caller asked for bigger reports: reads reach the callback
  // as soon as the reader has them.
  report.n = static_cast<uint16_t>(std::clamp<uint32_t>(r.triggers.tagReportTrigger, 1, 65535));
  auto& sel = report.tagReportContentSelector;
  const uint16_t f = r.tagFields;
  sel.enableAntennaId = (f & TAG_FIELD_ANTENNA_ID) != 0;
  sel.enableChannelIndex = (f & TAG_FIELD_CHANNEL_INDEX) != 0;
  sel.enablePeakRSSI = (f & TAG_FIELD_PEAK_RSSI) != 0;
  sel.enableFirstSeenTimestamp = (f & TAG_FIELD_FIRST_SEEN_TIME_STAMP) != 0;
  sel.enableLastSeenTimestamp = (f & TAG_FIELD_LAST_SEEN_TIME_STAMP) != 0;
  sel.enableTagSeenCount = (f & TAG_FIELD_TAG_SEEN_COUNT) != 0;
  llrp::C1G2EPCMemorySelector mem;
  mem.enableCRC = (f & TAG_FIELD_CRC) != 0;
  mem.enablePCBits = (f & TAG_FIELD_PC) != 0;
  sel.epcMemorySelectors.push_back(mem);
  return report;
}

}  // namespace

llrp::ROSpec buildRoSpec(const InventoryRequest& request, bool& needsStart) {
  llrp::ROSpec roSpec;
  roSpec.roSpecId = request.roSpecId;
  roSpec.priority = 0;
  roSpec.currentState = llrp::ROSpecState::kDisabled;
  roSpec.roBoundarySpec = boundary(request.triggers, needsStart);

  llrp::AISpec ai;
  for (const auto& a : request.antennas) ai.antennaIds.push_back(a.antennaId);
  if (ai.antennaIds.empty()) ai.antennaIds.push_back(0);  // every antenna
  ai.aiSpecStopTrigger = aiStop(request.triggers);
  llrp::InventoryParameterSpec ips;
  ips.inventoryParameterSpecId = 1;
  ips.protocolId = llrp::AirProtocol::kEPCGlobalClass1Gen2;
  for (const auto& a : request.antennas)
    ips.antennaConfigurations.push_back(antennaConfig(a, request));
  ai.inventoryParameterSpecs.push_back(std::move(ips));
  roSpec.aiSpecs.push_back(std::move(ai));
  roSpec.roReportSpec = roReportSpec(request);
  return roSpec;
}

bool restartsByItself(const TriggerRecord& triggers) {
  return triggers.start.type == StartTriggerType::Periodic ||
         triggers.start.type == StartTriggerType::Gpi;
}

}  // namespace tessera::readerapi
