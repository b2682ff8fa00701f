// src/modes/relay_spool.cc — the relay worker's loop with the outage spool (--spool): reads keep
// flowing while the HTTP server, the TCP/IP client or the MQTT broker is away. A batch that cannot
// be delivered, and every batch behind one that waits, goes to the spool and leaves memory;
// delivery is oldest first, confirmed (a 2xx, every byte taken by the client's socket, or the
// PUBACK), paced by an exponential back-off with full jitter while the spool holds batches.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <random>

#include "platform/logger.h"
#include "modes/relay.h"
#include "modes/relay_batch.h"
#include "output/tcp_server.h"
#include "platform/platform.h"
#include "reader/tag_processing.h"

namespace tessera {
namespace {

using Clock = std::chrono::steady_clock;

// The longest pause between attempts while the spool holds batches.
constexpr double kMaxBackoffSeconds = 30.0;
// How long one pass may go on delivering spooled batches before it takes new records again.
constexpr auto kReplayBudget = std::chrono::seconds(1);
// With no pass interval, the longest a pass waits for records before it looks at retries again.
constexpr auto kIdleWait = std::chrono::milliseconds(10);
// A spool folder that refused a write, or could not be opened, is tried again after this.
constexpr double kSpoolRetrySeconds = 10.0;

Clock::duration seconds(double s) {
  return std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(platform::scaledSeconds(s)));
}

// The batch being delivered: read back from the spool, or straight from memory.
struct Delivery {
  spool::Batch batch;
  bool active = false;
  bool spooled = false;
  size_t sent = 0;  // TCP/IP: bytes the client took
};

// Exponential back-off with full jitter: after n failures the next attempt comes at a random
// moment within min(30 s, interval * 2^n), so that many readers do not retry in step.
class Backoff {
 public:
  explicit Backoff(double interval) : base_(std::max(interval, 0.1)) {}
  void failed() {
    ++failures_;
    const double cap =
        std::min(kMaxBackoffSeconds, base_ * std::ldexp(1.0, std::min(failures_, 20)));
    std::uniform_real_distribution<double> pick(0.0, cap);
    next_ = Clock::now() + seconds(pick(random_));
  }
  void succeeded() {
    failures_ = 0;
    next_ = Clock::time_point{};
  }
  bool due() const { return Clock::now() >= next_; }

 private:
  double base_;
  int failures_ = 0;
  Clock::time_point next_{};
  std::minstd_rand random_{std::random_device{}()};
};

class SpoolRelay {
 public:
  SpoolRelay(ServiceState& s, double interval) : s_(s), interval_(interval), backoff_(interval) {}
  // One pass; false when the worker must end.
  bool pass();
  // The relay stops: what is still in memory goes to the spool, to be delivered after a start.
  void finish();

 private:
  bool tcp() const { return s_.relayConfig.relayMode == static_cast<int32_t>(RelayMode::TcpIp); }
  void acceptClient();
  void takeAll();
  bool sealToSpool();
  void checkSpool();
  bool deliver();
  SendResult send();
  void settle(SendResult r);
  void wait();

