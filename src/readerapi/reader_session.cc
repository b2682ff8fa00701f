// src/readerapi/reader_session.cc — see reader_session.h.
#include "readerapi/reader_session.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <span>
#include <type_traits>
#include <variant>

#include "llrp/codec.h"
#include "llrp/vendor_extension.h"
#include "readerapi/rfid_api.h"

namespace tessera::readerapi {

namespace {

using Clock = std::chrono::steady_clock;
using llrp::MessageType;

// The session whose receive thread runs on this thread, so that calls made from the callback
// that would wait for that same thread are refused instead of dead-locking.
thread_local const ReaderSession* tlsReceiving = nullptr;

constexpr size_t kReceiveChunk = 64 * 1024;
constexpr int kReceiveWindow = 256 * 1024;
// A keepalive read-through that finds the socket empty waits this long for the KEEPALIVE.
constexpr int kReadThroughWaitMs = 50;
// A consumer that takes no read for this long while the tag buffer is at its high-water mark is
// stalled, not slow: it gets BUFFER_FULL_WARNING_EVENT. Long enough for any pause of a working
// consumer (a reconnection attempt, a blocked output that gives up after a second).
constexpr std::chrono::seconds kStallLimit{30};

// The consumer's progress while the tag buffer is held back: a stall is kStallLimit without a
// read taken.
class Progress {
 public:
  explicit Progress(uint64_t popped) : popped_(popped), at_(Clock::now()) {}
  // Notes the consumer's count of reads taken (or, with `busy`, a reason it could not take any);
  // whether it has now made no progress for kStallLimit.
  bool stalled(uint64_t popped, bool busy, Clock::time_point now) {
    if (popped != popped_ || busy) {
      popped_ = popped;
      at_ = now;
      return false;
    }
    return now - at_ >= kStallLimit;
  }
  // When the consumer will count as stalled if it takes nothing.
  Clock::time_point deadline() const { return at_ + kStallLimit; }

 private:
  uint64_t popped_;
  Clock::time_point at_;
};

// The tag reads of a report frame; 0 for any other frame.
uint32_t readsIn(const std::vector<uint8_t>& frame) {
  llrp::Message msg;
  if (!llrp::decode(frame, msg).ok()) return 0;
  const auto* r = std::get_if<llrp::ROAccessReport>(&msg.body);
  return r == nullptr ? 0 : static_cast<uint32_t>(r->tagReportData.size());
}

std::string errnoText(int err) {
  char buf[128];
  return std::string(strerror_r(err, buf, sizeof buf));
}

int remainingMs(Clock::time_point deadline) {
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return ms < 0 ? 0 : static_cast<int>(std::min<long long>(ms, 60000));
}

// Wide copies of narrow texts for the records the caller reads (bytes above 0x7f kept as is).
template <size_t N>
void copyWide(wchar_t (&dst)[N], const std::string& src) {
  size_t n = std::min(src.size(), N - 1);
  for (size_t i = 0; i < n; ++i) dst[i] = static_cast<wchar_t>(static_cast<unsigned char>(src[i]));
  dst[n] = L'\0';
}

const char* greetingStatusText(llrp::ConnectionAttemptStatus status) {
  switch (status) {
    case llrp::ConnectionAttemptStatus::kFailedReaderInitiatedConnectionExists:
      return "the reader refused the connection: a reader-initiated connection already exists";
    case llrp::ConnectionAttemptStatus::kFailedClientInitiatedConnectionExists:
      return "the reader refused the connection: another client is already connected";
    case llrp::ConnectionAttemptStatus::kAnotherConnectionAttempted:
      return "the reader refused the connection: another connection was attempted";
    default:
      return "the reader refused the connection for a reason of its own";
  }
}

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

ReaderDateTime toDateTime(uint64_t microsecondsUtc) {
  ReaderDateTime d;
  const time_t secs = static_cast<time_t>(microsecondsUtc / 1000000u);
  struct tm tmv {};
  if (localtime_r(&secs, &tmv) == nullptr) return d;
  d.year = static_cast<uint16_t>(tmv.tm_year + 1900);
  d.month = static_cast<uint16_t>(tmv.tm_mon + 1);
  d.dayOfWeek = static_cast<uint16_t>(tmv.tm_wday);
  d.day = static_cast<uint16_t>(tmv.tm_mday);
  d.hour = static_cast<uint16_t>(tmv.tm_hour);
  d.minute = static_cast<uint16_t>(tmv.tm_min);
  d.second = static_cast<uint16_t>(tmv.tm_sec);
  d.milliseconds = static_cast<uint16_t>((microsecondsUtc / 1000u) % 1000u);
  return d;
}

// The reader did not answer or the link is gone: further requests of the same call would only
// wait again.
bool unreachable(RfidStatus st) {
  return st == RFID_API_COMMAND_TIMEOUT || st == RFID_API_NOT_CONNECTED;
}

uint64_t nowMicros() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count());
}

bool bitAt(std::span<const uint8_t> bytes, uint32_t bit) {
  return (bytes[bit / 8] >> (7 - bit % 8)) & 1u;
}

}  // namespace

void fillErrorInfo(const ErrorRecord& r, ErrorInfo& info) {
  info = ErrorInfo{};
  info.status = r.status;
  info.llrpStatusCode = r.llrpStatusCode;
  info.fieldNum = r.fieldNum;
  info.fieldErrorCode = r.fieldErrorCode;
  info.parameterType = r.parameterType;
  info.parameterErrorCode = r.parameterErrorCode;
  info.messageType = r.messageType;
  copyWide(info.statusDesc, r.what);
  copyWide(info.vendorMessage, r.where);
}

ReaderSession::ReaderSession(ReaderHandle handle)
    : handle_(handle), tags_(TagStorageSettings{}.maxTagCount) {}

ReaderSession::~ReaderSession() {
  std::lock_guard op(opLock_);
  closeConnection();
}

bool ReaderSession::onReceiveThread() const { return tlsReceiving == this; }

RfidStatus ReaderSession::fail(RfidStatus status, std::string what, std::string where,
                               uint32_t messageType) {
  std::lock_guard g(stateLock_);
  return failLocked(status, std::move(what), std::move(where), messageType);
}

