// src/llrp/describe.cc — one-line rendering of messages.
#include "llrp/describe.h"

#include <cinttypes>
#include <cstdio>
#include <type_traits>

namespace tessera::llrp {
namespace {

// Tag reports listed in full before the line says how many more there are.
constexpr size_t kTagsShown = 4;

void add(std::string& s, const char* format, auto... args) {
  char buffer[128];
  const int n = std::snprintf(buffer, sizeof buffer, format, args...);
  if (n > 0) s.append(buffer, static_cast<size_t>(n) < sizeof buffer ? n : sizeof buffer - 1);
}

void addHex(std::string& s, std::span<const uint8_t> bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  for (uint8_t b : bytes) {
    s += kDigits[b >> 4];
    s += kDigits[b & 0xf];
  }
}

void addQuoted(std::string& s, const std::string& text) {
  s += '"';
  for (char c : text) {
    if (c == '"' || c == '\\') {
      s += '\\';
      s += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      add(s, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    } else {
      s += c;
    }
  }
  s += '"';
}

void addStatus(std::string& s, const LLRPStatus& st) {
  s += " status=";
  s += statusCodeName(st.statusCode);
  if (st.statusCode != StatusCode::kSuccess || !st.errorDescription.empty()) {
    s += ' ';
    addQuoted(s, st.errorDescription);
  }
  if (st.fieldError) add(s, " field=%u", unsigned{st.fieldError->fieldNum});
  for (const auto& p : st.parameterErrors) add(s, " parameter=%u", unsigned{p.parameterType});
}

void addCustoms(std::string& s, const std::vector<Custom>& customs) {
  for (const Custom& c : customs) {
    add(s, " custom(%" PRIu32 ":%" PRIu32 " ", c.vendorId, c.subtype);
    addHex(s, c.data);
    s += ')';
  }
}

const char* startName(ROSpecStartTriggerType t) {
  switch (t) {
    case ROSpecStartTriggerType::kNull:
      return "null";
    case ROSpecStartTriggerType::kImmediate:
      return "immediate";
    case ROSpecStartTriggerType::kPeriodic:
      return "periodic";
    case ROSpecStartTriggerType::kGPI:
      return "gpi";
  }
  return "?";
}

void addGpi(std::string& s, const std::optional<GPITriggerValue>& g) {
  if (g)
    add(s, "(port=%u event=%d timeout=%" PRIu32 ")", unsigned{g->gpiPortNum}, g->gpiEvent,
        g->timeout);
}

void addAntennaConfiguration(std::string& s, const AntennaConfiguration& a) {
  add(s, " antenna%u(", unsigned{a.antennaId});
  const char* sep = "";
  if (a.rfReceiver) {
    add(s, "sensitivity=%u", unsigned{a.rfReceiver->receiverSensitivity});
    sep = " ";
  }
  if (a.rfTransmitter) {
    add(s, "%spower=%u hop=%u channel=%u", sep, unsigned{a.rfTransmitter->transmitPower},
        unsigned{a.rfTransmitter->hopTableId}, unsigned{a.rfTransmitter->channelIndex});
    sep = " ";
  }
  for (const auto& c : a.inventoryCommands) {
    add(s, "%sc1g2(filters=%zu", sep, c.filters.size());
    if (c.singulationControl)
      add(s, " session=%u population=%u", unsigned{c.singulationControl->session},
          unsigned{c.singulationControl->tagPopulation});
    if (c.rfControl)
      add(s, " mode=%u tari=%u", unsigned{c.rfControl->modeIndex}, unsigned{c.rfControl->tari});
    s += ')';
    sep = " ";
  }
  s += ')';
}

void addReportSpec(std::string& s, const ROReportSpec& r) {
  const auto& c = r.tagReportContentSelector;
  add(s, " report(trigger=%u n=%u fields=", static_cast<unsigned>(r.roReportTrigger),
      unsigned{r.n});
  const std::pair<bool, const char*> flags[] = {{c.enableROSpecId, "rospec"},
                                                {c.enableSpecIndex, "index"},
                                                {c.enableInventoryParameterSpecId, "ips"},
                                                {c.enableAntennaId, "ant"},
                                                {c.enableChannelIndex, "ch"},
                                                {c.enablePeakRSSI, "rssi"},
                                                {c.enableFirstSeenTimestamp, "first"},
                                                {c.enableLastSeenTimestamp, "last"},
                                                {c.enableTagSeenCount, "seen"},
                                                {c.enableAccessSpecId, "access"}};
  const char* sep = "";
  for (const auto& [on, name] : flags) {
    if (!on) continue;
    s += sep;
    s += name;
    sep = ",";
  }
  for (const auto& m : c.epcMemorySelectors) {
    if (m.enableCRC) (s += sep) += "crc", sep = ",";
    if (m.enablePCBits) (s += sep) += "pc", sep = ",";
  }
  s += ')';
}

void addTag(std::string& s, const TagReportData& t) {
  s += " [epc=";
  addHex(s, epcBytes(t.epc));
  if (const auto* d = std::get_if<EPCData>(&t.epc)) add(s, "/%u", unsigned{d->epc.bitCount});
  if (t.antennaId) add(s, " ant=%u", unsigned{*t.antennaId});
  if (t.peakRSSI) add(s, " rssi=%d", int{*t.peakRSSI});
  if (t.channelIndex) add(s, " ch=%u", unsigned{*t.channelIndex});
  if (t.tagSeenCount) add(s, " seen=%u", unsigned{*t.tagSeenCount});
  if (t.firstSeenTimestampUTC) add(s, " first=%" PRIu64, *t.firstSeenTimestampUTC);
  if (t.firstSeenTimestampUptime) add(s, " first-up=%" PRIu64, *t.firstSeenTimestampUptime);
  if (t.lastSeenTimestampUTC) add(s, " last=%" PRIu64, *t.lastSeenTimestampUTC);
  if (t.lastSeenTimestampUptime) add(s, " last-up=%" PRIu64, *t.lastSeenTimestampUptime);
  if (t.c1g2PC) add(s, " pc=%04X", unsigned{*t.c1g2PC});
  if (t.c1g2CRC) add(s, " crc=%04X", unsigned{*t.c1g2CRC});
  if (t.roSpecId) add(s, " rospec=%" PRIu32, *t.roSpecId);
  if (t.specIndex) add(s, " index=%u", unsigned{*t.specIndex});
  if (t.inventoryParameterSpecId) add(s, " ips=%u", unsigned{*t.inventoryParameterSpecId});
  if (t.accessSpecId) add(s, " access=%" PRIu32, *t.accessSpecId);
  addCustoms(s, t.customs);
  s += ']';
}

void addEvents(std::string& s, const ReaderEventNotificationData& r) {
  add(s, " %s=%" PRIu64, r.timestamp.uptime ? "uptime" : "utc", r.timestamp.microseconds);
  if (r.hoppingEvent)
    add(s, " hopping(table=%u next=%u)", unsigned{r.hoppingEvent->hopTableId},
        unsigned{r.hoppingEvent->nextChannelIndex});
  if (r.gpiEvent)
    add(s, " gpi(port=%u event=%d)", unsigned{r.gpiEvent->gpiPortNumber}, r.gpiEvent->gpiEvent);
  if (r.roSpecEvent) {
    static const char* const kTypes[] = {"start", "end", "preemption"};
    const unsigned t = static_cast<unsigned>(r.roSpecEvent->eventType);
    add(s, " rospec(%s id=%" PRIu32, t < 3 ? kTypes[t] : "?", r.roSpecEvent->roSpecId);
    if (r.roSpecEvent->eventType == ROSpecEventType::kPreemptionOfROSpec)
      add(s, " by=%" PRIu32, r.roSpecEvent->preemptingROSpecId);
    s += ')';
  }
  if (r.reportBufferLevelWarningEvent)
    add(s, " buffer-warning(%u%%)",
        unsigned{r.reportBufferLevelWarningEvent->reportBufferPercentageFull});
  if (r.reportBufferOverflowErrorEvent) s += " buffer-overflow";
  if (r.readerExceptionEvent) {
    s += " exception(";
    addQuoted(s, r.readerExceptionEvent->message);
    s += ')';
  }
  if (r.rfSurveyEvent)
    add(s, " rfsurvey(%s id=%" PRIu32 ")",
        r.rfSurveyEvent->eventType == RFSurveyEventType::kStartOfRFSurvey ? "start" : "end",
        r.rfSurveyEvent->roSpecId);
  if (r.aiSpecEvent)
    add(s, " aispec(end rospec=%" PRIu32 " index=%u)", r.aiSpecEvent->roSpecId,
        unsigned{r.aiSpecEvent->specIndex});
  if (r.antennaEvent)
    add(s, " antenna(%u %s)", unsigned{r.antennaEvent->antennaId},
        r.antennaEvent->eventType == AntennaEventType::kAntennaConnected ? "connected"
                                                                         : "disconnected");
  if (r.connectionAttemptEvent)
    add(s, " connection-attempt(status=%u)",
        static_cast<unsigned>(r.connectionAttemptEvent->status));
  if (r.connectionCloseEvent) s += " connection-close";
  addCustoms(s, r.customs);
}

void addConfig(std::string& s, const auto& m) {
  for (const auto& a : m.antennaProperties)
    add(s, " props%u(connected=%d gain=%d)", unsigned{a.antennaId}, a.antennaConnected,
        int{a.antennaGain});
  for (const auto& a : m.antennaConfigurations) addAntennaConfiguration(s, a);
  if (m.readerEventNotificationSpec) {
    s += " events(";
    const char* sep = "";
    for (const auto& e : m.readerEventNotificationSpec->eventNotificationStates) {
      add(s, "%s%u=%d", sep, static_cast<unsigned>(e.eventType), e.notificationState);
      sep = ",";
    }
    s += ')';
  }
  if (m.roReportSpec) addReportSpec(s, *m.roReportSpec);
  if (m.keepaliveSpec)
    add(s, " keepalive(%s %" PRIu32 "ms)",
        m.keepaliveSpec->keepaliveTriggerType == KeepaliveTriggerType::kPeriodic ? "periodic"
                                                                                 : "null",
        m.keepaliveSpec->periodicTriggerValue);
  for (const auto& g : m.gpiPortCurrentStates)
    add(s, " gpi%u(config=%d state=%u)", unsigned{g.gpiPortNum}, g.config,
        static_cast<unsigned>(g.state));
  for (const auto& g : m.gpoWriteData) add(s, " gpo%u=%d", unsigned{g.gpoPortNumber}, g.gpoData);
  if (m.eventsAndReports)
    add(s, " hold-events=%d", m.eventsAndReports->holdEventsAndReportsUponReconnect);
  addCustoms(s, m.customs);
}

void addROSpec(std::string& s, const ROSpec& r) {
  add(s, " rospec=%" PRIu32 " priority=%u state=%u", r.roSpecId, unsigned{r.priority},
      static_cast<unsigned>(r.currentState));
  const auto& start = r.roBoundarySpec.roSpecStartTrigger;
  s += " start=";
  s += startName(start.roSpecStartTriggerType);
  if (start.periodicTriggerValue)
    add(s, "(offset=%" PRIu32 " period=%" PRIu32 ")", start.periodicTriggerValue->offset,
        start.periodicTriggerValue->period);
  addGpi(s, start.gpiTriggerValue);
  const auto& stop = r.roBoundarySpec.roSpecStopTrigger;
  static const char* const kStops[] = {"null", "duration", "gpi"};
  const unsigned st = static_cast<unsigned>(stop.roSpecStopTriggerType);
  add(s, " stop=%s", st < 3 ? kStops[st] : "?");
  if (stop.roSpecStopTriggerType == ROSpecStopTriggerType::kDuration)
    add(s, "(%" PRIu32 "ms)", stop.durationTriggerValue);
  addGpi(s, stop.gpiTriggerValue);
  for (const AISpec& a : r.aiSpecs) {
    s += " aispec(antennas=";
    const char* sep = "";
    for (uint16_t id : a.antennaIds) {
      add(s, "%s%u", sep, unsigned{id});
      sep = ",";
    }
    static const char* const kAiStops[] = {"null", "duration", "gpi", "tags"};
    const unsigned at = static_cast<unsigned>(a.aiSpecStopTrigger.aiSpecStopTriggerType);
    add(s, " stop=%s", at < 4 ? kAiStops[at] : "?");
    if (a.aiSpecStopTrigger.aiSpecStopTriggerType == AISpecStopTriggerType::kDuration)
      add(s, "(%" PRIu32 "ms)", a.aiSpecStopTrigger.durationTrigger);
    if (const auto& t = a.aiSpecStopTrigger.tagObservationTrigger)
      add(s, "(type=%u tags=%u attempts=%u t=%u timeout=%" PRIu32 ")",
          static_cast<unsigned>(t->triggerType), unsigned{t->numberOfTags},
          unsigned{t->numberOfAttempts}, unsigned{t->t}, t->timeout);
    addGpi(s, a.aiSpecStopTrigger.gpiTriggerValue);
    for (const auto& ips : a.inventoryParameterSpecs) {
      add(s, " ips%u", unsigned{ips.inventoryParameterSpecId});
      for (const auto& c : ips.antennaConfigurations) addAntennaConfiguration(s, c);
      addCustoms(s, ips.customs);
    }
    addCustoms(s, a.customs);
    s += ')';
  }
  addCustoms(s, r.customs);
  if (r.roReportSpec) addReportSpec(s, *r.roReportSpec);
}

template <typename T>
void addBody(std::string& s, const T& m) {
  if constexpr (requires { m.llrpStatus; }) {
    addStatus(s, m.llrpStatus);
  }
  if constexpr (requires { m.roSpecId; }) {
    add(s, " rospec=%" PRIu32, m.roSpecId);
  }
  if constexpr (std::is_same_v<T, DeleteAccessSpec>) {
    add(s, " accessspec=%" PRIu32, m.accessSpecId);
  } else if constexpr (std::is_same_v<T, GetReaderCapabilities>) {
    add(s, " requested=%u", static_cast<unsigned>(m.requestedData));
    addCustoms(s, m.customs);
  } else if constexpr (std::is_same_v<T, GetReaderCapabilitiesResponse>) {
    if (const auto& g = m.generalDeviceCapabilities) {
      add(s, " antennas=%u maker=%" PRIu32 " model=%" PRIu32 " utc=%d firmware=",
          unsigned{g->maxNumberOfAntennaSupported}, g->deviceManufacturerName, g->modelName,
          g->hasUTCClockCapability);
      addQuoted(s, g->readerFirmwareVersion);
      add(s, " gpi=%u gpo=%u", unsigned{g->gpioCapabilities.numGPIs},
          unsigned{g->gpioCapabilities.numGPOs});
    }
    if (const auto& l = m.llrpCapabilities)
      add(s, " max-rospecs=%" PRIu32 " holding=%d", l->maxNumROSpecs,
          l->supportsEventAndReportHolding);
    if (const auto& r = m.regulatoryCapabilities) {
      add(s, " country=%u standard=%u", unsigned{r->countryCode},
          static_cast<unsigned>(r->communicationsStandard));
      if (const auto& u = r->uhfBandCapabilities) {
        add(s, " power-levels=%zu", u->transmitPowerLevels.size());
        if (!u->transmitPowerLevels.empty())
          add(s, "(%d..%d)", int{u->transmitPowerLevels.front().transmitPowerValue},
              int{u->transmitPowerLevels.back().transmitPowerValue});
        add(s, " hop-tables=%zu", u->frequencyInformation.hopTables.size());
        if (u->c1g2RFModeTable) add(s, " rf-modes=%zu", u->c1g2RFModeTable->entries.size());
      }
      addCustoms(s, r->customs);
    }
    if (const auto& c = m.c1g2LLRPCapabilities)
      add(s, " max-select-filters=%u", unsigned{c->maxNumSelectFiltersPerQuery});
    addCustoms(s, m.customs);
  } else if constexpr (std::is_same_v<T, GetReaderConfig>) {
    add(s, " antenna=%u requested=%u gpi=%u gpo=%u", unsigned{m.antennaId},
        static_cast<unsigned>(m.requestedData), unsigned{m.gpiPortNum}, unsigned{m.gpoPortNum});
    addCustoms(s, m.customs);
  } else if constexpr (std::is_same_v<T, GetReaderConfigResponse>) {
    if (m.identification) {
      s += " reader-id=";
      addHex(s, m.identification->readerId);
    }
    addConfig(s, m);
  } else if constexpr (std::is_same_v<T, SetReaderConfig>) {
    if (m.resetToFactoryDefault) s += " reset-to-factory-default";
    addConfig(s, m);
  } else if constexpr (std::is_same_v<T, AddROSpec>) {
    addROSpec(s, m.roSpec);
  } else if constexpr (std::is_same_v<T, ROAccessReport>) {
    add(s, " tags=%zu", m.tagReportData.size());
    for (size_t i = 0; i < m.tagReportData.size() && i < kTagsShown; ++i)
      addTag(s, m.tagReportData[i]);
    if (m.tagReportData.size() > kTagsShown)
      add(s, " ... %zu more", m.tagReportData.size() - kTagsShown);
    addCustoms(s, m.customs);
  } else if constexpr (std::is_same_v<T, ReaderEventNotification>) {
    addEvents(s, m.readerEventNotificationData);
  } else if constexpr (std::is_same_v<T, CustomMessage>) {
    add(s, " vendor=%" PRIu32 " subtype=%u data=", m.vendorId, unsigned{m.subtype});
    addHex(s, m.data);
  }
}

}  // namespace

std::string describe(const Message& message) {
  std::string s = messageName(messageType(message.body));
  add(s, " id=%" PRIu32, message.id);
  std::visit([&s](const auto& body) { addBody(s, body); }, message.body);
  return s;
}

}  // namespace tessera::llrp
