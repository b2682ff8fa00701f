// tools/readersim/bridge.cc — LLRP records <-> simulator model.
#include "bridge.h"

#include <cstring>

#include "llrp/vendor_extension.h"
#include "options.h"

namespace tessera::readersim {

namespace {

GpiTrigger toGpi(const llrp::GPITriggerValue& g) {
  GpiTrigger out;
  out.port = g.gpiPortNum;
  out.event = g.gpiEvent;
  out.timeoutMs = g.timeout;
  return out;
}

}  // namespace

Status rejectCustoms(const std::vector<llrp::Custom>& customs, const char* where) {
  if (customs.empty()) return Status::ok();
  const llrp::Custom& c = customs.front();
  return Status::error(kPUnsupportedParameter,
                       std::string("Custom parameter (vendor ") + std::to_string(c.vendorId) +
                           " subtype " + std::to_string(c.subtype) + ") in " + where +
                           " is not supported");
}

Status messageCustoms(const std::vector<llrp::Custom>& customs, const char* where) {
  Status st = rejectCustoms(customs, where);
  if (!st.isOk()) st.code = kUnsupportedParameter;
  return st;
}

Status toInventoryCommand(const llrp::C1G2InventoryCommand& in, InventoryCommand& out) {
  Status st = rejectCustoms(in.customs, "C1G2InventoryCommand");
  if (!st.isOk()) return st;
  out = InventoryCommand();
  out.present = true;
  out.stateAware = in.tagInventoryStateAware;
  for (const llrp::C1G2Filter& f : in.filters) {
    TagFilter t;
    t.truncate = static_cast<uint8_t>(f.t);
    t.memoryBank = f.tagInventoryMask.mb;
    t.pointer = f.tagInventoryMask.pointer;
    t.mask = f.tagInventoryMask.tagMask.bytes;
    t.maskBits = f.tagInventoryMask.tagMask.bitCount;
    if (f.stateAwareAction) {
      t.hasStateAware = true;
      t.target = static_cast<uint8_t>(f.stateAwareAction->target);
      t.stateAwareAction = static_cast<uint8_t>(f.stateAwareAction->action);
    }
    if (f.stateUnawareAction) {
      t.hasStateUnaware = true;
      t.stateUnawareAction = static_cast<uint8_t>(f.stateUnawareAction->action);
    }
    if (in.tagInventoryStateAware && !t.hasStateAware) {
      return Status::error(kPMissingParameter,
                           "state-aware C1G2InventoryCommand with a C1G2Filter lacking "
                           "C1G2TagInventoryStateAwareFilterAction");
    }
    out.filters.push_back(std::move(t));
  }
  if (in.rfControl) {
    out.hasRfControl = true;
    out.modeIndex = in.rfControl->modeIndex;
    out.tari = in.rfControl->tari;
    if (out.modeIndex != 0) {
      return Status::error(kPFieldError, "C1G2RFControl ModeIndex " +
                                             std::to_string(out.modeIndex) +
                                             " is not in the RF mode table (0)");
    }
  }
  if (in.singulationControl) {
    out.hasSingulation = true;
    out.session = in.singulationControl->session;
    out.tagPopulation = in.singulationControl->tagPopulation;
    out.tagTransitTime = in.singulationControl->tagTransitTime;
    if (in.singulationControl->stateAwareAction) {
      out.hasSingulationAction = true;
      out.stateI = in.singulationControl->stateAwareAction->i ? 1 : 0;
      out.stateS = in.singulationControl->stateAwareAction->s ? 1 : 0;
    }
  }
  return Status::ok();
}

Status toAntennaOverride(const llrp::AntennaConfiguration& in, AntennaOverride& out) {
  out = AntennaOverride();
  out.id = in.antennaId;
  if (in.rfReceiver) {
    out.hasReceiver = true;
    out.receiverSensitivity = in.rfReceiver->receiverSensitivity;
  }
  if (in.rfTransmitter) {
    out.hasTransmitter = true;
    out.hopTableId = in.rfTransmitter->hopTableId;
    out.channelIndex = in.rfTransmitter->channelIndex;
    out.transmitPower = in.rfTransmitter->transmitPower;
  }
  if (!in.inventoryCommands.empty()) {
    if (in.inventoryCommands.size() > 1) {
      return Status::error(kPUnsupportedParameter,
                           "one C1G2InventoryCommand per AntennaConfiguration");
    }
    out.hasInventory = true;
    return toInventoryCommand(in.inventoryCommands.front(), out.inventory);
  }
  return Status::ok();
}

void applyOverride(const AntennaOverride& ov, AntennaSettings& a) {
  if (ov.hasReceiver) a.receiverSensitivity = ov.receiverSensitivity;
  if (ov.hasTransmitter) {
    a.hopTableId = ov.hopTableId;
    a.channelIndex = ov.channelIndex;
    a.transmitPower = ov.transmitPower;
  }
  if (ov.hasInventory) {
    InventoryCommand& cur = a.inventory;
    const InventoryCommand& in = ov.inventory;
    cur.present = true;
    cur.stateAware = in.stateAware;
    cur.filters = in.filters;
    if (in.hasRfControl) {
      cur.hasRfControl = true;
      cur.modeIndex = in.modeIndex;
      cur.tari = in.tari;
    }
    if (in.hasSingulation) {
      cur.hasSingulation = true;
      cur.session = in.session;
      cur.tagPopulation = in.tagPopulation;
      cur.tagTransitTime = in.tagTransitTime;
      cur.hasSingulationAction = in.hasSingulationAction;
      cur.stateI = in.stateI;
      cur.stateS = in.stateS;
    }
  }
}

Status toRoReportDef(const llrp::ROReportSpec& in, RoReportDef& out) {
  Status st = rejectCustoms(in.customs, "ROReportSpec");
  if (!st.isOk()) return st;
  uint8_t trigger = static_cast<uint8_t>(in.roReportTrigger);
  if (trigger > 2) return Status::error(kPFieldError, "unknown ROReportTrigger");
  out.trigger = trigger;
  out.n = in.n;
  const llrp::TagReportContentSelector& s = in.tagReportContentSelector;
  ContentSelector& c = out.content;
  c.roSpecId = s.enableROSpecId;
  c.specIndex = s.enableSpecIndex;
  c.inventoryParameterSpecId = s.enableInventoryParameterSpecId;
  c.antennaId = s.enableAntennaId;
  c.channelIndex = s.enableChannelIndex;
  c.peakRssi = s.enablePeakRSSI;
  c.firstSeen = s.enableFirstSeenTimestamp;
  c.lastSeen = s.enableLastSeenTimestamp;
  c.seenCount = s.enableTagSeenCount;
  c.accessSpecId = s.enableAccessSpecId;
  c.hasEpcSelector = !s.epcMemorySelectors.empty();
  c.enableCrc = c.hasEpcSelector && s.epcMemorySelectors.front().enableCRC;
  c.enablePc = c.hasEpcSelector && s.epcMemorySelectors.front().enablePCBits;
  return Status::ok();
}

llrp::ROReportSpec fromRoReportDef(const RoReportDef& in) {
  llrp::ROReportSpec out;
  out.roReportTrigger = static_cast<llrp::ROReportTriggerType>(in.trigger);
  out.n = in.n;
  llrp::TagReportContentSelector& s = out.tagReportContentSelector;
  const ContentSelector& c = in.content;
  s.enableROSpecId = c.roSpecId;
  s.enableSpecIndex = c.specIndex;
  s.enableInventoryParameterSpecId = c.inventoryParameterSpecId;
  s.enableAntennaId = c.antennaId;
  s.enableChannelIndex = c.channelIndex;
  s.enablePeakRSSI = c.peakRssi;
  s.enableFirstSeenTimestamp = c.firstSeen;
  s.enableLastSeenTimestamp = c.lastSeen;
  s.enableTagSeenCount = c.seenCount;
  s.enableAccessSpecId = c.accessSpecId;
  if (c.hasEpcSelector || c.enableCrc || c.enablePc) {
    llrp::C1G2EPCMemorySelector m;
    m.enableCRC = c.enableCrc;
    m.enablePCBits = c.enablePc;
    s.epcMemorySelectors.push_back(m);
  }
  return out;
}

Status toRoSpecDef(const llrp::ROSpec& in, RoSpecDef& out) {
  out = RoSpecDef();
  if (in.currentState != llrp::ROSpecState::kDisabled) {
    return Status::error(kPFieldError, "a new ROSpec's CurrentState must be Disabled");
  }
  Status st = rejectCustoms(in.customs, "ROSpec");
  if (!st.isOk()) return st;
  out.id = in.roSpecId;
  out.priority = in.priority;
  const llrp::ROSpecStartTrigger& start = in.roBoundarySpec.roSpecStartTrigger;
  out.start.type = static_cast<uint8_t>(start.roSpecStartTriggerType);
  if (out.start.type == 2) {
    if (!start.periodicTriggerValue) {
      return Status::error(kPMissingParameter, "periodic start trigger without PeriodicTriggerValue");
    }
    out.start.offsetMs = start.periodicTriggerValue->offset;
    out.start.periodMs = start.periodicTriggerValue->period;
    if (start.periodicTriggerValue->utcTimestamp) {
      out.start.hasUtc = true;
      out.start.utcUs = *start.periodicTriggerValue->utcTimestamp;
    }
  } else if (out.start.type == 3) {
    if (!start.gpiTriggerValue) {
      return Status::error(kPMissingParameter, "GPI start trigger without GPITriggerValue");
    }
    out.start.gpi = toGpi(*start.gpiTriggerValue);
  }
  const llrp::ROSpecStopTrigger& stop = in.roBoundarySpec.roSpecStopTrigger;
  out.stop.type = static_cast<uint8_t>(stop.roSpecStopTriggerType);
  out.stop.durationMs = stop.durationTriggerValue;
  if (out.stop.type == 2) {
    if (!stop.gpiTriggerValue) {
      return Status::error(kPMissingParameter, "GPI stop trigger without GPITriggerValue");
    }
    out.stop.gpi = toGpi(*stop.gpiTriggerValue);
  }
  for (const llrp::AISpec& ai : in.aiSpecs) {
    st = rejectCustoms(ai.customs, "AISpec");
    if (!st.isOk()) return st;
    AiSpecDef def;
    def.antennaIds = ai.antennaIds;
    const llrp::AISpecStopTrigger& t = ai.aiSpecStopTrigger;
    def.stop.type = static_cast<uint8_t>(t.aiSpecStopTriggerType);
    def.stop.durationMs = t.durationTrigger;
    if (def.stop.type == 2) {
      if (!t.gpiTriggerValue) {
        return Status::error(kPMissingParameter, "AISpec GPI stop trigger without GPITriggerValue");
      }
      def.stop.gpi = toGpi(*t.gpiTriggerValue);
    } else if (def.stop.type == 3) {
      if (!t.tagObservationTrigger) {
        return Status::error(kPMissingParameter,
                             "tag observation stop trigger without TagObservationTrigger");
      }
      const llrp::TagObservationTrigger& o = *t.tagObservationTrigger;
      def.stop.observation.type = static_cast<uint8_t>(o.triggerType);
      def.stop.observation.numberOfTags = o.numberOfTags;
      def.stop.observation.numberOfAttempts = o.numberOfAttempts;
      def.stop.observation.tMs = o.t;
      def.stop.observation.timeoutMs = o.timeout;
    }
    if (ai.inventoryParameterSpecs.size() > 1) {
      return Status::error(kPUnsupportedParameter,
                           "one InventoryParameterSpec per AISpec is supported");
    }
    for (const llrp::InventoryParameterSpec& ip : ai.inventoryParameterSpecs) {
      st = rejectCustoms(ip.customs, "InventoryParameterSpec");
      if (!st.isOk()) return st;
      if (ip.protocolId != llrp::AirProtocol::kEPCGlobalClass1Gen2) {
        return Status::error(kPFieldError, "ProtocolID must be EPCGlobalClass1Gen2");
      }
      InventoryParams params;
      params.id = ip.inventoryParameterSpecId;
      for (const llrp::AntennaConfiguration& ac : ip.antennaConfigurations) {
        AntennaOverride ov;
        st = toAntennaOverride(ac, ov);
        if (!st.isOk()) return st;
        params.antennas.push_back(std::move(ov));
      }
      def.inventory.push_back(std::move(params));
    }
    out.aiSpecs.push_back(std::move(def));
  }
  if (in.roReportSpec) {
    out.hasReport = true;
    st = toRoReportDef(*in.roReportSpec, out.report);
    if (!st.isOk()) return st;
  }
  return Status::ok();
}

llrp::AntennaConfiguration fromAntennaSettings(const AntennaSettings& in) {
  llrp::AntennaConfiguration out;
  out.antennaId = in.id;
  out.rfReceiver = llrp::RFReceiver{in.receiverSensitivity};
  llrp::RFTransmitter tx;
  tx.hopTableId = in.hopTableId;
  tx.channelIndex = in.channelIndex;
  tx.transmitPower = in.transmitPower;
  out.rfTransmitter = tx;
  llrp::C1G2InventoryCommand cmd;
  const InventoryCommand& inv = in.inventory;
  cmd.tagInventoryStateAware = inv.stateAware;
  for (const TagFilter& f : inv.filters) {
    llrp::C1G2Filter lf;
    lf.t = static_cast<llrp::C1G2TruncateAction>(f.truncate);
    lf.tagInventoryMask.mb = f.memoryBank;
    lf.tagInventoryMask.pointer = f.pointer;
    lf.tagInventoryMask.tagMask.bitCount = f.maskBits;
    lf.tagInventoryMask.tagMask.bytes = f.mask;
    if (f.hasStateAware) {
      llrp::C1G2TagInventoryStateAwareFilterAction a;
      a.target = static_cast<llrp::C1G2StateAwareTarget>(f.target);
      a.action = static_cast<llrp::C1G2StateAwareAction>(f.stateAwareAction);
      lf.stateAwareAction = a;
    }
    if (f.hasStateUnaware) {
      llrp::C1G2TagInventoryStateUnawareFilterAction a;
      a.action = static_cast<llrp::C1G2StateUnawareAction>(f.stateUnawareAction);
      lf.stateUnawareAction = a;
    }
    cmd.filters.push_back(std::move(lf));
  }
  cmd.rfControl = llrp::C1G2RFControl{inv.modeIndex, inv.tari};
  llrp::C1G2SingulationControl sc;
  sc.session = inv.session;
  sc.tagPopulation = inv.tagPopulation;
  sc.tagTransitTime = inv.tagTransitTime;
  if (inv.hasSingulationAction) {
    llrp::C1G2TagInventoryStateAwareSingulationAction a;
    a.i = inv.stateI != 0;
    a.s = inv.stateS != 0;
    sc.stateAwareAction = a;
  }
  cmd.singulationControl = sc;
  out.inventoryCommands.push_back(std::move(cmd));
  return out;
}

llrp::TagReportData toTagReportData(const TagRead& read, const Tag& tag,
                                    const ContentSelector& c) {
  llrp::TagReportData d;
  if (tag.epc.size() == 12 && tag.epcBits == 0) {
    llrp::EPC96 e;
    memcpy(e.epc.data(), tag.epc.data(), 12);
    d.epc = e;
  } else {
    llrp::EPCData e;
    // The padding bits after epcBits go out as the file gives them, like a sloppy reader's.
    e.epc.bitCount = tag.epcBits != 0 ? tag.epcBits : static_cast<uint16_t>(tag.epc.size() * 8);
    e.epc.bytes = tag.epc;
    d.epc = std::move(e);
  }
  if (c.roSpecId) d.roSpecId = read.roSpecId;
  if (c.specIndex) d.specIndex = read.specIndex;
  if (c.inventoryParameterSpecId) d.inventoryParameterSpecId = read.inventoryParameterSpecId;
  if (c.antennaId) d.antennaId = read.antenna;
  if (c.peakRssi) d.peakRSSI = read.rssi;
  if (c.channelIndex) d.channelIndex = read.channel;
  if (c.firstSeen) d.firstSeenTimestampUTC = read.firstSeenUs;
  if (c.lastSeen) d.lastSeenTimestampUTC = read.lastSeenUs;
  if (c.seenCount) d.tagSeenCount = read.seenCount;
  if (c.enablePc) d.c1g2PC = tag.pc;
  if (c.enableCrc) d.c1g2CRC = tag.crc;
  if (c.accessSpecId) d.accessSpecId = 0;
  if (c.anyEnabled()) {
    llrp::Custom phase;
    phase.vendorId = llrp::kVendorId;
    phase.subtype = static_cast<uint32_t>(llrp::VendorParameter::kPhase);
    phase.data = llrp::phaseData(read.phase);
    d.customs.push_back(std::move(phase));
  }
  return d;
}

uint32_t omitReportFields(const Options& options, uint64_t readNo, llrp::TagReportData& d) {
  uint32_t omitted = 0;
  auto maybeDrop = [&](ReportField field, auto& value) {
    const auto f = static_cast<size_t>(field);
    const double p = options.omitProbability[f];
    if (p <= 0 || !value) return;
    // 53 bits of a hash of seed, read and field as a uniform number in [0, 1).
    const double u =
        static_cast<double>(mix64(options.seed ^ (readNo * kReportFieldCount + f)) >> 11) *
        0x1.0p-53;
    if (u >= p) return;
    value.reset();
    omitted |= 1u << f;
  };
  maybeDrop(ReportField::kAntenna, d.antennaId);
  maybeDrop(ReportField::kRssi, d.peakRSSI);
  maybeDrop(ReportField::kChannel, d.channelIndex);
  maybeDrop(ReportField::kPc, d.c1g2PC);
  maybeDrop(ReportField::kSeenCount, d.tagSeenCount);
  maybeDrop(ReportField::kFirstSeen, d.firstSeenTimestampUTC);
  maybeDrop(ReportField::kLastSeen, d.lastSeenTimestampUTC);
  return omitted;
}

llrp::LLRPStatus toLlrpStatus(const Status& status) {
  llrp::LLRPStatus s;
  s.statusCode = static_cast<llrp::StatusCode>(status.code);
  s.errorDescription = status.text;
  return s;
}

}  // namespace tessera::readersim