RfidStatus ReaderSession::failLocked(RfidStatus status, std::string what, std::string where,
                                     uint32_t messageType) {
  ErrorRecord r;
  r.status = status;
  r.messageType = messageType;
  r.what = std::move(what);
  r.where = std::move(where);
  error_ = std::move(r);
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
  connectTimeoutMs_ = connectTimeoutMs ? connectTimeoutMs : kDefaultConnectTimeoutMs;
  keepaliveMs_ = kDefaultKeepaliveMs;
  keepaliveMisses_ = kDefaultKeepaliveMisses;
  responseTimeoutMs_ = kDefaultResponseTimeoutMs;
  greetingTimeoutMs_ = kDefaultGreetingTimeoutMs;
  if (settings != nullptr && (settings->flags & kConnectionUseSettings) != 0) {
    if (settings->keepaliveMs) keepaliveMs_ = settings->keepaliveMs;
    if (settings->keepaliveMisses) keepaliveMisses_ = settings->keepaliveMisses;
    if (settings->responseTimeoutMs) responseTimeoutMs_ = settings->responseTimeoutMs;
    if (settings->greetingTimeoutMs) greetingTimeoutMs_ = settings->greetingTimeoutMs;
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
  bool connected;
  {
    std::lock_guard g(stateLock_);
    connected = connected_;
  }
  if (connected) {
    RfidStatus st = roSpecInstalled_ ? removeInventory() : RFID_API_SUCCESS;
    {
      std::lock_guard g(stateLock_);
      closing_ = true;
    }
    llrp::Message reply;
    if (!unreachable(st))
      (void)request(llrp::CloseConnection{}, MessageType::kCloseConnectionResponse, reply);
  }
  closeConnection();
  return RFID_API_SUCCESS;
}

// Stops the receive thread and closes the socket; the session keeps its settings.
void ReaderSession::closeConnection() {
  {
    std::lock_guard g(stateLock_);
    closing_ = true;
    connected_ = false;
    replyCond_.notify_all();
  }
  stopReceiving_ = true;
  tags_.interruptWait();  // a receive thread holding back at the buffer waits there, not in poll
  if (fd_ >= 0) ::shutdown(fd_, SHUT_RDWR);
  if (thread_.joinable()) {
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();  // cannot happen through the API (refused above); never self-join
    } else {
      thread_.join();
    }
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  roSpecInstalled_ = false;
}

RfidStatus ReaderSession::openSocket(int& out) {
  const std::string where = host_ + ":" + std::to_string(port_);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* res = nullptr;
  const std::string portText = std::to_string(port_);
  int rc = ::getaddrinfo(host_.c_str(), portText.c_str(), &hints, &res);
  if (rc != 0 || res == nullptr) {
    return fail(RFID_HOST_UNRESOLVED,
                std::string("cannot resolve the reader host: ") + gai_strerror(rc), where);
  }
  RfidStatus status = RFID_CONNECTION_FAILED;
  std::string why = "no address to connect to";
  for (addrinfo* ai = res; ai != nullptr; ai = ai->ai_next) {
    int fd =
        ::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, ai->ai_protocol);
    if (fd < 0) {
      why = "socket: " + errnoText(errno);
      continue;
    }
    rc = ::connect(fd, ai->ai_addr, ai->ai_addrlen);
    int err = rc == 0 ? 0 : errno;
    if (rc != 0 && err == EINPROGRESS) {
      pollfd p{fd, POLLOUT, 0};
      int n;
      do {
        n = ::poll(&p, 1, static_cast<int>(connectTimeoutMs_));
      } while (n < 0 && errno == EINTR);
      if (n == 0) {
        err = ETIMEDOUT;
      } else {
        socklen_t len = sizeof err;
        if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
      }
    }
    if (err == 0) {
      int flags = ::fcntl(fd, F_GETFL);
      (void)::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
      int one = 1;
      (void)::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      // A fixed window: what the kernel may take in while reports are held back is what a
      // keepalive read-through has to move into the backlog.
      int window = kReceiveWindow;
      (void)::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
      timeval tv{};
      tv.tv_sec = responseTimeoutMs_ / 1000;
      tv.tv_usec = static_cast<suseconds_t>((responseTimeoutMs_ % 1000) * 1000);
      (void)::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
      ::freeaddrinfo(res);
      out = fd;
      return RFID_API_SUCCESS;
    }
    ::close(fd);
    if (err == ECONNREFUSED) {
      status = RFID_CONNECTION_REFUSED;
      why = "connection refused: nothing listens at the reader port";
    } else if (err == ECONNRESET) {
      status = RFID_CONNECTION_REFUSED;
      why = "the reader reset the connection at once";
    } else if (err == ETIMEDOUT) {
      status = RFID_CONNECTION_TIMEOUT;
      why = "no TCP connection within " + std::to_string(connectTimeoutMs_) + " ms";
    } else {
      status = RFID_CONNECTION_FAILED;
      why = "connect: " + errnoText(err);
    }
  }
  ::freeaddrinfo(res);
  return fail(status, why, where);
}

