// src/readerapi/reader_session.cc — see reader_session.h: connecting, setting the reader up,
// the reports and events the link hands over, and the event records.
#include "readerapi/reader_session.h"

#include <algorithm>
#include <chrono>
#include <type_traits>
#include <variant>

#include "llrp/codec.h"
#include "readerapi/reader_caps.h"
#include "readerapi/rfid_api.h"
#include "readerapi/tag_report.h"
#include "readerapi/wide_text.h"

namespace tessera::readerapi {

namespace {

using llrp::MessageType;

// The LLRPStatus of any reply, or null for messages without one.
const llrp::LLRPStatus* statusOf(const llrp::MessageBody& body) {
  return std::visit(
      [](const auto& m) -> const llrp::LLRPStatus* {
        if constexpr (requires { m.llrpStatus; }) {
          return &m.llrpStatus;
        } else {
          return nullptr;
        }
      },
      body);
}

uint64_t nowMicros() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count());
}

}  // namespace

ReaderSession::ReaderSession(ReaderHandle handle)
    : handle_(handle), tags_(TagStorageSettings{}.maxTagCount), link_(tags_, *this) {}

ReaderSession::~ReaderSession() {
  std::lock_guard op(opLock_);
  closeConnection();
}

bool ReaderSession::onReceiveThread() const { return link_.onReceiveThread(); }

RfidStatus ReaderSession::fail(RfidStatus status, std::string what, std::string where,
                               uint32_t messageType) {
  std::lock_guard g(stateLock_);
  return failLocked(status, std::move(what), std::move(where), messageType);
}

RfidStatus ReaderSession::noSuchAntenna(uint16_t antennaId, uint16_t n) {
  return fail(RFID_API_PARAM_OUT_OF_RANGE, "antenna " + std::to_string(antennaId) +
                                               " is not one of the reader's " + std::to_string(n));
}

RfidStatus ReaderSession::failLocked(RfidStatus status, std::string what, std::string where,
                                     uint32_t messageType) {
  error_ = errorRecord(status, std::move(what), std::move(where), messageType);
  return status;
}

RfidStatus ReaderSession::failWith(RfidStatus status, ErrorRecord record) {
  std::lock_guard g(stateLock_);
  error_ = std::move(record);
  return status;
}

RfidStatus ReaderSession::failWithLlrp(const llrp::LLRPStatus& st, uint32_t messageType) {
  ErrorRecord r;
  r.status = RFID_API_READER_ERROR;
  r.messageType = messageType;
  r.llrpStatusCode = static_cast<uint32_t>(st.statusCode);
  r.what = st.errorDescription.empty() ? llrp::statusCodeName(st.statusCode) : st.errorDescription;
  r.where = std::string(llrp::messageName(static_cast<MessageType>(messageType))) + ": " +
            llrp::statusCodeName(st.statusCode);
  if (st.fieldError) {
    r.fieldNum = st.fieldError->fieldNum;
    r.fieldErrorCode = static_cast<uint16_t>(st.fieldError->errorCode);
    r.where += ", field " + std::to_string(r.fieldNum) + " (" +
               llrp::statusCodeName(st.fieldError->errorCode) + ")";
  }
  if (!st.parameterErrors.empty()) {
    // The innermost parameter names the culprit most precisely.
    const auto& p = st.parameterErrors.back();
    r.parameterType = p.parameterType;
    r.parameterErrorCode = static_cast<uint16_t>(p.errorCode);
    r.where += ", parameter " + std::to_string(p.parameterType) + " (" +
               llrp::statusCodeName(p.errorCode) + ")";
    if (p.fieldError) {
      r.fieldNum = p.fieldError->fieldNum;
      r.fieldErrorCode = static_cast<uint16_t>(p.fieldError->errorCode);
      r.where += ", field " + std::to_string(r.fieldNum) + " (" +
                 llrp::statusCodeName(p.fieldError->errorCode) + ")";
    }
  }
  std::lock_guard g(stateLock_);
  error_ = std::move(r);
  return RFID_API_READER_ERROR;
}

ErrorRecord ReaderSession::lastError() {
  std::lock_guard g(stateLock_);
  return error_;
}

uint16_t ReaderSession::antennaCount() {
  std::lock_guard g(stateLock_);
  return caps_.numAntennas;
}

// ---------------------------------------------------------------------------------------------
// Connection
// ---------------------------------------------------------------------------------------------

