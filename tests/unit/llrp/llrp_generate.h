// tests/unit/llrp/llrp_generate.h — random but encodable LLRP records for property tests and
// for the fuzz seed corpus. Every field gets a random value within its wire width, every
// optional is present or not, every list has 0 to a few entries.
#pragma once

#include <random>
#include <string>
#include <variant>
#include <vector>

#include "llrp/records.h"

namespace tessera::llrp::testing {

class Generator {
 public:
  explicit Generator(uint32_t seed) : rng_(seed) {}

  // A message of the given alternative index of MessageBody.
  Message message(size_t kind) {
    Message m;
    m.id = u32();
    fill<0>(kind, m.body);
    return m;
  }
  static constexpr size_t kKinds = std::variant_size_v<MessageBody>;

 private:
  template <size_t I>
  void fill(size_t kind, MessageBody& body) {
    if constexpr (I < kKinds) {
      if (kind == I) {
        gen(body.emplace<I>());
      } else {
        fill<I + 1>(kind, body);
      }
    }
  }

  uint32_t below(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng_); }
  bool coin() { return below(2) == 1; }
  uint8_t u8() { return static_cast<uint8_t>(below(256)); }
  uint16_t u16() { return static_cast<uint16_t>(below(65536)); }
  uint32_t u32() { return static_cast<uint32_t>(rng_()); }
  uint64_t u64() { return (uint64_t{u32()} << 32) | u32(); }
  size_t count(uint32_t max = 3) { return below(max + 1); }
  template <typename E>
  E e8() {
    return static_cast<E>(coin() ? below(4) : u8());
  }
  template <typename E>
  E e16() {
    return static_cast<E>(coin() ? below(4) : u16());
  }
  std::vector<uint8_t> bytes(uint32_t max = 12) {
    std::vector<uint8_t> v(count(max));
    for (auto& b : v) b = u8();
    return v;
  }
  std::string text() {
    std::string s(count(20), ' ');
    for (auto& c : s) c = static_cast<char>(coin() ? 'a' + below(26) : u8());
    return s;
  }
  BitString bits() {
    BitString b;
    b.bitCount = static_cast<uint16_t>(coin() ? 96 : below(140));
    b.bytes.resize((b.bitCount + 7u) / 8u);
    for (auto& x : b.bytes) x = u8();
    return b;
  }
  template <typename T>
  std::optional<T> maybe() {
    if (!coin()) return std::nullopt;
    T t{};
    gen(t);
    return t;
  }
  template <typename T>
  std::optional<T> maybeValue(T value) {
    return coin() ? std::optional<T>(value) : std::nullopt;
  }
  template <typename T>
  std::vector<T> list(uint32_t max = 3) {
    std::vector<T> v(count(max));
    for (auto& x : v) gen(x);
    return v;
  }
  std::vector<Custom> customs() { return list<Custom>(2); }