// The reader speaks first: a READER_EVENT_NOTIFICATION with ConnectionAttemptEvent.
RfidStatus ReaderSession::awaitGreeting(int fd) {
  const std::string where = host_ + ":" + std::to_string(port_);
  greetingFramer_.reset();
  const auto deadline = Clock::now() + std::chrono::milliseconds(greetingTimeoutMs_);
  std::vector<uint8_t> frame;
  uint8_t buf[4096];
  for (;;) {
    int popped = greetingFramer_.pop(frame);
    if (popped < 0) {
      return fail(RFID_NOT_AN_LLRP_READER,
                  "the peer does not speak LLRP: " + greetingFramer_.error().text(), where);
    }
    if (popped == 1) break;
    pollfd p{fd, POLLIN, 0};
    int n = ::poll(&p, 1, remainingMs(deadline));
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) {
      return fail(
          RFID_CONNECTION_TIMEOUT,
          "the reader accepted the TCP connection but sent no ConnectionAttemptEvent within " +
              std::to_string(greetingTimeoutMs_) + " ms",
          where);
    }
    ssize_t got = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (got < 0 && errno == ECONNRESET) {
      // Accepted and reset at once: the reader service turns connections away.
      return fail(RFID_CONNECTION_REFUSED, "the reader reset the connection before greeting",
                  where);
    }
    if (got <= 0) {
      return fail(RFID_CONNECTION_FAILED,
                  got == 0 ? "the reader closed the connection before greeting"
                           : "receive: " + errnoText(errno),
                  where);
    }
    if (greetingFramer_.feed(std::span<const uint8_t>(buf, static_cast<size_t>(got))) < 0) {
      return fail(RFID_NOT_AN_LLRP_READER,
                  "the peer does not speak LLRP: " + greetingFramer_.error().text(), where);
    }
  }
  llrp::Message msg;
  llrp::Error err = llrp::decode(frame, msg);
  if (!err.ok()) {
    return fail(RFID_NOT_AN_LLRP_READER,
                "the reader's greeting could not be decoded: " + err.text(), where);
  }
  const auto* ren = std::get_if<llrp::ReaderEventNotification>(&msg.body);
  if (ren == nullptr || !ren->readerEventNotificationData.connectionAttemptEvent) {
    return fail(RFID_NOT_AN_LLRP_READER,
                std::string("the reader's first message is ") +
                    llrp::messageName(llrp::messageType(msg.body)) +
                    ", not a ConnectionAttemptEvent",
                where);
  }
  const auto status = ren->readerEventNotificationData.connectionAttemptEvent->status;
  if (status != llrp::ConnectionAttemptStatus::kSuccess) {
    RfidStatus st = fail(
        RFID_CONNECTION_DENIED, greetingStatusText(status),
        where + ": ConnectionAttemptEvent status " + std::to_string(static_cast<unsigned>(status)),
        static_cast<uint32_t>(MessageType::kReaderEventNotification));
    return st;
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::establish() {
  int fd = -1;
  RfidStatus st = openSocket(fd);
  if (st != RFID_API_SUCCESS) return st;
  st = awaitGreeting(fd);
  if (st != RFID_API_SUCCESS) {
    ::close(fd);
    return st;
  }
  fd_ = fd;
  {
    std::lock_guard g(stateLock_);
    connected_ = true;
    closing_ = false;
    readerClosing_ = false;
    watchdog_ = false;
    pendingId_ = 0;
    reply_.reset();
    replyError_.reset();
  }
  stopReceiving_ = false;
  thread_ = std::thread([this, fd] { receiveLoop(fd); });
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
  ReaderCaps caps{};
  if (c.generalDeviceCapabilities) {
    const auto& g = *c.generalDeviceCapabilities;
    caps.numAntennas = g.maxNumberOfAntennaSupported;
    caps.numGpis = g.gpioCapabilities.numGPIs;
    caps.numGpos = g.gpioCapabilities.numGPOs;
    caps.manufacturerId = g.deviceManufacturerName;
    caps.modelId = g.modelName;
    copyWide(caps.firmwareVersion, g.readerFirmwareVersion);
    caps.hasUtcClock = g.hasUTCClockCapability;
    caps.canSetAntennaProperties = g.canSetAntennaProperties;
    for (const auto& e : g.receiveSensitivityTable) {
      if (caps.numReceiveSensitivities >= kMaxSensitivityLevels) break;
      caps.receiveSensitivities[caps.numReceiveSensitivities++] = e.receiveSensitivityValue;
    }
  }
  if (c.llrpCapabilities) {
    caps.stateAwareSingulation = c.llrpCapabilities->canDoTagInventoryStateAwareSingulation;
    caps.canReportBufferFillWarning = c.llrpCapabilities->canReportBufferFillWarning;
    caps.maxRoSpecs = c.llrpCapabilities->maxNumROSpecs;
    caps.maxAccessSpecs = c.llrpCapabilities->maxNumAccessSpecs;
  }
  if (c.c1g2LLRPCapabilities)
    caps.maxSelectFiltersPerQuery = c.c1g2LLRPCapabilities->maxNumSelectFiltersPerQuery;
  if (c.regulatoryCapabilities) {
    const auto& r = *c.regulatoryCapabilities;
    caps.countryCode = r.countryCode;
    caps.communicationsStandard = static_cast<uint16_t>(r.communicationsStandard);
    if (r.uhfBandCapabilities) {
      const auto& u = *r.uhfBandCapabilities;
      for (const auto& e : u.transmitPowerLevels) {
        if (caps.numTransmitPowerLevels >= kMaxPowerLevels) break;
        caps.transmitPowerIndexes[caps.numTransmitPowerLevels] = e.index;
        caps.transmitPowerLevels[caps.numTransmitPowerLevels] =
            static_cast<uint16_t>(std::max<int16_t>(e.transmitPowerValue, 0));
        ++caps.numTransmitPowerLevels;
      }
      caps.hopping = u.frequencyInformation.hopping;
      if (!u.frequencyInformation.hopTables.empty()) {
        caps.numChannels =
            static_cast<uint16_t>(u.frequencyInformation.hopTables[0].frequencies.size());
      } else if (u.frequencyInformation.fixedFrequencyTable) {
        caps.numChannels =
            static_cast<uint16_t>(u.frequencyInformation.fixedFrequencyTable->frequencies.size());
      }
      if (u.c1g2RFModeTable)
        caps.numRfModes = static_cast<uint16_t>(u.c1g2RFModeTable->entries.size());
    }
  }
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
  ka.periodicTriggerValue = keepaliveMs_;
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
  {
    std::lock_guard g(stateLock_);
    watchdog_ = st == RFID_API_SUCCESS;
  }
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

RfidStatus ReaderSession::sendFrame(const llrp::Message& message) {
  std::vector<uint8_t> bytes;
  llrp::Error err = llrp::encode(message, bytes);
  if (!err.ok()) {
    return fail(RFID_API_PARAM_ERROR, "the request cannot be encoded: " + err.text(),
                llrp::messageName(llrp::messageType(message.body)));
  }
  std::lock_guard s(sendLock_);
  size_t off = 0;
  while (off < bytes.size()) {
    ssize_t n = ::send(fd_, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      return fail(RFID_API_NOT_CONNECTED, "send: " + errnoText(errno),
                  llrp::messageName(llrp::messageType(message.body)));
    }
    off += static_cast<size_t>(n);
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::request(llrp::MessageBody body, MessageType expected,
                                  llrp::Message& reply) {
  const auto type = llrp::messageType(body);
  const char* name = llrp::messageName(type);
  if (onReceiveThread()) {
    return fail(RFID_API_CALLBACK_CONTEXT,
                "a request to the reader was made from the event callback", name);
  }
  llrp::Message msg;
  {
    std::lock_guard g(stateLock_);
    if (!connected_) {
      failLocked(RFID_API_NOT_CONNECTED, "the connection to the reader is lost", name,
                 static_cast<uint32_t>(type));
      return RFID_API_NOT_CONNECTED;
    }
    msg.id = nextMessageId_++;
    if (nextMessageId_ == 0) nextMessageId_ = 1;
    pendingId_ = msg.id;
    reply_.reset();
    replyError_.reset();
  }
  // A receive thread holding back at the tag buffer must read on to find this reply.
  tags_.interruptWait();
  msg.body = std::move(body);
  RfidStatus st = sendFrame(msg);
  std::unique_lock g(stateLock_);
  if (st != RFID_API_SUCCESS) {
    pendingId_ = 0;
    return st;
  }
  const auto deadline = Clock::now() + std::chrono::milliseconds(responseTimeoutMs_);
  replyCond_.wait_until(g, deadline, [this] { return reply_ || replyError_ || !connected_; });
  pendingId_ = 0;
  if (reply_) {
    reply = std::move(*reply_);
    reply_.reset();
    if (std::holds_alternative<llrp::ErrorMessage>(reply.body)) return RFID_API_SUCCESS;
    if (llrp::messageType(reply.body) != expected) {
      failLocked(RFID_API_PROTOCOL_ERROR,
                 std::string("the reader answered ") +
                     llrp::messageName(llrp::messageType(reply.body)) + " instead of " +
                     llrp::messageName(expected),
                 name, static_cast<uint32_t>(type));
      return RFID_API_PROTOCOL_ERROR;
    }
    return RFID_API_SUCCESS;
  }
  if (replyError_) {
    failLocked(RFID_API_PROTOCOL_ERROR,
               "the reader's answer could not be decoded: " + replyError_->text(), name,
               static_cast<uint32_t>(type));
    replyError_.reset();
    return RFID_API_PROTOCOL_ERROR;
  }
  if (!connected_) {
    failLocked(RFID_API_NOT_CONNECTED,
               "the connection to the reader was lost while waiting for the answer", name,
               static_cast<uint32_t>(type));
    return RFID_API_NOT_CONNECTED;
  }
  failLocked(RFID_API_COMMAND_TIMEOUT,
             "no answer from the reader within " + std::to_string(responseTimeoutMs_) + " ms", name,
             static_cast<uint32_t>(type));
  return RFID_API_COMMAND_TIMEOUT;
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
// Receive thread
// ---------------------------------------------------------------------------------------------

void ReaderSession::receiveLoop(int fd) {
  tlsReceiving = this;
  pthread_setname_np(pthread_self(), "rfidRecv");
  llrp::Framer framer = std::move(greetingFramer_);
  std::vector<uint8_t> chunk(kReceiveChunk);
  std::vector<uint8_t> frame;
  std::vector<uint32_t> events;
  auto lastHeard = Clock::now();
  lastKeepalive_ = lastHeard;
  Progress progress(tags_.popped());
  bool stallWarned = false;
  bool broken = false;
  std::string why;

  // Frames that arrived together with the greeting.
  for (;;) {
    int n = framer.pop(frame);
    if (n <= 0) break;
    takeFrame(frame, events);
  }
  deliver(events);
  events.clear();

  while (!stopReceiving_) {
    if (holding_ && tags_.belowLowWater()) drainBacklog(events);
    deliver(events);
    events.clear();
    const auto now = Clock::now();
    bool watchdog;
    {
      std::lock_guard g(stateLock_);
      watchdog = watchdog_;
    }
    int waitMs = 1000;
    if (watchdog) {
      const auto silence = std::chrono::milliseconds(uint64_t{keepaliveMs_} * keepaliveMisses_);
      const auto deadline = lastHeard + silence;
      if (now >= deadline) {
        broken = true;
        why = "no keepalive from the reader for " + std::to_string(silence.count()) + " ms";
        break;
      }
      waitMs = std::min(waitMs, remainingMs(deadline) + 1);
    }
    bool readThrough = false;
    if (holding_) {
      // Back-pressure: the reports stay in the socket and TCP holds the reader back. Only a reply
      // that a call awaits, or a KEEPALIVE that is due, is fetched from behind them.
      const bool awaited = replyAwaited();
      // A caller awaiting its reply may be the consumer itself: that is no stall.
      if (!progress.stalled(tags_.popped(), awaited, now)) {
        stallWarned = false;
      } else if (!stallWarned) {
        stallWarned = true;
        bufferEvent(BUFFER_FULL_WARNING_EVENT, events);
      }
      const auto keepaliveDue = lastKeepalive_ + std::chrono::milliseconds(keepaliveMs_);
      if (!awaited && now < keepaliveDue) {
        auto until = std::min(keepaliveDue, now + std::chrono::seconds(1));
        if (!stallWarned) until = std::min(until, progress.deadline());
        (void)tags_.waitForRoom(until);
        continue;
      }
      readThrough = !awaited;
    } else {
      stallWarned = false;
    }
    pollfd p{fd, POLLIN, 0};
    int n = ::poll(&p, 1, readThrough ? std::min(waitMs, kReadThroughWaitMs) : waitMs);
    if (stopReceiving_) break;
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      // Nothing waits in the socket, so no KEEPALIVE sits behind held-back reports.
      if (readThrough) lastKeepalive_ = Clock::now();
      continue;
    }
    ssize_t got = ::recv(fd, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (stopReceiving_) break;
    if (got <= 0) {
      broken = true;
      why = got == 0 ? "the reader closed the connection" : "receive: " + errnoText(errno);
      break;
    }
    lastHeard = Clock::now();
    if (framer.feed(std::span<const uint8_t>(chunk.data(), static_cast<size_t>(got))) < 0) {
      broken = true;
      why = "the reader's byte stream is broken: " + framer.error().text();
      break;
    }
    int framed;
    while ((framed = framer.pop(frame)) == 1) takeFrame(frame, events);
    if (framed < 0) {
      broken = true;
      why = "the reader's byte stream is broken: " + framer.error().text();
    }
    deliver(events);
    events.clear();
    if (broken) break;
  }
  deliver(events);
  events.clear();
  if (broken && !stopReceiving_) {
    const bool notify = connectionLost(why);
    // Every report the reader sent before the link broke still reaches the consumer, ahead of
    // the disconnection.
    flushBacklog(events);
    if (notify) events.push_back(DISCONNECTION_EVENT);
    deliver(events);
  }
  dropBacklog();
  tlsReceiving = nullptr;
}

bool ReaderSession::replyAwaited() {
  std::lock_guard g(stateLock_);
  return pendingId_ != 0;
}

void ReaderSession::takeFrame(std::vector<uint8_t>& frame, std::vector<uint32_t>& events) {
  // The framer hands over only frames whose header it has checked.
  llrp::FrameHeader header;
  (void)llrp::decodeHeader(frame, header);
  const auto type = static_cast<MessageType>(header.type);
  // Reports and events keep their order behind the backlog; keepalives and replies never wait.
  const bool ordered =
      type == MessageType::kROAccessReport || type == MessageType::kReaderEventNotification;
  if (!ordered) {
    handleFrame(frame, events);
    if (type == MessageType::kKeepalive) lastKeepalive_ = Clock::now();
    return;
  }
  if (!holding_) {
    handleFrame(frame, events);
    holding_ = tags_.atHighWater();
    return;
  }
  if (backlog_.fits(frame.size())) {
    backlog_.push(std::move(frame));
    frame = {};
    return;
  }
  // A consumer that has made no progress for a long time: the reads are dropped and counted.
  const uint32_t reads = readsIn(frame);
  if (reads == 0) {
    handleFrame(frame, events);  // an event notification: small, and never dropped
    return;
  }
  discarded_ += reads;
  if (!dropping_) {
    dropping_ = true;
    bufferEvent(BUFFER_FULL_EVENT, events);
  }
}

void ReaderSession::drainBacklog(std::vector<uint32_t>& events) {
  while (!backlog_.empty() && !tags_.atHighWater()) {
    std::vector<uint8_t> f = backlog_.take();
    handleFrame(f, events);
  }
  holding_ = !backlog_.empty() || tags_.atHighWater();
  if (backlog_.empty()) dropping_ = false;
}

void ReaderSession::flushBacklog(std::vector<uint32_t>& events) {
  Progress progress(tags_.popped());
  while (!backlog_.empty() && !stopReceiving_) {
    drainBacklog(events);
    deliver(events);
    events.clear();
    if (backlog_.empty()) break;
    (void)tags_.waitForRoom(Clock::now() + std::chrono::seconds(1));
    if (progress.stalled(tags_.popped(), false, Clock::now())) {
      dropBacklog();
      bufferEvent(BUFFER_FULL_EVENT, events);
    }
  }
}

void ReaderSession::dropBacklog() {
  while (!backlog_.empty()) discarded_ += readsIn(backlog_.take());
  holding_ = false;
  dropping_ = false;
}

void ReaderSession::bufferEvent(uint32_t code, std::vector<uint32_t>& events) {
  BufferEventData b;
  b.tagCount = tags_.size();
  b.capacity = tags_.capacity();
  b.discarded = static_cast<uint32_t>(std::min<uint64_t>(discarded_, UINT32_MAX));
  b.percentFull = static_cast<uint8_t>(
      std::min<uint64_t>(100, b.capacity ? uint64_t{b.tagCount} * 100 / b.capacity : 0));
  {
    std::lock_guard g(stateLock_);
    bufferData_ = b;
  }
  events.push_back(code);
}

bool ReaderSession::connectionLost(const std::string& why) {
  bool notify;
  {
    std::lock_guard g(stateLock_);
    connected_ = false;
    replyCond_.notify_all();
    notify = !closing_;
    DisconnectionEventData d;
    d.reason = readerClosing_ ? READER_INITIATED_DISCONNECTION : CONNECTION_LOST;
    disconnectionData_ = d;
    if (notify) {
      failLocked(RFID_API_NOT_CONNECTED,
                 readerClosing_ ? "the reader closed the connection"
                                : "the connection to the reader is lost",
                 why);
    }
  }
  return notify;
}

void ReaderSession::handleFrame(const std::vector<uint8_t>& frame, std::vector<uint32_t>& events) {
  llrp::Message msg;
  llrp::Error err = llrp::decode(frame, msg);
  if (!err.ok()) {
    // A reply that cannot be decoded still ends the wait of its request; anything else is dropped.
    std::lock_guard g(stateLock_);
    if (pendingId_ != 0 && err.messageId == pendingId_) {
      replyError_ = err;
      replyCond_.notify_all();
    }
    return;
  }
  if (std::holds_alternative<llrp::Keepalive>(msg.body)) {
    llrp::Message ack;
    ack.id = msg.id;
    ack.body = llrp::KeepaliveAck{};
    (void)sendFrame(ack);
    return;
  }
  if (const auto* report = std::get_if<llrp::ROAccessReport>(&msg.body)) {
    handleReport(*report, events);
    return;
  }
  if (const auto* ren = std::get_if<llrp::ReaderEventNotification>(&msg.body)) {
    handleEvent(ren->readerEventNotificationData, events);
    return;
  }
  std::lock_guard g(stateLock_);
  const bool errorForUs =
      std::holds_alternative<llrp::ErrorMessage>(msg.body) && pendingId_ != 0 && msg.id == 0;
  if (pendingId_ != 0 && (msg.id == pendingId_ || errorForUs)) {
    reply_ = std::move(msg);
    replyCond_.notify_all();
  }
}

void ReaderSession::handleReport(const llrp::ROAccessReport& report,
                                 std::vector<uint32_t>& events) {
  std::shared_ptr<const PostFilterData> filter;
  uint32_t maxEpc;
  {
    std::lock_guard g(stateLock_);
    filter = postFilter_;
    maxEpc = maxEpcBytes_;
  }
  bool stored = false;
  ReaderTagData t;
  for (const auto& r : report.tagReportData) {
    t = ReaderTagData{};
    const auto epc = llrp::epcBytes(r.epc);
    t.tagIDLength = static_cast<uint32_t>(std::min<size_t>({epc.size(), maxEpc, kMaxTagIdBytes}));
    std::memcpy(t.tagID, epc.data(), t.tagIDLength);
    // Bits after an EPCData's bit count only pad its last byte; whatever the reader put there,
    // they read as 0 so that one EPC always gives one text.
    const auto* epcData = std::get_if<llrp::EPCData>(&r.epc);
    if (epcData != nullptr && epcData->epc.bitCount % 8 != 0 && t.tagIDLength == epc.size() &&
        t.tagIDLength > 0) {
      t.tagID[t.tagIDLength - 1] &= static_cast<uint8_t>(0xFF << (8 - epcData->epc.bitCount % 8));
    }
    // A field the reader left out reads as its fixed "not reported" value, never another
    // read's (rfid_records.h says why these values).
    t.antennaID = r.antennaId.value_or(kAntennaNotReported);
    t.peakRSSI = r.peakRSSI.value_or(kRssiNotReported);
    t.channelIndex = r.channelIndex.value_or(kChannelNotReported);
    t.PC = r.c1g2PC.value_or(kPcNotReported);
    if (r.c1g2CRC) t.CRC = *r.c1g2CRC;
    t.tagSeenCount = r.tagSeenCount ? *r.tagSeenCount : 1;
    uint64_t when = r.firstSeenTimestampUTC  ? *r.firstSeenTimestampUTC
                    : r.lastSeenTimestampUTC ? *r.lastSeenTimestampUTC
                                             : nowMicros();
    t.seenTime = toDateTime(when);
    t.tagEvent = kTagEventSeen;
    t.tagEventTime = t.seenTime;
    for (const auto& c : r.customs) {
      if (c.vendorId != llrp::kVendorId ||
          c.subtype != static_cast<uint32_t>(llrp::VendorParameter::kPhase))
        continue;
      if (auto phase = llrp::phaseFromData(c.data)) t.phase = *phase;
    }
    if (filter) {
      if (filter->matchRssi && (t.peakRSSI < filter->rssiMin || t.peakRSSI > filter->rssiMax))
        continue;
      if (filter->bits > 0) {
        if (uint32_t{filter->offset} + filter->bits > epc.size() * 8u) continue;
        bool match = true;
        for (uint32_t b = 0; b < filter->bits && match; ++b) {
          match = bitAt(epc, filter->offset + b) == bitAt(filter->pattern, b);
        }
        if (!match) continue;
      }
    }
    tags_.push(t);
    stored = true;
  }
  if (stored) events.push_back(TAG_READ_EVENT);
}

void ReaderSession::handleEvent(const llrp::ReaderEventNotificationData& d,
                                std::vector<uint32_t>& events) {
  std::lock_guard g(stateLock_);
  if (d.connectionCloseEvent) readerClosing_ = true;
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

RfidStatus ReaderSession::performInventory(const PostFilter* postFilter,
                                           const AntennaInfo* antennas,
                                           const TriggerRecord* triggers) {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_PerformInventory called from the event callback");
  std::lock_guard op(opLock_);
  const uint16_t n = antennaCount();
  std::vector<uint16_t> ids;
  if (antennas != nullptr && antennas->count > 0) {
    if (antennas->antennaIds == nullptr)
      return fail(RFID_API_PARAM_ERROR, "the antenna list is null");
    for (uint32_t i = 0; i < antennas->count; ++i) {
      const uint16_t id = antennas->antennaIds[i];
      if (id == 0 || id > n) {
        return fail(
            RFID_API_PARAM_OUT_OF_RANGE,
            "antenna " + std::to_string(id) + " is not one of the reader's " + std::to_string(n));
      }
      if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
    }
  }
  std::shared_ptr<const PostFilterData> pf;
  if (postFilter != nullptr) {
    auto d = std::make_shared<PostFilterData>();
    if (postFilter->patternBitCount > 0) {
      if (postFilter->epcPattern == nullptr || postFilter->patternBitCount > kMaxTagIdBytes * 8) {
        return fail(RFID_API_PARAM_ERROR, "the post-filter pattern is null or longer than an EPC");
      }
      d->pattern.assign(postFilter->epcPattern,
                        postFilter->epcPattern + (postFilter->patternBitCount + 7) / 8);
      d->bits = postFilter->patternBitCount;
      d->offset = postFilter->epcBitOffset;
    }
    d->matchRssi = postFilter->matchRssi;
    d->rssiMin = postFilter->rssiMin;
    d->rssiMax = postFilter->rssiMax;
    pf = std::move(d);
  }
  if (triggers != nullptr) {
    if (triggers->start.type > StartTriggerType::Gpi ||
        triggers->stop.type > StopTriggerType::RoundCount) {
      return fail(RFID_API_PARAM_OUT_OF_RANGE, "unknown start or stop trigger type");
    }
  }
  if (roSpecInstalled_) {
    RfidStatus st = removeInventory();
    if (unreachable(st)) return st;
  }
  plan_.triggers = triggers != nullptr ? *triggers : TriggerRecord{};
  planAntennas_ = std::move(ids);
  {
    std::lock_guard g(stateLock_);
    postFilter_ = std::move(pf);
  }
  return installInventory();
}

// ADD + ENABLE (+ START for an immediate start) of a ROSpec built from the current settings.
RfidStatus ReaderSession::installInventory() {
  InventoryRequest req;
  req.triggers = plan_.triggers;
  {
    std::lock_guard g(stateLock_);
    std::vector<uint16_t> ids = planAntennas_;
    if (ids.empty()) {
      for (uint16_t i = 1; i <= caps_.numAntennas; ++i) ids.push_back(i);
    }
    for (uint16_t id : ids) {
      AntennaPlan a;
      a.antennaId = id;
      if (id <= antennas_.size()) {
        a.receiver = antennas_[id - 1].receiver;
        a.transmitter = antennas_[id - 1].transmitter;
      }
      if (id <= singulation_.size()) a.singulation = singulation_[id - 1];
      for (const auto& f : filters_) {
        if (f.antennaId == 0 || f.antennaId == id) a.filters.push_back(f);
      }
      req.antennas.push_back(std::move(a));
    }
    req.tagFields = storage_.tagFields;
    req.readerStateAware = caps_.stateAwareSingulation;
    tagFieldsInForce_ = storage_.tagFields;
  }
  req.roSpecId = nextRoSpecId_++;
  if (nextRoSpecId_ == 0) nextRoSpecId_ = 1;
  bool needsStart = false;
  llrp::AddROSpec add;
  add.roSpec = buildRoSpec(req, needsStart);
  llrp::Message reply;
  RfidStatus st = requestChecked(std::move(add), MessageType::kAddROSpecResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  roSpecInstalled_ = true;
  roSpecId_ = req.roSpecId;
  st = requestChecked(llrp::EnableROSpec{req.roSpecId}, MessageType::kEnableROSpecResponse, reply);
  if (st == RFID_API_SUCCESS && needsStart) {
    st = requestChecked(llrp::StartROSpec{req.roSpecId}, MessageType::kStartROSpecResponse, reply);
  }
  if (st != RFID_API_SUCCESS) {
    ErrorRecord saved = lastError();
    if (!unreachable(st)) {
      (void)requestChecked(llrp::DeleteROSpec{req.roSpecId}, MessageType::kDeleteROSpecResponse,
                           reply);
    }
    roSpecInstalled_ = false;
    std::lock_guard g(stateLock_);
    error_ = saved;
    return st;
  }
  std::lock_guard g(stateLock_);
  restoreInventory_ = true;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::removeInventory() {
  llrp::Message reply;
  const uint32_t id = roSpecId_;
  // STOP fails for a ROSpec that has already ended; DELETE decides the result. A silent or
  // lost reader ends the sequence at once, so that the call waits one time-out at most.
  RfidStatus st = requestChecked(llrp::StopROSpec{id}, MessageType::kStopROSpecResponse, reply);
  if (!unreachable(st))
    st = requestChecked(llrp::DisableROSpec{id}, MessageType::kDisableROSpecResponse, reply);
  if (!unreachable(st))
    st = requestChecked(llrp::DeleteROSpec{id}, MessageType::kDeleteROSpecResponse, reply);
  roSpecInstalled_ = false;
  return st;
}

RfidStatus ReaderSession::stopInventory() {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_StopInventory called from the event callback");
  std::lock_guard op(opLock_);
  bool discard;
  bool connected;
  {
    std::lock_guard g(stateLock_);
    restoreInventory_ = false;
    discard = storage_.discardTagsOnInventoryStop;
    connected = connected_;
  }
  RfidStatus st = RFID_API_SUCCESS;
  if (roSpecInstalled_) {
    st = removeInventory();
  } else if (!connected) {
    st = fail(RFID_API_NOT_CONNECTED, "the connection to the reader is lost");
  }
  if (discard) discarded_ += tags_.clear();
  return st;
}

RfidStatus ReaderSession::getAntennaConfig(uint16_t antennaId, uint16_t& rx, uint16_t& power,
                                           uint16_t& freq) {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_GetAntennaConfig called from the event callback");
  std::lock_guard op(opLock_);
  const uint16_t n = antennaCount();
  if (antennaId == 0 || antennaId > n) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "antenna " + std::to_string(antennaId) +
                                                 " is not one of the reader's " +
                                                 std::to_string(n));
  }
  llrp::GetReaderConfig get;
  get.antennaId = antennaId;
  get.requestedData = llrp::GetReaderConfigRequestedData::kAntennaConfiguration;
  llrp::Message reply;
  RfidStatus st = requestChecked(get, MessageType::kGetReaderConfigResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  const auto& r = std::get<llrp::GetReaderConfigResponse>(reply.body);
  const llrp::AntennaConfiguration* found = nullptr;
  for (const auto& ac : r.antennaConfigurations) {
    if (ac.antennaId == antennaId) found = &ac;
  }
  if (found == nullptr || !found->rfTransmitter) {
    return fail(
        RFID_API_PROTOCOL_ERROR,
        "the reader sent no transmitter configuration for antenna " + std::to_string(antennaId),
        "GET_READER_CONFIG_RESPONSE");
  }
  std::lock_guard g(stateLock_);
  auto& a = antennas_[antennaId - 1];
  if (found->rfReceiver) a.receiver = found->rfReceiver;
  a.transmitter = found->rfTransmitter;
  rx = found->rfReceiver ? found->rfReceiver->receiverSensitivity : 0;
  power = found->rfTransmitter->transmitPower;
  freq = caps_.hopping ? found->rfTransmitter->hopTableId : found->rfTransmitter->channelIndex;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::setAntennaConfig(uint16_t antennaId, uint16_t rx, uint16_t power,
                                           uint16_t freq) {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_SetAntennaConfig called from the event callback");
  std::lock_guard op(opLock_);
  llrp::SetReaderConfig cfg;
  std::vector<uint16_t> ids;
  const uint16_t n = antennaCount();
  if (antennaId > n) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "antenna " + std::to_string(antennaId) +
                                                 " is not one of the reader's " +
                                                 std::to_string(n));
  }
  {
    std::lock_guard g(stateLock_);
    if (caps_.numTransmitPowerLevels > 0) {
      bool known = false;
      for (uint16_t i = 0; i < caps_.numTransmitPowerLevels && !known; ++i) {
        known = caps_.transmitPowerIndexes[i] == power;
      }
      if (!known) {
        failLocked(
            RFID_API_PARAM_OUT_OF_RANGE,
            "power index " + std::to_string(power) + " is not in the reader's power table",
            "transmit power table of " + std::to_string(caps_.numTransmitPowerLevels) + " entries");
        return RFID_API_PARAM_OUT_OF_RANGE;
      }
    }
    if (antennaId == 0) {
      for (uint16_t i = 1; i <= n; ++i) ids.push_back(i);
    } else {
      ids.push_back(antennaId);
    }
    for (uint16_t id : ids) {
      const auto& a = antennas_[id - 1];
      llrp::AntennaConfiguration ac;
      ac.antennaId = id;
      ac.rfReceiver = llrp::RFReceiver{rx};
      llrp::RFTransmitter tx = a.transmitter.value_or(llrp::RFTransmitter{1, 1, power});
      tx.transmitPower = power;
      if (caps_.hopping) {
        tx.hopTableId = freq;
      } else {
        tx.channelIndex = freq;
      }
      ac.rfTransmitter = tx;
      cfg.antennaConfigurations.push_back(ac);
    }
  }
  llrp::Message reply;
  RfidStatus st = requestChecked(cfg, MessageType::kSetReaderConfigResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  std::lock_guard g(stateLock_);
  for (const auto& ac : cfg.antennaConfigurations) {
    auto& a = antennas_[ac.antennaId - 1];
    a.receiver = ac.rfReceiver;
    a.transmitter = ac.rfTransmitter;
    a.setByClient = true;
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::getSingulation(uint16_t antennaId, SingulationControl& out) {
  std::unique_lock g(stateLock_);
  const uint16_t n = caps_.numAntennas;
  if (antennaId > n) {
    g.unlock();
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "antenna " + std::to_string(antennaId) +
                                                 " is not one of the reader's " +
                                                 std::to_string(n));
  }
  out = singulation_[antennaId == 0 ? 0 : antennaId - 1];
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::setSingulation(uint16_t antennaId, const SingulationControl& in) {
  std::unique_lock g(stateLock_);
  const uint16_t n = caps_.numAntennas;
  const bool stateAwareOk = caps_.stateAwareSingulation;
  g.unlock();
  if (antennaId > n) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "antenna " + std::to_string(antennaId) +
                                                 " is not one of the reader's " +
                                                 std::to_string(n));
  }
  if (in.session > 3 || in.inventoryState > 1 || in.slFlag > 1) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE,
                "session must be 0..3, inventory state and SL flag 0 or 1");
  }
  if (in.stateAware && !stateAwareOk) {
    return fail(RFID_API_NOT_SUPPORTED, "the reader cannot do state-aware singulation");
  }
  g.lock();
  if (antennaId == 0) {
    for (auto& s : singulation_) s = in;
  } else {
    singulation_[antennaId - 1] = in;
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::getTagStorage(TagStorageSettings& out) {
  std::lock_guard g(stateLock_);
  out = storage_;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::setTagStorage(const TagStorageSettings& in) {
  if (in.maxTagCount == 0 || in.maxTagCount > TagBuffer::kMaxCapacity) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE,
                "maxTagCount must be 1.." + std::to_string(TagBuffer::kMaxCapacity));
  }
  bool resize;
  {
    std::lock_guard g(stateLock_);
    resize = in.maxTagCount != storage_.maxTagCount;
    storage_ = in;
    storage_.maxSizeEpc = std::clamp<uint32_t>(in.maxSizeEpc, 1, kMaxTagIdBytes);
    maxEpcBytes_ = storage_.maxSizeEpc;
  }
  if (resize) discarded_ += tags_.resize(in.maxTagCount);
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::addPreFilter(uint16_t antennaId, const PreFilter& f, uint32_t& index) {
  if (f.patternBitCount > kMaxPreFilterBits || (f.patternBitCount > 0 && f.pattern == nullptr)) {
    return fail(RFID_API_PARAM_ERROR, "the pre-filter pattern is null or longer than " +
                                          std::to_string(kMaxPreFilterBits) + " bits");
  }
  if (f.memoryBank > 3) return fail(RFID_API_PARAM_OUT_OF_RANGE, "memory bank must be 0..3");
  if (f.filterType == PREFILTER_STATE_AWARE) {
    if (f.target > 4 || f.stateAwareAction > 7) {
      return fail(RFID_API_PARAM_OUT_OF_RANGE, "state-aware target must be 0..4 and action 0..7");
    }
  } else if (f.filterType == PREFILTER_STATE_UNAWARE) {
    if (f.stateUnawareAction > 5)
      return fail(RFID_API_PARAM_OUT_OF_RANGE, "state-unaware action must be 0..5");
  } else {
    return fail(RFID_API_PARAM_OUT_OF_RANGE,
                "filter type must be 1 (state-aware) or 2 (state-unaware)");
  }
  std::unique_lock g(stateLock_);
  const uint16_t n = caps_.numAntennas;
  if (antennaId > n) {
    g.unlock();
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "antenna " + std::to_string(antennaId) +
                                                 " is not one of the reader's " +
                                                 std::to_string(n));
  }
  if (f.filterType == PREFILTER_STATE_AWARE && !caps_.stateAwareSingulation) {
    g.unlock();
    return fail(RFID_API_NOT_SUPPORTED, "the reader cannot apply state-aware filters");
  }
  if (filters_.size() >= kMaxPreFilters) {
    g.unlock();
    return fail(RFID_API_RESOURCE_LIMIT,
                "already " + std::to_string(kMaxPreFilters) + " pre-filters");
  }
  StoredPreFilter s;
  s.index = nextFilterIndex_++;
  s.antennaId = antennaId;
  s.memoryBank = f.memoryBank;
  s.pattern.assign(f.pattern, f.pattern + (f.patternBitCount + 7) / 8);
  s.patternBitCount = f.patternBitCount;
  s.bitOffset = f.bitOffset;
  s.filterType = f.filterType;
  s.targetOrAction = f.filterType == PREFILTER_STATE_AWARE ? f.target : f.stateUnawareAction;
  s.stateAwareAction = f.stateAwareAction;
  filters_.push_back(std::move(s));
  index = filters_.back().index;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::deletePreFilter(uint16_t antennaId, uint32_t index) {
  std::unique_lock g(stateLock_);
  const size_t before = filters_.size();
  std::erase_if(filters_, [&](const StoredPreFilter& f) {
    return (antennaId == 0 || f.antennaId == antennaId) && (index == 0 || f.index == index);
  });
  if (index != 0 && filters_.size() == before) {
    g.unlock();
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "no pre-filter " + std::to_string(index));
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::saveConfig() {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_SaveLlrpConfig called from the event callback");
  std::lock_guard op(opLock_);
  uint32_t maker;
  {
    std::lock_guard g(stateLock_);
    maker = caps_.manufacturerId;
  }
  if (maker != llrp::kVendorId) {
    return fail(RFID_API_NOT_SUPPORTED,
                "this reader (manufacturer " + std::to_string(maker) +
                    ") offers no way to save its configuration over LLRP",
                "CUSTOM_MESSAGE");
  }
  llrp::CustomMessage save;
  save.vendorId = llrp::kVendorId;
  save.subtype = static_cast<uint8_t>(llrp::VendorMessage::kSaveConfig);
  llrp::Message reply;
  RfidStatus st = request(save, MessageType::kCustomMessage, reply);
  if (st != RFID_API_SUCCESS) return st;
  if (const auto* e = std::get_if<llrp::ErrorMessage>(&reply.body)) {
    return failWithLlrp(e->llrpStatus, static_cast<uint32_t>(MessageType::kCustomMessage));
  }
  const auto& c = std::get<llrp::CustomMessage>(reply.body);
  if (c.vendorId != llrp::kVendorId ||
      c.subtype != static_cast<uint8_t>(llrp::VendorMessage::kSaveConfigReply)) {
    return fail(RFID_API_PROTOCOL_ERROR, "unexpected answer to the save request", "CUSTOM_MESSAGE");
  }
  // The reply's data is one LLRPStatus parameter: decode it inside a status-only frame.
  std::vector<uint8_t> frame(llrp::kHeaderSize);
  const uint32_t len = static_cast<uint32_t>(llrp::kHeaderSize + c.data.size());
  const uint16_t type = static_cast<uint16_t>(MessageType::kSetReaderConfigResponse);
  frame[0] = static_cast<uint8_t>((llrp::kVersion << 2) | (type >> 8));
  frame[1] = static_cast<uint8_t>(type & 0xff);
  for (int i = 0; i < 4; ++i) frame[2 + i] = static_cast<uint8_t>(len >> (24 - 8 * i));
  frame.insert(frame.end(), c.data.begin(), c.data.end());
  llrp::Message status;
  if (!llrp::decode(frame, status).ok()) {
    return fail(RFID_API_PROTOCOL_ERROR, "the save answer carries no readable LLRPStatus",
                "CUSTOM_MESSAGE");
  }
  const auto& s = std::get<llrp::SetReaderConfigResponse>(status.body).llrpStatus;
  if (s.statusCode != llrp::StatusCode::kSuccess) {
    return failWithLlrp(s, static_cast<uint32_t>(MessageType::kCustomMessage));
  }
  return RFID_API_SUCCESS;
}

}  // namespace tessera::readerapi
