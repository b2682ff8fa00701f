// src/readerapi/llrp_link.cc — see llrp_link.h. Somewhat over 600 lines: opening, requests and
// the receive thread share the link's lock and its reply slot, and one file keeps that handshake
// (a request parks, the receive thread fills the slot, a lost link wakes it) readable in one place.
#include "readerapi/llrp_link.h"

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
#include <cstring>
#include <span>
#include <variant>

#include "llrp/codec.h"

namespace tessera::readerapi {

namespace {

using Clock = std::chrono::steady_clock;
using llrp::MessageType;

// The link whose receive thread runs on this thread, so that calls made from the callback that
// would wait for that same thread are refused instead of dead-locking.
thread_local const LlrpLink* tlsReceiving = nullptr;

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

RfidStatus failed(ErrorRecord& error, RfidStatus status, std::string what, std::string where = {},
                  uint32_t messageType = 0) {
  error = errorRecord(status, std::move(what), std::move(where), messageType);
  return status;
}

}  // namespace

LlrpLink::LlrpLink(TagBuffer& tags, LinkListener& listener) : tags_(tags), listener_(listener) {}

LlrpLink::~LlrpLink() { close(); }

bool LlrpLink::onReceiveThread() const { return tlsReceiving == this; }

void LlrpLink::countDiscarded(uint64_t reads) { discarded_ += reads; }

bool LlrpLink::connected() {
  std::lock_guard g(lock_);
  return connected_;
}

void LlrpLink::markClosing() {
  std::lock_guard g(lock_);
  closing_ = true;
}

void LlrpLink::setWatchdog(bool on) {
  std::lock_guard g(lock_);
  watchdog_ = on;
}

// ---------------------------------------------------------------------------------------------
// Opening and closing
// ---------------------------------------------------------------------------------------------

RfidStatus LlrpLink::open(const std::string& host, uint32_t port, const LinkTimeouts& timeouts,
                          ErrorRecord& error) {
  timeouts_ = timeouts;
  int fd = -1;
  RfidStatus st = openSocket(host, port, fd, error);
  if (st != RFID_API_SUCCESS) return st;
  st = awaitGreeting(fd, host + ":" + std::to_string(port), error);
  if (st != RFID_API_SUCCESS) {
    ::close(fd);
    return st;
  }
  fd_ = fd;
  {
    std::lock_guard g(lock_);
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
  return RFID_API_SUCCESS;
}

void LlrpLink::close() {
  {
    std::lock_guard g(lock_);
    closing_ = true;
    connected_ = false;
    replyCond_.notify_all();
  }
  stopReceiving_ = true;
  tags_.interruptWait();  // a receive thread holding back at the buffer waits there, not in poll
  if (fd_ >= 0) ::shutdown(fd_, SHUT_RDWR);
  if (thread_.joinable()) {
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();  // cannot happen through the API (refused there); never self-join
    } else {
      thread_.join();
    }
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

RfidStatus LlrpLink::openSocket(const std::string& host, uint32_t port, int& out,
                                ErrorRecord& error) {
  const std::string where = host + ":" + std::to_string(port);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* res = nullptr;
  const std::string portText = std::to_string(port);
  int rc = ::getaddrinfo(host.c_str(), portText.c_str(), &hints, &res);
  if (rc != 0 || res == nullptr) {
    return failed(error, RFID_HOST_UNRESOLVED,
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
        n = ::poll(&p, 1, static_cast<int>(timeouts_.connectMs));
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
      tv.tv_sec = timeouts_.responseMs / 1000;
      tv.tv_usec = static_cast<suseconds_t>((timeouts_.responseMs % 1000) * 1000);
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
      why = "no TCP connection within " + std::to_string(timeouts_.connectMs) + " ms";
    } else {
      status = RFID_CONNECTION_FAILED;
      why = "connect: " + errnoText(err);
    }
  }
  ::freeaddrinfo(res);
  return failed(error, status, why, where);
}

// The reader speaks first: a READER_EVENT_NOTIFICATION with ConnectionAttemptEvent.
RfidStatus LlrpLink::awaitGreeting(int fd, const std::string& where, ErrorRecord& error) {
  greetingFramer_.reset();
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeouts_.greetingMs);
  std::vector<uint8_t> frame;
  uint8_t buf[4096];
  for (;;) {
    int popped = greetingFramer_.pop(frame);
    if (popped < 0) {
      return failed(error, RFID_NOT_AN_LLRP_READER,
                    "the peer does not speak LLRP: " + greetingFramer_.error().text(), where);
    }
    if (popped == 1) break;
    pollfd p{fd, POLLIN, 0};
    int n = ::poll(&p, 1, remainingMs(deadline));
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) {
      return failed(
          error, RFID_CONNECTION_TIMEOUT,
          "the reader accepted the TCP connection but sent no ConnectionAttemptEvent within " +
              std::to_string(timeouts_.greetingMs) + " ms",
          where);
    }
    ssize_t got = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (got < 0 && errno == ECONNRESET) {
      // Accepted and reset at once: the reader service turns connections away.
      return failed(error, RFID_CONNECTION_REFUSED,
                    "the reader reset the connection before greeting", where);
    }
    if (got <= 0) {
      return failed(error, RFID_CONNECTION_FAILED,
                    got == 0 ? "the reader closed the connection before greeting"
                             : "receive: " + errnoText(errno),
                    where);
    }
    if (greetingFramer_.feed(std::span<const uint8_t>(buf, static_cast<size_t>(got))) < 0) {
      return failed(error, RFID_NOT_AN_LLRP_READER,
                    "the peer does not speak LLRP: " + greetingFramer_.error().text(), where);
    }
  }
  llrp::Message msg;
  llrp::Error err = llrp::decode(frame, msg);
  if (!err.ok()) {
    return failed(error, RFID_NOT_AN_LLRP_READER,
                  "the reader's greeting could not be decoded: " + err.text(), where);
  }
  const auto* ren = std::get_if<llrp::ReaderEventNotification>(&msg.body);
  if (ren == nullptr || !ren->readerEventNotificationData.connectionAttemptEvent) {
    return failed(error, RFID_NOT_AN_LLRP_READER,
                  std::string("the reader's first message is ") +
                      llrp::messageName(llrp::messageType(msg.body)) +
                      ", not a ConnectionAttemptEvent",
                  where);
  }
  const auto status = ren->readerEventNotificationData.connectionAttemptEvent->status;
  if (status != llrp::ConnectionAttemptStatus::kSuccess) {
    return failed(
        error, RFID_CONNECTION_DENIED, greetingStatusText(status),
        where + ": ConnectionAttemptEvent status " + std::to_string(static_cast<unsigned>(status)),
        static_cast<uint32_t>(MessageType::kReaderEventNotification));
  }
  return RFID_API_SUCCESS;
}

// ---------------------------------------------------------------------------------------------
// Requests
// ---------------------------------------------------------------------------------------------

RfidStatus LlrpLink::sendFrame(const llrp::Message& message, ErrorRecord& error) {
  std::vector<uint8_t> bytes;
  llrp::Error err = llrp::encode(message, bytes);
  if (!err.ok()) {
    return failed(error, RFID_API_PARAM_ERROR, "the request cannot be encoded: " + err.text(),
                  llrp::messageName(llrp::messageType(message.body)));
  }
  std::lock_guard s(sendLock_);
  size_t off = 0;
  while (off < bytes.size()) {
    ssize_t n = ::send(fd_, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      return failed(error, RFID_API_NOT_CONNECTED, "send: " + errnoText(errno),
                    llrp::messageName(llrp::messageType(message.body)));
    }
    off += static_cast<size_t>(n);
  }
  return RFID_API_SUCCESS;
}

RfidStatus LlrpLink::request(llrp::MessageBody body, MessageType expected, llrp::Message& reply,
                             ErrorRecord& error) {
  const auto type = llrp::messageType(body);
  const char* name = llrp::messageName(type);
  const auto typeCode = static_cast<uint32_t>(type);
  if (onReceiveThread()) {
    return failed(error, RFID_API_CALLBACK_CONTEXT,
                  "a request to the reader was made from the event callback", name);
  }
  llrp::Message msg;
  {
    std::lock_guard g(lock_);
    if (!connected_) {
      return failed(error, RFID_API_NOT_CONNECTED, "the connection to the reader is lost", name,
                    typeCode);
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
  RfidStatus st = sendFrame(msg, error);
  std::unique_lock g(lock_);
  if (st != RFID_API_SUCCESS) {
    pendingId_ = 0;
    return st;
  }
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeouts_.responseMs);
  replyCond_.wait_until(g, deadline, [this] { return reply_ || replyError_ || !connected_; });
  pendingId_ = 0;
  if (reply_) {
    reply = std::move(*reply_);
    reply_.reset();
    if (std::holds_alternative<llrp::ErrorMessage>(reply.body)) return RFID_API_SUCCESS;
    if (llrp::messageType(reply.body) != expected) {
      return failed(error, RFID_API_PROTOCOL_ERROR,
                    std::string("the reader answered ") +
                        llrp::messageName(llrp::messageType(reply.body)) + " instead of " +
                        llrp::messageName(expected),
                    name, typeCode);
    }
    return RFID_API_SUCCESS;
  }
  if (replyError_) {
    const std::string why = replyError_->text();
    replyError_.reset();
    return failed(error, RFID_API_PROTOCOL_ERROR,
                  "the reader's answer could not be decoded: " + why, name, typeCode);
  }
  if (!connected_) {
    return failed(error, RFID_API_NOT_CONNECTED,
                  "the connection to the reader was lost while waiting for the answer", name,
                  typeCode);
  }
  return failed(error, RFID_API_COMMAND_TIMEOUT,
                "no answer from the reader within " + std::to_string(timeouts_.responseMs) + " ms",
                name, typeCode);
}

// ---------------------------------------------------------------------------------------------
// Receive thread
// ---------------------------------------------------------------------------------------------

void LlrpLink::receiveLoop(int fd) {
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

  while (!stopReceiving_) {
    if (holding_ && tags_.belowLowWater()) drainBacklog(events);
    deliver(events);
    const auto now = Clock::now();
    bool watchdog;
    {
      std::lock_guard g(lock_);
      watchdog = watchdog_;
    }
    int waitMs = 1000;
    if (watchdog) {
      const auto silence =
          std::chrono::milliseconds(uint64_t{timeouts_.keepaliveMs} * timeouts_.keepaliveMisses);
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
      const auto keepaliveDue = lastKeepalive_ + std::chrono::milliseconds(timeouts_.keepaliveMs);
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
    if (broken) break;
  }
  deliver(events);
  if (broken && !stopReceiving_) {
    bool notify;
    bool readerClosed;
    {
      std::lock_guard g(lock_);
      connected_ = false;
      replyCond_.notify_all();
      notify = !closing_;
      readerClosed = readerClosing_;
    }
    listener_.onLost(notify, readerClosed, why);
    // Every report the reader sent before the link broke still reaches the consumer, ahead of
    // the disconnection.
    flushBacklog(events);
    if (notify) events.push_back(DISCONNECTION_EVENT);
    deliver(events);
  }
  dropBacklog();
  tlsReceiving = nullptr;
}

bool LlrpLink::replyAwaited() {
  std::lock_guard g(lock_);
  return pendingId_ != 0;
}

void LlrpLink::takeFrame(std::vector<uint8_t>& frame, std::vector<uint32_t>& events) {
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

void LlrpLink::drainBacklog(std::vector<uint32_t>& events) {
  while (!backlog_.empty() && !tags_.atHighWater()) {
    std::vector<uint8_t> f = backlog_.take();
    handleFrame(f, events);
  }
  holding_ = !backlog_.empty() || tags_.atHighWater();
  if (backlog_.empty()) dropping_ = false;
}

void LlrpLink::flushBacklog(std::vector<uint32_t>& events) {
  Progress progress(tags_.popped());
  while (!backlog_.empty() && !stopReceiving_) {
    drainBacklog(events);
    deliver(events);
    if (backlog_.empty()) break;
    (void)tags_.waitForRoom(Clock::now() + std::chrono::seconds(1));
    if (progress.stalled(tags_.popped(), false, Clock::now())) {
      dropBacklog();
      bufferEvent(BUFFER_FULL_EVENT, events);
    }
  }
}

void LlrpLink::dropBacklog() {
  while (!backlog_.empty()) discarded_ += readsIn(backlog_.take());
  holding_ = false;
  dropping_ = false;
}

void LlrpLink::bufferEvent(uint32_t code, std::vector<uint32_t>& events) {
  BufferEventData b;
  b.tagCount = tags_.size();
  b.capacity = tags_.capacity();
  b.discarded = static_cast<uint32_t>(std::min<uint64_t>(discarded_, UINT32_MAX));
  b.percentFull = static_cast<uint8_t>(
      std::min<uint64_t>(100, b.capacity ? uint64_t{b.tagCount} * 100 / b.capacity : 0));
  listener_.onBufferEvent(code, b, events);
}

void LlrpLink::handleFrame(const std::vector<uint8_t>& frame, std::vector<uint32_t>& events) {
  llrp::Message msg;
  llrp::Error err = llrp::decode(frame, msg);
  if (!err.ok()) {
    // A reply that cannot be decoded still ends the wait of its request; anything else is dropped.
    std::lock_guard g(lock_);
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
    ErrorRecord ignored;  // a lost link shows in the next receive
    (void)sendFrame(ack, ignored);
    return;
  }
  if (const auto* report = std::get_if<llrp::ROAccessReport>(&msg.body)) {
    listener_.onReport(*report, events);
    return;
  }
  if (const auto* ren = std::get_if<llrp::ReaderEventNotification>(&msg.body)) {
    if (ren->readerEventNotificationData.connectionCloseEvent) {
      std::lock_guard g(lock_);
      readerClosing_ = true;
    }
    listener_.onEvent(ren->readerEventNotificationData, events);
    return;
  }
  std::lock_guard g(lock_);
  const bool errorForUs =
      std::holds_alternative<llrp::ErrorMessage>(msg.body) && pendingId_ != 0 && msg.id == 0;
  if (pendingId_ != 0 && (msg.id == pendingId_ || errorForUs)) {
    reply_ = std::move(msg);
    replyCond_.notify_all();
  }
}

void LlrpLink::deliver(std::vector<uint32_t>& events) {
  if (events.empty()) return;
  listener_.deliver(events);
  events.clear();
}

}  // namespace tessera::readerapi