  void gen(Custom& c) {
    c.vendorId = u32();
    c.subtype = u32();
    c.data = bytes();
  }
  void gen(FieldError& f) {
    f.fieldNum = u16();
    f.errorCode = e16<StatusCode>();
  }
  void gen(ParameterError& p) {
    p.parameterType = u16();
    p.errorCode = e16<StatusCode>();
    p.fieldError = maybe<FieldError>();
  }
  void gen(LLRPStatus& s) {
    s.statusCode = e16<StatusCode>();
    s.errorDescription = text();
    s.fieldError = maybe<FieldError>();
    s.parameterErrors = list<ParameterError>(4);
  }
  void gen(GPIOCapabilities& g) {
    g.numGPIs = u16();
    g.numGPOs = u16();
  }
  void gen(ReceiveSensitivityTableEntry& r) {
    r.index = u16();
    r.receiveSensitivityValue = static_cast<int16_t>(u16());
  }
  void gen(PerAntennaReceiveSensitivityRange& r) {
    r.antennaId = u16();
    r.receiveSensitivityIndexMin = u16();
    r.receiveSensitivityIndexMax = u16();
  }
  void gen(PerAntennaAirProtocol& p) {
    p.antennaId = u16();
    p.protocolIds.resize(count());
    for (auto& x : p.protocolIds) x = e8<AirProtocol>();
  }
  void gen(GeneralDeviceCapabilities& g) {
    g.maxNumberOfAntennaSupported = u16();
    g.canSetAntennaProperties = coin();
    g.hasUTCClockCapability = coin();
    g.deviceManufacturerName = u32();
    g.modelName = u32();
    g.readerFirmwareVersion = text();
    g.receiveSensitivityTable = list<ReceiveSensitivityTableEntry>();
    g.perAntennaReceiveSensitivityRanges = list<PerAntennaReceiveSensitivityRange>();
    gen(g.gpioCapabilities);
    g.perAntennaAirProtocols = list<PerAntennaAirProtocol>();
  }
  void gen(LLRPCapabilities& c) {
    c.canDoRFSurvey = coin();
    c.canReportBufferFillWarning = coin();
    c.supportsClientRequestOpSpec = coin();
    c.canDoTagInventoryStateAwareSingulation = coin();
    c.supportsEventAndReportHolding = coin();
    c.maxNumPriorityLevelsSupported = u8();
    c.clientRequestOpSpecTimeout = u16();
    c.maxNumROSpecs = u32();
    c.maxNumSpecsPerROSpec = u32();
    c.maxNumInventoryParameterSpecsPerAISpec = u32();
    c.maxNumAccessSpecs = u32();
    c.maxNumOpSpecsPerAccessSpec = u32();
  }
  void gen(TransmitPowerLevelTableEntry& t) {
    t.index = u16();
    t.transmitPowerValue = static_cast<int16_t>(u16());
  }
  void gen(FrequencyHopTable& h) {
    h.hopTableId = u8();
    h.frequencies.resize(count(6));
    for (auto& f : h.frequencies) f = u32();
  }
  void gen(FixedFrequencyTable& f) {
    f.frequencies.resize(count(4));
    for (auto& x : f.frequencies) x = u32();
  }
  void gen(FrequencyInformation& f) {
    f.hopping = coin();
    f.hopTables = list<FrequencyHopTable>();
    f.fixedFrequencyTable = maybe<FixedFrequencyTable>();
  }
  void gen(C1G2UHFRFModeTableEntry& m) {
    m.modeIdentifier = u32();
    m.drValue = coin();
    m.epcHAGTCConformance = coin();
    m.mValue = u8();
    m.forwardLinkModulation = u8();
    m.spectralMaskIndicator = u8();
    m.bdrValue = u32();
    m.pieValue = u32();
    m.minTariValue = u32();
    m.maxTariValue = u32();
    m.stepTariValue = u32();
  }
  void gen(C1G2UHFRFModeTable& t) { t.entries = list<C1G2UHFRFModeTableEntry>(); }
  void gen(UHFBandCapabilities& u) {
    u.transmitPowerLevels = list<TransmitPowerLevelTableEntry>(5);
    gen(u.frequencyInformation);
    u.c1g2RFModeTable = maybe<C1G2UHFRFModeTable>();
  }
  void gen(RegulatoryCapabilities& r) {
    r.countryCode = u16();
    r.communicationsStandard = e16<CommunicationsStandard>();
    r.uhfBandCapabilities = maybe<UHFBandCapabilities>();
    r.customs = customs();
  }
  void gen(C1G2LLRPCapabilities& c) {
    c.canSupportBlockErase = coin();
    c.canSupportBlockWrite = coin();
    c.maxNumSelectFiltersPerQuery = u16();
  }
  void gen(Identification& i) {
    i.idType = e8<IdentificationType>();
    i.readerId = bytes(8);
  }
  void gen(AntennaProperties& a) {
    a.antennaConnected = coin();
    a.antennaId = u16();
    a.antennaGain = static_cast<int16_t>(u16());
  }
  void gen(RFReceiver& r) { r.receiverSensitivity = u16(); }
  void gen(RFTransmitter& t) {
    t.hopTableId = u16();
    t.channelIndex = u16();
    t.transmitPower = u16();
  }
  void gen(C1G2TagInventoryMask& m) {
    m.mb = static_cast<uint8_t>(below(4));
    m.pointer = u16();
    m.tagMask = bits();
  }
  void gen(C1G2TagInventoryStateAwareFilterAction& a) {
    a.target = e8<C1G2StateAwareTarget>();
    a.action = e8<C1G2StateAwareAction>();
  }
  void gen(C1G2TagInventoryStateUnawareFilterAction& a) { a.action = e8<C1G2StateUnawareAction>(); }
  void gen(C1G2Filter& f) {
    f.t = static_cast<C1G2TruncateAction>(below(4));
    gen(f.tagInventoryMask);
    f.stateAwareAction = maybe<C1G2TagInventoryStateAwareFilterAction>();
    f.stateUnawareAction = maybe<C1G2TagInventoryStateUnawareFilterAction>();
  }
  void gen(C1G2RFControl& c) {
    c.modeIndex = u16();
    c.tari = u16();
  }
  void gen(C1G2TagInventoryStateAwareSingulationAction& a) {
    a.i = coin();
    a.s = coin();
  }
  void gen(C1G2SingulationControl& s) {
    s.session = static_cast<uint8_t>(below(4));
    s.tagPopulation = u16();
    s.tagTransitTime = u32();
    s.stateAwareAction = maybe<C1G2TagInventoryStateAwareSingulationAction>();
  }
  void gen(C1G2InventoryCommand& c) {
    c.tagInventoryStateAware = coin();
    c.filters = list<C1G2Filter>(2);
    c.rfControl = maybe<C1G2RFControl>();
    c.singulationControl = maybe<C1G2SingulationControl>();
    c.customs = customs();
  }
  void gen(AntennaConfiguration& a) {
    a.antennaId = u16();
    a.rfReceiver = maybe<RFReceiver>();
    a.rfTransmitter = maybe<RFTransmitter>();
    a.inventoryCommands = list<C1G2InventoryCommand>(2);
  }
  void gen(GPIPortCurrentState& g) {
    g.gpiPortNum = u16();
    g.config = coin();
    g.state = e8<GPIPortState>();
  }
  void gen(GPOWriteData& g) {
    g.gpoPortNumber = u16();
    g.gpoData = coin();
  }
  void gen(KeepaliveSpec& k) {
    k.keepaliveTriggerType = e8<KeepaliveTriggerType>();
    k.periodicTriggerValue = u32();
  }
  void gen(EventsAndReports& e) { e.holdEventsAndReportsUponReconnect = coin(); }
  void gen(C1G2EPCMemorySelector& m) {
    m.enableCRC = coin();
    m.enablePCBits = coin();
  }
  void gen(TagReportContentSelector& s) {
    s.enableROSpecId = coin();
    s.enableSpecIndex = coin();
    s.enableInventoryParameterSpecId = coin();
    s.enableAntennaId = coin();
    s.enableChannelIndex = coin();
    s.enablePeakRSSI = coin();
    s.enableFirstSeenTimestamp = coin();
    s.enableLastSeenTimestamp = coin();
    s.enableTagSeenCount = coin();
    s.enableAccessSpecId = coin();
    s.epcMemorySelectors = list<C1G2EPCMemorySelector>(2);
  }
  void gen(ROReportSpec& r) {
    r.roReportTrigger = e8<ROReportTriggerType>();
    r.n = u16();
    gen(r.tagReportContentSelector);
    r.customs = customs();
  }
  void gen(AccessReportSpec& a) { a.accessReportTrigger = e8<AccessReportTriggerType>(); }
  void gen(EventNotificationState& e) {
    e.eventType = e16<NotificationEventType>();
    e.notificationState = coin();
  }
  void gen(ReaderEventNotificationSpec& s) {
    s.eventNotificationStates = list<EventNotificationState>(9);
  }
  void gen(PeriodicTriggerValue& p) {
    p.offset = u32();
    p.period = u32();
    p.utcTimestamp = maybeValue(u64());
  }
  void gen(GPITriggerValue& g) {
    g.gpiPortNum = u16();
    g.gpiEvent = coin();
    g.timeout = u32();
  }
  void gen(ROSpecStartTrigger& s) {
    s.roSpecStartTriggerType = e8<ROSpecStartTriggerType>();
    s.periodicTriggerValue = maybe<PeriodicTriggerValue>();
    s.gpiTriggerValue = maybe<GPITriggerValue>();
  }
  void gen(ROSpecStopTrigger& s) {
    s.roSpecStopTriggerType = e8<ROSpecStopTriggerType>();
    s.durationTriggerValue = u32();
    s.gpiTriggerValue = maybe<GPITriggerValue>();
  }
  void gen(TagObservationTrigger& t) {
    t.triggerType = e8<TagObservationTriggerType>();
    t.numberOfTags = u16();
    t.numberOfAttempts = u16();
    t.t = u16();
    t.timeout = u32();
  }
  void gen(AISpecStopTrigger& s) {
    s.aiSpecStopTriggerType = e8<AISpecStopTriggerType>();
    s.durationTrigger = u32();
    s.gpiTriggerValue = maybe<GPITriggerValue>();
    s.tagObservationTrigger = maybe<TagObservationTrigger>();
  }
  void gen(InventoryParameterSpec& i) {
    i.inventoryParameterSpecId = u16();
    i.protocolId = e8<AirProtocol>();
    i.antennaConfigurations = list<AntennaConfiguration>(2);
    i.customs = customs();
  }
  void gen(AISpec& a) {
    a.antennaIds.resize(count(4));
    for (auto& id : a.antennaIds) id = u16();
    gen(a.aiSpecStopTrigger);
    a.inventoryParameterSpecs = list<InventoryParameterSpec>(2);
    a.customs = customs();
  }
  void gen(ROSpec& r) {
    r.roSpecId = u32();
    r.priority = u8();
    r.currentState = e8<ROSpecState>();
    gen(r.roBoundarySpec.roSpecStartTrigger);
    gen(r.roBoundarySpec.roSpecStopTrigger);
    r.aiSpecs = list<AISpec>(2);
    r.customs = customs();
    r.roReportSpec = maybe<ROReportSpec>();
  }
  void gen(TagReportData& t) {
    if (coin()) {
      EPC96 e;
      for (auto& b : e.epc) b = u8();
      t.epc = e;
    } else {
      t.epc = EPCData{bits()};
    }
    t.roSpecId = maybeValue(u32());
    t.specIndex = maybeValue(u16());
    t.inventoryParameterSpecId = maybeValue(u16());
    t.antennaId = maybeValue(u16());
    t.peakRSSI = maybeValue(static_cast<int8_t>(u8()));
    t.channelIndex = maybeValue(u16());
    t.firstSeenTimestampUTC = maybeValue(u64());
    t.firstSeenTimestampUptime = maybeValue(u64());
    t.lastSeenTimestampUTC = maybeValue(u64());
    t.lastSeenTimestampUptime = maybeValue(u64());
    t.tagSeenCount = maybeValue(u16());
    t.c1g2PC = maybeValue(u16());
    t.c1g2CRC = maybeValue(u16());
    t.accessSpecId = maybeValue(u32());
    t.customs = customs();
  }
  void gen(HoppingEvent& h) {
    h.hopTableId = u16();
    h.nextChannelIndex = u16();
  }
  void gen(GPIEvent& g) {
    g.gpiPortNumber = u16();
    g.gpiEvent = coin();
  }
  void gen(ROSpecEvent& r) {
    r.eventType = e8<ROSpecEventType>();
    r.roSpecId = u32();
    r.preemptingROSpecId = u32();
  }
  void gen(ReportBufferLevelWarningEvent& r) { r.reportBufferPercentageFull = u8(); }
  void gen(ReportBufferOverflowErrorEvent&) {}
  void gen(ReaderExceptionEvent& r) {
    r.message = text();
    r.roSpecId = maybeValue(u32());
    r.specIndex = maybeValue(u16());
    r.inventoryParameterSpecId = maybeValue(u16());
    r.antennaId = maybeValue(u16());
    r.accessSpecId = maybeValue(u32());
    r.opSpecId = maybeValue(u16());
    r.customs = customs();
  }
  void gen(RFSurveyEvent& r) {
    r.eventType = e8<RFSurveyEventType>();
    r.roSpecId = u32();
    r.specIndex = u16();
  }
  void gen(C1G2SingulationDetails& s) {
    s.numCollisionSlots = u16();
    s.numEmptySlots = u16();
  }
  void gen(AISpecEvent& a) {
    a.eventType = e8<AISpecEventType>();
    a.roSpecId = u32();
    a.specIndex = u16();
    a.singulationDetails = maybe<C1G2SingulationDetails>();
  }
  void gen(AntennaEvent& a) {
    a.eventType = e8<AntennaEventType>();
    a.antennaId = u16();
  }
  void gen(ConnectionAttemptEvent& c) { c.status = e16<ConnectionAttemptStatus>(); }
  void gen(ConnectionCloseEvent&) {}
  void gen(ReaderEventNotificationData& r) {
    r.timestamp.uptime = coin();
    r.timestamp.microseconds = u64();
    r.hoppingEvent = maybe<HoppingEvent>();
    r.gpiEvent = maybe<GPIEvent>();
    r.roSpecEvent = maybe<ROSpecEvent>();
    r.reportBufferLevelWarningEvent = maybe<ReportBufferLevelWarningEvent>();
    r.reportBufferOverflowErrorEvent = maybe<ReportBufferOverflowErrorEvent>();
    r.readerExceptionEvent = maybe<ReaderExceptionEvent>();
    r.rfSurveyEvent = maybe<RFSurveyEvent>();
    r.aiSpecEvent = maybe<AISpecEvent>();
    r.antennaEvent = maybe<AntennaEvent>();
    r.connectionAttemptEvent = maybe<ConnectionAttemptEvent>();
    r.connectionCloseEvent = maybe<ConnectionCloseEvent>();
    r.customs = customs();
  }