RfidStatus ReaderSession::connect(const std::string& host, uint32_t port, uint32_t connectTimeoutMs,
                                  const ConnectionSettings* settings) {
  std::lock_guard op(opLock_);
  host_ = host;
  port_ = port;
  timeouts_.connectMs = connectTimeoutMs ? connectTimeoutMs : kDefaultConnectTimeoutMs;
  timeouts_.keepaliveMs = kDefaultKeepaliveMs;
  timeouts_.keepaliveMisses = kDefaultKeepaliveMisses;
  timeouts_.responseMs = kDefaultResponseTimeoutMs;
  timeouts_.greetingMs = kDefaultGreetingTimeoutMs;
  if (settings != nullptr && (settings->flags & kConnectionUseSettings) != 0) {
    if (settings->keepaliveMs) timeouts_.keepaliveMs = settings->keepaliveMs;
    if (settings->keepaliveMisses) timeouts_.keepaliveMisses = settings->keepaliveMisses;
    if (settings->responseTimeoutMs) timeouts_.responseMs = settings->responseTimeoutMs;
    if (settings->greetingTimeoutMs) timeouts_.greetingMs = settings->greetingTimeoutMs;
  }
  if (port == 0 || port > 65535) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "port " + std::to_string(port) + " is not a TCP port");
  }
  return establish();
}

RfidStatus ReaderSession::reconnect() {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_Reconnect called from the event callback");
  std::lock_guard op(opLock_);
  if (host_.empty()) return fail(RFID_API_INVALID_HANDLE, "the handle was never connected");
  closeConnection();
  RfidStatus st = establish();
  if (st != RFID_API_SUCCESS) return st;
  return restoreAfterReconnect();
}

RfidStatus ReaderSession::disconnect() {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_Disconnect called from the event callback");
  std::lock_guard op(opLock_);
  if (link_.connected()) {
    RfidStatus st = roSpecInstalled_ ? removeInventory() : RFID_API_SUCCESS;
    link_.markClosing();
    llrp::Message reply;
    if (!unreachable(st))
      (void)request(llrp::CloseConnection{}, MessageType::kCloseConnectionResponse, reply);
  }
  closeConnection();
  return RFID_API_SUCCESS;
}

// Stops the receive thread and closes the socket; the session keeps its settings.
void ReaderSession::closeConnection() {
  link_.close();
  roSpecInstalled_ = false;
}

RfidStatus ReaderSession::establish() {
  ErrorRecord error;
  RfidStatus st = link_.open(host_, port_, timeouts_, error);
  if (st != RFID_API_SUCCESS) return failWith(st, std::move(error));
  st = setupReader();
  if (st != RFID_API_SUCCESS) {
    ErrorRecord saved = lastError();
    closeConnection();
    std::lock_guard g(stateLock_);
    error_ = saved;
  }
  return st;
}

