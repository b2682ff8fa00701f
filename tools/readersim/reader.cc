// tools/readersim/reader.cc — requests, events and reports of the simulated reader.
#include "reader.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <unistd.h>

#include "bridge.h"
#include "capabilities.h"
#include "llrp/codec.h"
#include "llrp/vendor_extension.h"
#include "selection.h"
#include "state_file.h"
#include "wire.h"

namespace tessera::readersim {

namespace {

constexpr size_t kMaxReadsPerReport = 2000;  // keeps every report far below the frame limit
constexpr unsigned kWarnPercent = 75;
constexpr unsigned kRearmPercent = 50;
constexpr size_t kBytesPerRead = 64;         // a fully populated TagReportData, roughly

uint64_t utcMicros() {
  using namespace std::chrono;
  return static_cast<uint64_t>(
      duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

}  // namespace

Reader::Reader(const Options& options, Population population, ReaderConfig config, Stats& stats,
               int radioWakeFd)
    : options_(options),
      radioWakeFd_(radioWakeFd),
      stats_(stats),
      population_(std::move(population)),
      config_(std::move(config)),
      startConfig_(config_),
      engine_(options_, population_, config_, *this) {}

Reader::~Reader() = default;

void Reader::wakeRadio() {
  uint64_t one = 1;
  if (radioWakeFd_ >= 0) (void)!write(radioWakeFd_, &one, sizeof one);
}

bool Reader::attach(Outbox* outbox) {
  {
    std::lock_guard<std::mutex> g(lock_);
    if (outbox_ != nullptr) return false;
    if (options_.forgetConfig) {
      config_ = keepPhysical(startConfig_);
      ++configVersion_;
      engine_.configChanged();
    }
    outbox_ = outbox;
    warned_ = false;
    overflowed_ = false;
    if (config_.holdEventsAndReports) {
      outbox->hold();
      if (offline_) outbox->adoptHeld(*offline_);
    }
    offline_.reset();
    stats_.clientConnected = true;
  }
  wakeRadio();
  return true;
}

void Reader::detach(Outbox* outbox) {
  std::lock_guard<std::mutex> g(lock_);
  if (outbox_ != outbox) return;
  outbox_ = nullptr;
  if (config_.holdEventsAndReports) {
    offline_ = std::make_unique<Outbox>(options_.bufferLimit, nullptr);
    offline_->hold();
  }
  stats_.clientConnected = false;
}

bool Reader::attached() {
  std::lock_guard<std::mutex> g(lock_);
  return outbox_ != nullptr;
}

uint32_t Reader::keepaliveMs() {
  std::lock_guard<std::mutex> g(lock_);
  return config_.keepaliveMs;
}

Outbox* Reader::target() { return outbox_ != nullptr ? outbox_ : offline_.get(); }

llrp::ReaderEventNotificationData Reader::eventData() {
  llrp::ReaderEventNotificationData d;
  d.timestamp.uptime = false;
  d.timestamp.microseconds = utcMicros();
  return d;
}

std::vector<uint8_t> Reader::connectionAttemptFrame(llrp::ConnectionAttemptStatus status) {
  llrp::ReaderEventNotification n;
  n.readerEventNotificationData = eventData();
  n.readerEventNotificationData.connectionAttemptEvent = llrp::ConnectionAttemptEvent{status};
  stats_.eventsSent++;
  return encodeMessage(llrp::Message{nextMessageId(), n}, options_.verbose);
}

std::vector<uint8_t> Reader::connectionCloseFrame() {
  llrp::ReaderEventNotification n;
  n.readerEventNotificationData = eventData();
  n.readerEventNotificationData.connectionCloseEvent = llrp::ConnectionCloseEvent{};
  stats_.eventsSent++;
  return encodeMessage(llrp::Message{nextMessageId(), n}, options_.verbose);
}

std::vector<uint8_t> Reader::keepaliveFrame() {
  return encodeMessage(llrp::Message{nextMessageId(), llrp::Keepalive{}}, options_.verbose);
}

void Reader::notifyAnotherConnection() {
  std::lock_guard<std::mutex> g(lock_);
  if (outbox_ == nullptr) return;
  llrp::ReaderEventNotificationData d = eventData();
  d.connectionAttemptEvent =
      llrp::ConnectionAttemptEvent{llrp::ConnectionAttemptStatus::kAnotherConnectionAttempted};
  sendEvent(std::move(d));
}

void Reader::deliver(Deferred item) {
  if (deferEvents_) {
    deferred_.push_back(std::move(item));
    return;
  }
  Outbox* out = target();
  if (out == nullptr) return;
  std::vector<uint8_t> frame = encodeMessage(item.message, options_.verbose);
  if (frame.empty()) return;
  if (!item.isReport) {
    out->pushEvent(std::move(frame));
    stats_.eventsSent++;
    stats_.messagesSent++;
    return;
  }
  // Reads count as sent once their report is written whole (the connection's session counts).
  if (out->pushReport(std::move(frame), item.reads)) {
    stats_.reportsSent++;
    stats_.messagesSent++;
    ++reportsThisFlush_;
  } else {
    stats_.readsDropped += item.reads;
    if (!overflowed_) {
      overflowed_ = true;
      logLine("report buffer full: dropping reads (%zu bytes queued)", out->queuedBytes());
      llrp::ReaderEventNotificationData d = eventData();
      d.reportBufferOverflowErrorEvent = llrp::ReportBufferOverflowErrorEvent{};
      sendEvent(std::move(d));
    }
  }
  checkBufferLevel();
}

void Reader::flushDeferred() {
  std::vector<Deferred> items;
  items.swap(deferred_);
  for (Deferred& d : items) deliver(std::move(d));
}

void Reader::sendEvent(llrp::ReaderEventNotificationData data) {
  if (target() == nullptr && !deferEvents_) return;
  llrp::ReaderEventNotification n;
  n.readerEventNotificationData = std::move(data);
  Deferred item;
  item.message = llrp::Message{nextMessageId(), std::move(n)};
  deliver(std::move(item));
}

void Reader::checkBufferLevel() {
  Outbox* out = target();
  if (out == nullptr) return;
  unsigned pct = out->fillPercent();
  if (pct < kRearmPercent) {
    warned_ = false;
    overflowed_ = false;
    return;
  }
  if (pct >= kWarnPercent && !warned_) {
    warned_ = true;
    if (config_.events[3]) {
      llrp::ReaderEventNotificationData d = eventData();
      d.reportBufferLevelWarningEvent =
          llrp::ReportBufferLevelWarningEvent{static_cast<uint8_t>(pct > 100 ? 100 : pct)};
      sendEvent(std::move(d));
    }
  }
}

void Reader::roSpecStarted(uint32_t roSpecId) {
  stats_.rospecsStarted++;
  if (!config_.events[2]) return;
  llrp::ReaderEventNotificationData d = eventData();
  d.roSpecEvent = llrp::ROSpecEvent{llrp::ROSpecEventType::kStartOfROSpec, roSpecId, 0};
  sendEvent(std::move(d));
}

void Reader::roSpecEnded(uint32_t roSpecId) {
  stats_.rospecsStopped++;
  if (!config_.events[2]) return;
  llrp::ReaderEventNotificationData d = eventData();
  d.roSpecEvent = llrp::ROSpecEvent{llrp::ROSpecEventType::kEndOfROSpec, roSpecId, 0};
  sendEvent(std::move(d));
}

void Reader::aiSpecEnded(uint32_t roSpecId, uint16_t specIndex) {
  if (!config_.events[6] && !config_.events[7]) return;
  llrp::ReaderEventNotificationData d = eventData();
  llrp::AISpecEvent e;
  e.eventType = llrp::AISpecEventType::kEndOfAISpec;
  e.roSpecId = roSpecId;
  e.specIndex = specIndex;
  if (config_.events[7]) e.singulationDetails = llrp::C1G2SingulationDetails{0, 0};
  d.aiSpecEvent = e;
  sendEvent(std::move(d));
}

void Reader::report(std::vector<TagRead>&& reads, const ContentSelector& content) {
  if (target() == nullptr && !deferEvents_) return;
  for (size_t at = 0; at < reads.size(); at += kMaxReadsPerReport) {
    size_t end = std::min(reads.size(), at + kMaxReadsPerReport);
    llrp::ROAccessReport r;
    r.tagReportData.reserve(end - at);
    for (size_t i = at; i < end; ++i) {
      r.tagReportData.push_back(
          toTagReportData(reads[i], population_.tag(reads[i].tagIndex), content));
      const uint32_t omitted = omitReportFields(options_, readsReported_++, r.tagReportData.back());
      for (size_t f = 0; f < kReportFieldCount; ++f) {
        if (omitted & (1u << f)) stats_.omitted[f]++;
      }
    }
    uint32_t id = reportMessageId_ != 0 ? reportMessageId_ : nextMessageId();
    Deferred item;
    item.message = llrp::Message{id, std::move(r)};
    item.reads = end - at;
    item.isReport = true;
    deliver(std::move(item));
  }
}

size_t Reader::readRoom() {
  if (outbox_ == nullptr) return 0;
  size_t low = outbox_->limit() / 4;
  size_t queued = outbox_->queuedBytes();
  if (queued >= low) return 0;
  return (low - queued) / kBytesPerRead + 1;
}

void Reader::respond(Outbox& out, uint32_t id, llrp::MessageBody body) {
  std::vector<uint8_t> frame = encodeMessage(llrp::Message{id, std::move(body)}, options_.verbose);
  if (frame.empty()) return;
  out.pushResponse(std::move(frame));
  stats_.messagesSent++;
}

void Reader::sendError(Outbox& out, uint32_t messageId, const llrp::LLRPStatus& status) {
  llrp::ErrorMessage e;
  e.llrpStatus = status;
  std::lock_guard<std::mutex> g(lock_);
  respond(out, messageId, e);
  stats_.errorMessagesSent++;
}

Status Reader::saveConfig() {
  stats_.configSaves++;
  if (options_.stateFile.empty()) {
    return Status::error(kSuccess, "Success (no --state file: nothing written)");
  }
  std::string error;
  if (saveState(options_.stateFile, config_, error) != 0) {
    logLine("save configuration failed: %s", error.c_str());
    return Status::error(kDeviceError, error);
  }
  logLine("configuration saved to %s", options_.stateFile.c_str());
  startConfig_ = config_;  // what the reader would start with from now on
  return Status::ok();
}

ReaderConfig Reader::keepPhysical(ReaderConfig next) const {
  // Cables and input levels are physical: no configuration change alters them.
  next.antennaConnected = config_.antennaConnected;
  for (size_t i = 0; i < next.gpis.size() && i < config_.gpis.size(); ++i) {
    next.gpis[i].state = config_.gpis[i].state;
  }
  return next;
}

Status Reader::setReaderConfig(const llrp::SetReaderConfig& m) {
  Status st = messageCustoms(m.customs, "SET_READER_CONFIG");
  if (!st.isOk()) return st;
  ReaderConfig next = m.resetToFactoryDefault ? keepPhysical(factoryDefaults(options_)) : config_;
  if (m.readerEventNotificationSpec) {
    for (const llrp::EventNotificationState& e : m.readerEventNotificationSpec->eventNotificationStates) {
      auto t = static_cast<uint16_t>(e.eventType);
      if (t >= kEventTypes) {
        return Status::error(kPFieldError, "unknown NotificationEventType " + std::to_string(t));
      }
      next.events[t] = e.notificationState;
    }
  }
  unsigned tableSize = powerTableSize(options_);
  for (const llrp::AntennaConfiguration& ac : m.antennaConfigurations) {
    AntennaOverride ov;
    st = toAntennaOverride(ac, ov);
    if (!st.isOk()) return st;
    if (ov.id > options_.antennas) {
      return Status::error(kPFieldError, "AntennaID " + std::to_string(ov.id) +
                                             " is not an antenna of this reader (1.." +
                                             std::to_string(options_.antennas) + ")");
    }
    if (ov.hasTransmitter && (ov.transmitPower < 1 || ov.transmitPower > tableSize)) {
      return Status::error(kPFieldError, "TransmitPower index " +
                                             std::to_string(ov.transmitPower) +
                                             " is not in the power table (1.." +
                                             std::to_string(tableSize) + ")");
    }
    if (ov.hasReceiver &&
        (ov.receiverSensitivity < 1 || ov.receiverSensitivity > kReceiveSensitivityEntries)) {
      return Status::error(kPFieldError, "ReceiverSensitivity index " +
                                             std::to_string(ov.receiverSensitivity) +
                                             " is not in the sensitivity table (1.." +
                                             std::to_string(kReceiveSensitivityEntries) + ")");
    }
    if (ov.hasInventory) {
      std::string why = checkInventoryCommand(ov.inventory);
      if (!why.empty()) return Status::error(kPFieldError, why);
    }
    for (AntennaSettings& a : next.antennas) {
      if (ov.id == 0 || ov.id == a.id) applyOverride(ov, a);
    }
  }
  if (m.roReportSpec) {
    st = toRoReportDef(*m.roReportSpec, next.roReport);
    if (!st.isOk()) return st;
  }
  if (m.accessReportSpec) {
    next.accessReportTrigger = static_cast<uint8_t>(m.accessReportSpec->accessReportTrigger);
  }
  if (m.keepaliveSpec) {
    auto type = static_cast<uint8_t>(m.keepaliveSpec->keepaliveTriggerType);
    if (type > 1) return Status::error(kPFieldError, "unknown KeepaliveTriggerType");
    next.keepaliveMs = type == 1 ? m.keepaliveSpec->periodicTriggerValue : 0;
  }
  for (const llrp::GPOWriteData& g : m.gpoWriteData) {
    if (g.gpoPortNumber < 1 || g.gpoPortNumber > next.gpos.size()) {
      return Status::error(kPFieldError, "no GPO port " + std::to_string(g.gpoPortNumber));
    }
    next.gpos[g.gpoPortNumber - 1] = g.gpoData;
  }
  for (const llrp::GPIPortCurrentState& g : m.gpiPortCurrentStates) {
    if (g.gpiPortNum < 1 || g.gpiPortNum > next.gpis.size()) {
      return Status::error(kPFieldError, "no GPI port " + std::to_string(g.gpiPortNum));
    }
    next.gpis[g.gpiPortNum - 1].enabled = g.config;  // the level itself is read-only
  }
  if (m.eventsAndReports) next.holdEventsAndReports = m.eventsAndReports->holdEventsAndReportsUponReconnect;
  config_ = std::move(next);
  ++configVersion_;
  engine_.configChanged();
  return Status::ok();
}

Status Reader::getReaderConfig(const llrp::GetReaderConfig& m, llrp::GetReaderConfigResponse& r) {
  Status st = messageCustoms(m.customs, "GET_READER_CONFIG");
  if (!st.isOk()) return st;
  using RD = llrp::GetReaderConfigRequestedData;
  auto rd = static_cast<uint8_t>(m.requestedData);
  if (rd > 11) return Status::error(kFieldError, "RequestedData " + std::to_string(rd) + " is unknown");
  if (m.antennaId > options_.antennas) {
    return Status::error(kFieldError, "AntennaID " + std::to_string(m.antennaId) +
                                          " is not an antenna of this reader (1.." +
                                          std::to_string(options_.antennas) + ")");
  }
  if (m.gpiPortNum > config_.gpis.size()) {
    return Status::error(kFieldError, "no GPI port " + std::to_string(m.gpiPortNum));
  }
  if (m.gpoPortNum > config_.gpos.size()) {
    return Status::error(kFieldError, "no GPO port " + std::to_string(m.gpoPortNum));
  }
  auto want = [&](RD part) { return m.requestedData == RD::kAll || m.requestedData == part; };
  if (want(RD::kIdentification)) {
    llrp::Identification id;
    id.idType = llrp::IdentificationType::kMACAddress;
    // A locally administered EUI-64, so it never names real hardware.
    id.readerId = {0x02, 0x00, 0x7E, 0xFF, 0xFE, 0x00, 0x00, 0x01};
    r.identification = id;
  }
  for (const AntennaSettings& a : config_.antennas) {
    if (m.antennaId != 0 && m.antennaId != a.id) continue;
    if (want(RD::kAntennaProperties)) {
      llrp::AntennaProperties p;
      p.antennaConnected = config_.antennaConnected[a.id - 1];
      p.antennaId = a.id;
      p.antennaGain = 0;
      r.antennaProperties.push_back(p);
    }
    if (want(RD::kAntennaConfiguration)) r.antennaConfigurations.push_back(fromAntennaSettings(a));
  }
  if (want(RD::kReaderEventNotificationSpec)) {
    llrp::ReaderEventNotificationSpec eventNotification;
    for (int t = 0; t < kEventTypes; ++t) {
      eventNotification.eventNotificationStates.push_back(
          {static_cast<llrp::NotificationEventType>(t), config_.events[static_cast<size_t>(t)]});
    }
    r.readerEventNotificationSpec = std::move(eventNotification);
  }
  if (want(RD::kROReportSpec)) r.roReportSpec = fromRoReportDef(config_.roReport);
  if (want(RD::kAccessReportSpec)) {
    r.accessReportSpec =
        llrp::AccessReportSpec{static_cast<llrp::AccessReportTriggerType>(config_.accessReportTrigger)};
  }
  if (want(RD::kLLRPConfigurationStateValue)) r.llrpConfigurationStateValue = configVersion_;
  if (want(RD::kKeepaliveSpec)) {
    llrp::KeepaliveSpec k;
    k.keepaliveTriggerType =
        config_.keepaliveMs != 0 ? llrp::KeepaliveTriggerType::kPeriodic : llrp::KeepaliveTriggerType::kNull;
    k.periodicTriggerValue = config_.keepaliveMs;
    r.keepaliveSpec = k;
  }
  if (want(RD::kGPIPortCurrentState)) {
    for (size_t i = 0; i < config_.gpis.size(); ++i) {
      if (m.gpiPortNum != 0 && m.gpiPortNum != i + 1) continue;
      llrp::GPIPortCurrentState g;
      g.gpiPortNum = static_cast<uint16_t>(i + 1);
      g.config = config_.gpis[i].enabled;
      g.state = static_cast<llrp::GPIPortState>(config_.gpis[i].state);
      r.gpiPortCurrentStates.push_back(g);
    }
  }
  if (want(RD::kGPOWriteData)) {
    for (size_t i = 0; i < config_.gpos.size(); ++i) {
      if (m.gpoPortNum != 0 && m.gpoPortNum != i + 1) continue;
      r.gpoWriteData.push_back({static_cast<uint16_t>(i + 1), static_cast<bool>(config_.gpos[i])});
    }
  }
  if (want(RD::kEventsAndReports)) {
    r.eventsAndReports = llrp::EventsAndReports{config_.holdEventsAndReports};
  }
  return Status::ok();
}

Clock::time_point Reader::tick(Clock::time_point now) {
  std::lock_guard<std::mutex> g(lock_);
  return engine_.tick(now);
}

std::string Reader::setGpi(unsigned port, bool high) {
  std::unique_lock<std::mutex> g(lock_);
  if (port < 1 || port > config_.gpis.size()) {
    return "error no GPI port " + std::to_string(port) + " (1.." + std::to_string(config_.gpis.size()) + ")";
  }
  GpiPort& p = config_.gpis[port - 1];
  uint8_t level = high ? 1 : 0;
  if (p.state == level) return "ok gpi " + std::to_string(port) + " unchanged";
  p.state = level;
  if (!p.enabled) return "ok gpi " + std::to_string(port) + " set (port disabled: no event)";
  if (config_.events[1]) {
    llrp::ReaderEventNotificationData d = eventData();
    d.gpiEvent = llrp::GPIEvent{static_cast<uint16_t>(port), high};
    sendEvent(std::move(d));
  }
  engine_.gpiChanged(static_cast<uint16_t>(port), high, Clock::now());
  g.unlock();
  wakeRadio();
  return "ok gpi " + std::to_string(port) + "=" + std::to_string(level);
}

std::string Reader::setAntenna(unsigned port, bool connected) {
  std::unique_lock<std::mutex> g(lock_);
  if (port < 1 || port > config_.antennas.size()) {
    return "error no antenna " + std::to_string(port) + " (1.." + std::to_string(config_.antennas.size()) + ")";
  }
  if (config_.antennaConnected[port - 1] == connected) {
    return "ok antenna " + std::to_string(port) + " unchanged";
  }
  config_.antennaConnected[port - 1] = connected;
  engine_.configChanged();
  if (config_.events[8]) {
    llrp::ReaderEventNotificationData d = eventData();
    d.antennaEvent = llrp::AntennaEvent{connected ? llrp::AntennaEventType::kAntennaConnected
                                                  : llrp::AntennaEventType::kAntennaDisconnected,
                                        static_cast<uint16_t>(port)};
    sendEvent(std::move(d));
  }
  g.unlock();
  wakeRadio();
  return "ok antenna " + std::to_string(port) + (connected ? " connected" : " disconnected");
}

std::string Reader::setRate(double rate) {
  {
    std::lock_guard<std::mutex> g(lock_);
    engine_.setRate(rate);
  }
  wakeRadio();
  char buf[64];
  snprintf(buf, sizeof buf, "ok rate=%g", rate);
  return buf;
}

std::string Reader::bufferWarning() {
  std::lock_guard<std::mutex> g(lock_);
  if (outbox_ == nullptr) return "error no client connected";
  if (!config_.events[3]) return "ok not sent: Report_Buffer_Fill_Warning is disabled";
  llrp::ReaderEventNotificationData d = eventData();
  unsigned pct = outbox_->fillPercent();
  d.reportBufferLevelWarningEvent =
      llrp::ReportBufferLevelWarningEvent{static_cast<uint8_t>(pct < kWarnPercent ? kWarnPercent : pct)};
  sendEvent(std::move(d));
  return "ok sent";
}

std::string Reader::bufferOverflow() {
  std::lock_guard<std::mutex> g(lock_);
  if (outbox_ == nullptr) return "error no client connected";
  llrp::ReaderEventNotificationData d = eventData();
  d.reportBufferOverflowErrorEvent = llrp::ReportBufferOverflowErrorEvent{};
  sendEvent(std::move(d));
  return "ok sent";
}

std::string Reader::describeROSpecs() {
  std::lock_guard<std::mutex> g(lock_);
  std::string s = engine_.describeROSpecs();
  return s.empty() ? "ok none" : "ok " + s;
}

std::string Reader::describePower() {
  std::lock_guard<std::mutex> g(lock_);
  std::string s = "ok";
  for (const AntennaSettings& a : config_.antennas) {
    // Appended piece by piece: GCC 12 at -O3 misreads operator+ chains here (-Wrestrict).
    s += ' ';
    s += std::to_string(a.id);
    s += '=';
    s += std::to_string(a.transmitPower);
  }
  return s;
}

}  // namespace tessera::readersim