  // Messages.
  template <MessageType kType>
  void gen(EmptyMessage<kType>&) {}
  template <MessageType kType>
  void gen(StatusResponse<kType>& m) {
    gen(m.llrpStatus);
  }
  template <MessageType kType>
  void gen(ROSpecIdRequest<kType>& m) {
    m.roSpecId = coin() ? 0 : u32();
  }
  void gen(DeleteAccessSpec& m) { m.accessSpecId = coin() ? 0 : u32(); }
  void gen(GetReaderCapabilities& m) {
    m.requestedData = e8<GetReaderCapabilitiesRequestedData>();
    m.customs = customs();
  }
  void gen(GetReaderCapabilitiesResponse& m) {
    gen(m.llrpStatus);
    m.generalDeviceCapabilities = maybe<GeneralDeviceCapabilities>();
    m.llrpCapabilities = maybe<LLRPCapabilities>();
    m.regulatoryCapabilities = maybe<RegulatoryCapabilities>();
    m.c1g2LLRPCapabilities = maybe<C1G2LLRPCapabilities>();
    m.customs = customs();
  }
  void gen(GetReaderConfig& m) {
    m.antennaId = u16();
    m.requestedData = e8<GetReaderConfigRequestedData>();
    m.gpiPortNum = u16();
    m.gpoPortNum = u16();
    m.customs = customs();
  }
  void gen(GetReaderConfigResponse& m) {
    gen(m.llrpStatus);
    m.identification = maybe<Identification>();
    m.antennaProperties = list<AntennaProperties>();
    m.antennaConfigurations = list<AntennaConfiguration>();
    m.readerEventNotificationSpec = maybe<ReaderEventNotificationSpec>();
    m.roReportSpec = maybe<ROReportSpec>();
    m.accessReportSpec = maybe<AccessReportSpec>();
    m.llrpConfigurationStateValue = maybeValue(u32());
    m.keepaliveSpec = maybe<KeepaliveSpec>();
    m.gpiPortCurrentStates = list<GPIPortCurrentState>();
    m.gpoWriteData = list<GPOWriteData>();
    m.eventsAndReports = maybe<EventsAndReports>();
    m.customs = customs();
  }
  void gen(SetReaderConfig& m) {
    m.resetToFactoryDefault = coin();
    m.readerEventNotificationSpec = maybe<ReaderEventNotificationSpec>();
    m.antennaProperties = list<AntennaProperties>();
    m.antennaConfigurations = list<AntennaConfiguration>();
    m.roReportSpec = maybe<ROReportSpec>();
    m.accessReportSpec = maybe<AccessReportSpec>();
    m.keepaliveSpec = maybe<KeepaliveSpec>();
    m.gpoWriteData = list<GPOWriteData>();
    m.gpiPortCurrentStates = list<GPIPortCurrentState>();
    m.eventsAndReports = maybe<EventsAndReports>();
    m.customs = customs();
  }
  void gen(AddROSpec& m) { gen(m.roSpec); }
  void gen(ROAccessReport& m) {
    m.tagReportData = list<TagReportData>(6);
    m.customs = customs();
  }
  void gen(ReaderEventNotification& m) { gen(m.readerEventNotificationData); }
  void gen(CustomMessage& m) {
    m.vendorId = u32();
    m.subtype = u8();
    m.data = bytes(40);
  }

  std::mt19937 rng_;
};

}  // namespace tessera::llrp::testing