// Capabilities, a clean reader, keepalives and event notifications.
RfidStatus ReaderSession::setupReader() {
  llrp::Message reply;
  llrp::GetReaderCapabilities getCaps;
  getCaps.requestedData = llrp::GetReaderCapabilitiesRequestedData::kAll;
  RfidStatus st = requestChecked(getCaps, MessageType::kGetReaderCapabilitiesResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  const auto& c = std::get<llrp::GetReaderCapabilitiesResponse>(reply.body);
  const ReaderCaps caps = toReaderCaps(c);
  {
    std::lock_guard g(stateLock_);
    caps_ = caps;
    const size_t n = std::max<size_t>(caps.numAntennas, 1);
    if (antennas_.size() != n) antennas_.resize(n);
    if (singulation_.size() != n)
      singulation_.resize(n, singulation_.empty() ? SingulationControl{} : singulation_[0]);
  }

  // Start from a known state: no ROSpec and no AccessSpec of an earlier client.
  st = requestChecked(llrp::DeleteROSpec{0}, MessageType::kDeleteROSpecResponse, reply);
  if (unreachable(st)) return st;
  st = requestChecked(llrp::DeleteAccessSpec{0}, MessageType::kDeleteAccessSpecResponse, reply);
  if (unreachable(st)) return st;

  // Keepalives let us notice a dead link that TCP does not report; events drive the callback.
  llrp::SetReaderConfig cfg;
  llrp::KeepaliveSpec ka;
  ka.keepaliveTriggerType = llrp::KeepaliveTriggerType::kPeriodic;
  ka.periodicTriggerValue = timeouts_.keepaliveMs;
  cfg.keepaliveSpec = ka;
  llrp::ReaderEventNotificationSpec ev;
  auto on = [&ev](llrp::NotificationEventType t) {
    llrp::EventNotificationState s;
    s.eventType = t;
    s.notificationState = true;
    ev.eventNotificationStates.push_back(s);
  };
  on(llrp::NotificationEventType::kGPIEvent);
  on(llrp::NotificationEventType::kROSpecEvent);
  on(llrp::NotificationEventType::kReaderExceptionEvent);
  on(llrp::NotificationEventType::kAntennaEvent);
  if (caps.canReportBufferFillWarning) on(llrp::NotificationEventType::kReportBufferFillWarning);
  cfg.readerEventNotificationSpec = ev;
  // GPI triggers and GPI events only work on inputs the client has enabled.
  for (uint16_t p = 1; p <= caps.numGpis; ++p) {
    llrp::GPIPortCurrentState s;
    s.gpiPortNum = p;
    s.config = true;
    cfg.gpiPortCurrentStates.push_back(s);
  }
  st = requestChecked(cfg, MessageType::kSetReaderConfigResponse, reply);
  if (st != RFID_API_SUCCESS && !unreachable(st)) {
    // A reader that refuses part of it still gets the keepalive on its own.
    llrp::SetReaderConfig minimal;
    minimal.keepaliveSpec = ka;
    st = requestChecked(minimal, MessageType::kSetReaderConfigResponse, reply);
  }
  if (unreachable(st)) return st;
  link_.setWatchdog(st == RFID_API_SUCCESS);
  st = refreshAntennaConfigs();
  if (unreachable(st)) return st;
  return RFID_API_SUCCESS;
}

// Reads every antenna's receiver and transmitter so that inventories carry the power in force.
// An antenna the client set keeps the client's values: on a reconnect the reader may report
// its defaults, having forgotten the last connection's settings, and restoreAfterReconnect()
// sends the client's values back afterwards.
RfidStatus ReaderSession::refreshAntennaConfigs() {
  llrp::GetReaderConfig get;
  get.antennaId = 0;
  get.requestedData = llrp::GetReaderConfigRequestedData::kAntennaConfiguration;
  llrp::Message reply;
  RfidStatus st = requestChecked(get, MessageType::kGetReaderConfigResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  const auto& r = std::get<llrp::GetReaderConfigResponse>(reply.body);
  std::lock_guard g(stateLock_);
  for (const auto& ac : r.antennaConfigurations) {
    if (ac.antennaId == 0 || ac.antennaId > antennas_.size()) continue;
    auto& a = antennas_[ac.antennaId - 1];
    if (a.setByClient) continue;
    if (ac.rfReceiver) a.receiver = ac.rfReceiver;
    if (ac.rfTransmitter) a.transmitter = ac.rfTransmitter;
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::restoreAfterReconnect() {
  // A reader keeps SET_READER_CONFIG values only for the connection: set the client's again.
  llrp::SetReaderConfig cfg;
  bool restore;
  {
    std::lock_guard g(stateLock_);
    for (size_t i = 0; i < antennas_.size(); ++i) {
      if (!antennas_[i].setByClient) continue;
      llrp::AntennaConfiguration ac;
      ac.antennaId = static_cast<uint16_t>(i + 1);
      ac.rfReceiver = antennas_[i].receiver;
      ac.rfTransmitter = antennas_[i].transmitter;
      cfg.antennaConfigurations.push_back(ac);
    }
    restore = restoreInventory_;
  }
  llrp::Message reply;
  if (!cfg.antennaConfigurations.empty()) {
    RfidStatus st = requestChecked(cfg, MessageType::kSetReaderConfigResponse, reply);
    if (st != RFID_API_SUCCESS) return st;
  }
  if (restore) return installInventory();
  return RFID_API_SUCCESS;
}

// ---------------------------------------------------------------------------------------------
// Requests
// ---------------------------------------------------------------------------------------------

RfidStatus ReaderSession::request(llrp::MessageBody body, MessageType expected,
                                  llrp::Message& reply) {
  ErrorRecord error;
  RfidStatus st = link_.request(std::move(body), expected, reply, error);
  if (st != RFID_API_SUCCESS) return failWith(st, std::move(error));
  return RFID_API_SUCCESS;
}

// A request whose reply must carry a successful LLRPStatus.
RfidStatus ReaderSession::requestChecked(llrp::MessageBody body, MessageType expected,
                                         llrp::Message& reply) {
  const auto type = static_cast<uint32_t>(llrp::messageType(body));
  RfidStatus st = request(std::move(body), expected, reply);
  if (st != RFID_API_SUCCESS) return st;
  const llrp::LLRPStatus* s = statusOf(reply.body);
  if (s != nullptr && s->statusCode != llrp::StatusCode::kSuccess) return failWithLlrp(*s, type);
  return RFID_API_SUCCESS;
}

// ---------------------------------------------------------------------------------------------
// What the link hands over
// ---------------------------------------------------------------------------------------------

void ReaderSession::onReport(const llrp::ROAccessReport& report, std::vector<uint32_t>& events) {
  std::shared_ptr<const PostFilterData> filter;
  uint32_t maxEpc;
  {
    std::lock_guard g(stateLock_);
    filter = postFilter_;
    maxEpc = maxEpcBytes_;
  }
  bool stored = false;
  const uint64_t arrived = nowMicros();  // the time of reads the reader gave no timestamp
  for (const auto& r : report.tagReportData) {
    const ReaderTagData t = toReaderTagData(r, maxEpc, arrived);
    if (filter && !passesPostFilter(*filter, llrp::epcBytes(r.epc), t.peakRSSI)) continue;
    tags_.push(t);
    stored = true;
  }
  if (stored) events.push_back(TAG_READ_EVENT);
}

void ReaderSession::onBufferEvent(uint32_t code, const BufferEventData& data,
                                  std::vector<uint32_t>& events) {
  {
    std::lock_guard g(stateLock_);
    bufferData_ = data;
  }
  events.push_back(code);
}

void ReaderSession::onLost(bool notify, bool readerClosed, const std::string& why) {
  std::lock_guard g(stateLock_);
  DisconnectionEventData d;
  d.reason = readerClosed ? READER_INITIATED_DISCONNECTION : CONNECTION_LOST;
  disconnectionData_ = d;
  if (notify) {
    failLocked(
        RFID_API_NOT_CONNECTED,
        readerClosed ? "the reader closed the connection" : "the connection to the reader is lost",
        why);
  }
}

void ReaderSession::onEvent(const llrp::ReaderEventNotificationData& d,
                            std::vector<uint32_t>& events) {
  std::lock_guard g(stateLock_);
  if (d.gpiEvent) {
    GpiEventData e;
    e.port = d.gpiEvent->gpiPortNumber;
    e.state = d.gpiEvent->gpiEvent ? GPI_PORT_STATE_HIGH : GPI_PORT_STATE_LOW;
    gpiData_ = e;
    events.push_back(GPI_EVENT);
  }
  if (d.roSpecEvent) {
    InventoryEventData e;
    e.roSpecId = d.roSpecEvent->roSpecId;
    const auto kind = d.roSpecEvent->eventType;
    e.kind = kind == llrp::ROSpecEventType::kStartOfROSpec ? INVENTORY_STARTED
             : kind == llrp::ROSpecEventType::kEndOfROSpec ? INVENTORY_ENDED
                                                           : INVENTORY_PREEMPTED;
    inventoryData_ = e;
    events.push_back(e.kind == INVENTORY_STARTED ? INVENTORY_START_EVENT : INVENTORY_STOP_EVENT);
  }
  if (d.antennaEvent) {
    AntennaEventData e;
    e.antennaId = d.antennaEvent->antennaId;
    e.state = d.antennaEvent->eventType == llrp::AntennaEventType::kAntennaConnected
                  ? ANTENNA_CONNECTED
                  : ANTENNA_DISCONNECTED;
    antennaData_ = e;
    events.push_back(ANTENNA_EVENT);
  }
  if (d.readerExceptionEvent) {
    ReaderExceptionEventData e;
    copyWide(e.message, d.readerExceptionEvent->message);
    exceptionData_ = e;
    events.push_back(READER_EXCEPTION_EVENT);
  }
  if (d.reportBufferLevelWarningEvent || d.reportBufferOverflowErrorEvent) {
    BufferEventData e;
    e.percentFull = d.reportBufferOverflowErrorEvent
                        ? 100
                        : d.reportBufferLevelWarningEvent->reportBufferPercentageFull;
    readerBufferData_ = e;
    events.push_back(READER_BUFFER_EVENT);
  }
}

void ReaderSession::deliver(const std::vector<uint32_t>& events) {
  if (events.empty()) return;
  Registration reg;
  {
    std::lock_guard g(stateLock_);
    reg = registration_;
  }
  for (uint32_t code : events) {
    if (code >= 32 || (reg.mask & (1u << code)) == 0) continue;
    if (reg.callback != nullptr) reg.callback(handle_, code);
    if (reg.contextCallback != nullptr) reg.contextCallback(handle_, code, reg.context);
  }
}

// ---------------------------------------------------------------------------------------------
// Calls
// ---------------------------------------------------------------------------------------------

RfidStatus ReaderSession::caps(ReaderCaps& out) {
  std::lock_guard g(stateLock_);
  out = caps_;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::registerEvents(const uint32_t* types, uint32_t count,
                                         RfidEventCallback callback,
                                         RfidEventContextCallback contextCallback, void* context) {
  if (count > 0 && types == nullptr)
    return fail(RFID_API_PARAM_ERROR, "the event type list is null");
  Registration reg;
  for (uint32_t i = 0; i < count; ++i) {
    if (types[i] >= kRfidEventTypeCount) {
      return fail(RFID_API_PARAM_OUT_OF_RANGE, "unknown event type " + std::to_string(types[i]));
    }
    reg.mask |= 1u << types[i];
  }
  reg.callback = callback;
  reg.contextCallback = contextCallback;
  reg.context = context;
  if (callback == nullptr && contextCallback == nullptr) reg.mask = 0;
  std::lock_guard g(stateLock_);
  registration_ = reg;
  return RFID_API_SUCCESS;
}

template <typename T>
RfidStatus ReaderSession::eventData(uint32_t eventType, T& out) {
  std::unique_lock g(stateLock_);
  const std::optional<T>* slot = nullptr;
  if constexpr (std::is_same_v<T, GpiEventData>) {
    if (eventType == GPI_EVENT) slot = &gpiData_;
  } else if constexpr (std::is_same_v<T, AntennaEventData>) {
    if (eventType == ANTENNA_EVENT) slot = &antennaData_;
  } else if constexpr (std::is_same_v<T, InventoryEventData>) {
    if (eventType == INVENTORY_START_EVENT || eventType == INVENTORY_STOP_EVENT)
      slot = &inventoryData_;
  } else if constexpr (std::is_same_v<T, BufferEventData>) {
    if (eventType == BUFFER_FULL_WARNING_EVENT || eventType == BUFFER_FULL_EVENT)
      slot = &bufferData_;
    if (eventType == READER_BUFFER_EVENT) slot = &readerBufferData_;
  } else if constexpr (std::is_same_v<T, DisconnectionEventData>) {
    if (eventType == DISCONNECTION_EVENT) slot = &disconnectionData_;
  } else if constexpr (std::is_same_v<T, ReaderExceptionEventData>) {
    if (eventType == READER_EXCEPTION_EVENT) slot = &exceptionData_;
  }
  if (slot == nullptr) {
    g.unlock();
    return fail(RFID_API_PARAM_ERROR,
                "event type " + std::to_string(eventType) + " has no data of this kind");
  }
  if (!slot->has_value()) {
    g.unlock();
    return fail(RFID_API_NO_DATA, "no event of type " + std::to_string(eventType) + " yet");
  }
  out = **slot;
  return RFID_API_SUCCESS;
}

template RfidStatus ReaderSession::eventData(uint32_t, GpiEventData&);
template RfidStatus ReaderSession::eventData(uint32_t, AntennaEventData&);
template RfidStatus ReaderSession::eventData(uint32_t, InventoryEventData&);
template RfidStatus ReaderSession::eventData(uint32_t, BufferEventData&);
template RfidStatus ReaderSession::eventData(uint32_t, DisconnectionEventData&);
template RfidStatus ReaderSession::eventData(uint32_t, ReaderExceptionEventData&);

RfidStatus ReaderSession::readTag(ReaderTagData& out) {
  // No error record here: an empty buffer is the normal end of every drain.
  return tags_.pop(out) ? RFID_API_SUCCESS : RFID_API_NO_DATA;
}

}  // namespace tessera::readerapi