  ServiceState& s_;
  const double interval_;
  Backoff backoff_;
  Delivery current_;
  Clock::time_point spoolRetry_{};
};

// Unlike the plain loop, no pass waits in accept: batches go to the spool while no one listens.
void SpoolRelay::acceptClient() {
  if (!tcp() || s_.tcpServer == nullptr || s_.tcpServer->clientSocket() > 0) return;
  pollfd p{s_.tcpServer->listeningSocket(), POLLIN, 0};
  if (::poll(&p, 1, 0) <= 0 || (p.revents & POLLIN) == 0) return;
  int client = s_.tcpServer->accept();
  if (client >= 0 && fcntl(client, F_SETFL, O_NONBLOCK) < 0) {
    Logger::log(LogLevel::kInfo, "Tagrelay: Failed to set socket as non-blocking\n");
  }
}

// Every pending record is taken; a batch that would pass 70 KiB is sealed into the spool first.
void SpoolRelay::takeAll() {
  if (s_.spoolAccepting && batchHasContent(s_) &&
      s_.relayBatch.size() + s_.relayPending.size() >= kRelayBatchLimit) {
    (void)sealToSpool();
  }
  const bool full = s_.relayPending.clearFull();
  if (s_.relayPending.ready() || full) (void)takeRecords(s_);
}

bool SpoolRelay::sealToSpool() {
  if (!s_.spoolAccepting || !batchHasContent(s_)) return false;
  const spool::Batch b = closeOpenBatch(s_);
  if (!s_.spool.append(b.seq, b.reads, b.text, platform::now())) {
    // The disk refused: the batch stays in memory, the inventory pauses at 70 KiB as without a
    // spool, and the spool is tried again later.
    s_.spoolAccepting = false;
    spoolRetry_ = Clock::now() + seconds(kSpoolRetrySeconds);
    return false;
  }
  startNextBatch(s_);
  return true;
}

void SpoolRelay::checkSpool() {
  if (s_.spoolAccepting || Clock::now() < spoolRetry_) return;
  if (!s_.spool.isOpen() && !openSpool(s_)) {
    spoolRetry_ = Clock::now() + seconds(kSpoolRetrySeconds);
    return;
  }
  s_.spoolAccepting = true;
}

SendResult SpoolRelay::send() {
  switch (static_cast<RelayMode>(s_.relayConfig.relayMode)) {
    case RelayMode::TcpIp:
      return sendPiece(s_, current_.batch.text, current_.sent);
    case RelayMode::Mqtt:
      return publishText(s_, current_.batch.text);
    default:
      return postText(s_, current_.batch.text, true);
  }
}

void SpoolRelay::settle(SendResult r) {
  const spool::Batch& b = current_.batch;
  switch (r) {
    case SendResult::kDelivered:
      // A spooled batch the cap dropped meanwhile was counted then.
      if (!current_.spooled || s_.spool.confirm(b.seq)) s_.readLedger.delivered(b.reads);
      current_ = Delivery{};
      backoff_.succeeded();
      break;
    case SendResult::kRejected:
      if (current_.spooled) {
        if (s_.spool.reject(b.seq, b.text))
          s_.readLedger.discarded(DiscardReason::Rejected, b.reads);
      } else {
        s_.spool.keepRejected(b.seq, b.text);
        s_.readLedger.discarded(DiscardReason::Rejected, b.reads);
      }
      current_ = Delivery{};
      break;
    case SendResult::kFailed:
      s_.readLedger.deliveryFailed();
      backoff_.failed();
      // An HTTP or MQTT batch from memory goes to the (then empty) spool, keeping the order; a
      // TCP/IP one stays, whole, for the next client.
      if (!current_.spooled && !tcp() && s_.spoolAccepting &&
          s_.spool.append(b.seq, b.reads, b.text, platform::now())) {
        current_ = Delivery{};
      }
      break;
    case SendResult::kPartial:
    case SendResult::kFatal:
      break;
  }
}

// Delivers the current batch, then further spooled ones while they go through; false on a
// fatal exit.
bool SpoolRelay::deliver() {
  const auto until = Clock::now() + kReplayBudget;
  while (!s_.relayWorkerStop && Clock::now() < until) {
    if (!current_.active) {
      if (!s_.spool.empty()) {
        if (!backoff_.due() || !s_.spool.front(current_.batch)) return true;
        current_.spooled = true;
      } else if (batchHasContent(s_)) {
        current_.batch = closeOpenBatch(s_);
        current_.spooled = false;
        startNextBatch(s_);
      } else {
        return true;
      }
      current_.active = true;
      current_.sent = 0;
    } else if (!backoff_.due()) {
      return true;
    }
    if (tcp() && (s_.tcpServer == nullptr || s_.tcpServer->clientSocket() <= 0)) {
      if (s_.tcpServer == nullptr) {
        fatalExit(s_, "Tagrelay: TCP/IP handle not available.. exiting thread\n");
        return false;
      }
      return true;  // no client yet: nothing is tried, nothing counts as failed
    }
    const SendResult r = send();
    if (r == SendResult::kFatal) return false;
    settle(r);
    if (r == SendResult::kFailed || r == SendResult::kPartial) return true;
  }
  return true;
}

void SpoolRelay::wait() {
  if (interval_ > 0) {
    s_.relayPending.waitFor(s_.relayWorkerStop, RelayWake::kFull, seconds(interval_));
    return;
  }
  // No interval: the next pass comes with the next records, or when a retry is due; never a
  // busy loop while the sink is away.
  s_.relayPending.waitFor(s_.relayWorkerStop, RelayWake::kRecords, kIdleWait);
}

bool SpoolRelay::pass() {
  checkSpool();
  acceptClient();
  takeAll();
  const int64_t now = platform::now();
  if (heartbeatDue(s_, now)) addHeartbeat(s_, now);
  // New reads wait behind what is waiting, so that order is kept.
  if (batchHasContent(s_) && (current_.active || !s_.spool.empty())) (void)sealToSpool();
  if (!deliver()) return false;
  s_.spool.syncIfDue(now);
  if (const uint64_t dropped = s_.spool.takeDroppedReads()) {
    s_.readLedger.discarded(DiscardReason::SpoolFull, dropped);
  }
  wait();
  return true;
}

void SpoolRelay::finish() {
  if (current_.active && !current_.spooled && s_.spoolAccepting &&
      s_.spool.append(current_.batch.seq, current_.batch.reads, current_.batch.text,
                      platform::now())) {
    current_ = Delivery{};
  }
  if (current_.active && !current_.spooled) {
    s_.readLedger.discarded(DiscardReason::Stopped, current_.batch.reads);
  }
  s_.spool.sync();
}

}  // namespace

bool openSpool(ServiceState& s) {
  const auto& settings = platform::settings();
  if (!s.spool.open(settings.spoolDir, settings.spoolMaxBytes, platform::now())) return false;
  s.readLedger.takenAndHeld(s.spool.recoveredReads());
  return true;
}

void runSpoolRelay(ServiceState& s, double interval) {
  SpoolRelay relay(s, interval);
  bool fatal = false;
  while (!s.relayWorkerStop) {
    if (!relay.pass()) {
      fatal = true;
      break;
    }
  }
  relay.finish();
  s.spoolAccepting = false;
  if (fatal) commonExit();
}

void spoolRelayHoldings(ServiceState& s) {
  if (!spoolApplies(s) || !s.spool.isOpen()) return;
  // Not takeRecords: that would start an inventory paused for a full buffer again.
  movePendingToBatch(s);
  if (batchHasContent(s) && s.relayBatchSeq >= 0) {
    const spool::Batch b = closeOpenBatch(s);
    // Spooled: not to be counted as dropped by the stop that follows.
    if (s.spool.append(b.seq, b.reads, b.text, platform::now())) s.relayBatchReads = 0;
  }
  s.spool.sync();
}

}  // namespace tessera
