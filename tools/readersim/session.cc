// tools/readersim/session.cc — one client's LLRP connection.
#include "session.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "llrp/codec.h"
#include "llrp/framer.h"
#include "wire.h"

namespace tessera::readersim {

namespace {

using Clock = std::chrono::steady_clock;
constexpr size_t kReadChunk = 64 * 1024;
constexpr int kCloseFlushMs = 2000;

int msUntil(Clock::time_point t, Clock::time_point now) {
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(t - now).count();
  if (ms < 0) return 0;
  return ms > 1000 ? 1000 : static_cast<int>(ms);
}

}  // namespace

Session::Session(int fd, const Options& options, Reader& reader, Stats& stats,
                 std::unique_ptr<Outbox> outbox)
    : fd_(fd), options_(options), reader_(reader), stats_(stats), outbox_(std::move(outbox)) {
  wakeFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

Session::~Session() {
  if (wakeFd_ >= 0) close(wakeFd_);
  if (fd_ >= 0) close(fd_);
}

void Session::wake() {
  uint64_t one = 1;
  if (wakeFd_ >= 0) (void)!write(wakeFd_, &one, sizeof one);
}

void Session::requestDrop(bool rst) {
  drop_ = rst ? 2 : 1;
  wake();
}

void Session::requestStop() {
  stop_ = true;
  wake();
}

void Session::flushFor(int milliseconds) {
  Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (outbox_->hasOutput()) {
    const int rc = outbox_->writeTo(fd_);
    stats_.readsSent += outbox_->takeWrittenReads();
    if (rc != 0) return;
    if (!outbox_->hasOutput()) return;
    Clock::time_point now = Clock::now();
    if (now >= end) return;
    pollfd p{fd_, POLLOUT, 0};
    if (poll(&p, 1, msUntil(end, now)) < 0 && errno != EINTR) return;
  }
}

void Session::handleFrame(const std::vector<uint8_t>& frame, bool& closeAfter) {
  stats_.messagesReceived++;
  llrp::Message m;
  llrp::Error e = llrp::decode(frame, m);
  if (!e.ok()) {
    logLine("unparsable frame (type %u, id %u): %s", e.messageType, e.messageId, e.text().c_str());
    reader_.sendError(*outbox_, e.messageId, llrp::statusForError(e));
    return;
  }
  logReceived(m, options_.verbose);
  if (std::holds_alternative<llrp::KeepaliveAck>(m.body)) {
    unanswered_ = 0;
    stats_.keepaliveAcks++;
    return;
  }
  reader_.handle(m, *outbox_, closeAfter);
}

void Session::run() {
  pthread_setname_np(pthread_self(), "simClient");
  int flags = fcntl(fd_, F_GETFL, 0);
  if (flags >= 0) (void)fcntl(fd_, F_SETFL, flags | O_NONBLOCK);
  int one = 1;
  (void)setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);

  llrp::Framer framer;
  std::vector<uint8_t> chunk(kReadChunk);
  std::vector<uint8_t> frame;
  bool closeAfter = false;
  bool reset = false;
  uint32_t keepaliveMs = 0;
  Clock::time_point nextKeepalive{};

  for (;;) {
    if (stop_) {
      outbox_->pushResponse(reader_.connectionCloseFrame());
      flushFor(1000);
      break;
    }
    if (drop_ != 0) {
      reset = drop_ == 2;
      logLine("dropping the client connection (%s)", reset ? "reset" : "close");
      break;
    }
    Clock::time_point now = Clock::now();
    uint32_t period = reader_.keepaliveMs();
    if (period != keepaliveMs) {
      keepaliveMs = period;
      nextKeepalive = now + std::chrono::milliseconds(period);
      unanswered_ = 0;
    }
    if (keepaliveMs != 0 && now >= nextKeepalive) {
      if (unanswered_ >= options_.keepaliveMisses) {
        logLine("no KEEPALIVE_ACK for %u keepalives: closing the connection", unanswered_);
        stats_.keepaliveTimeouts++;
        outbox_->pushResponse(reader_.connectionCloseFrame());
        flushFor(200);
        break;
      }
      std::vector<uint8_t> ka = reader_.keepaliveFrame();
      if (!ka.empty()) {
        outbox_->pushResponse(std::move(ka));
        stats_.keepalivesSent++;
        stats_.messagesSent++;
      }
      ++unanswered_;
      nextKeepalive += std::chrono::milliseconds(keepaliveMs);
      if (nextKeepalive <= now) nextKeepalive = now + std::chrono::milliseconds(keepaliveMs);
    }

    // Requests are not read while the client leaves twice the report limit unread: its
    // responses would pile up without bound.
    bool readable = !closeAfter && outbox_->queuedBytes() < 2 * outbox_->limit();
    pollfd fds[3];
    fds[0] = {fd_, static_cast<short>((readable ? POLLIN : 0) | (outbox_->hasOutput() ? POLLOUT : 0)), 0};
    fds[1] = {outbox_->wakeFd(), POLLIN, 0};
    fds[2] = {wakeFd_, POLLIN, 0};
    int timeout = keepaliveMs != 0 ? msUntil(nextKeepalive, now) : 1000;
    if (poll(fds, 3, timeout) < 0) {
      if (errno == EINTR) continue;
      logLine("poll failed: %s", strerror(errno));
      break;
    }
    if (fds[1].revents & POLLIN) outbox_->clearWake();
    if (fds[2].revents & POLLIN) {
      uint64_t v;
      (void)!read(wakeFd_, &v, sizeof v);
    }
    bool over = false;
    if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) {
      ssize_t n = recv(fd_, chunk.data(), chunk.size(), 0);
      if (n == 0) {
        logLine("client closed the connection");
        break;
      }
      if (n < 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
          logLine("connection lost: %s", strerror(errno));
          break;
        }
      } else if (framer.feed(std::span<const uint8_t>(chunk.data(), static_cast<size_t>(n))) < 0) {
        over = true;
      }
      while (!over && !closeAfter) {
        int r = framer.pop(frame);
        if (r == 0) break;
        if (r < 0) {
          over = true;
          break;
        }
        handleFrame(frame, closeAfter);
      }
      if (over) {
        // The stream has no usable frame boundary any more: say why and hang up.
        const llrp::Error& e = framer.error();
        logLine("broken LLRP stream: %s", e.text().c_str());
        reader_.sendError(*outbox_, e.messageId, llrp::statusForError(e));
        flushFor(kCloseFlushMs);
        break;
      }
    }
    const int rc = outbox_->writeTo(fd_);
    stats_.readsSent += outbox_->takeWrittenReads();
    if (rc != 0) {
      logLine("connection lost while sending: %s", strerror(errno));
      break;
    }
    if (closeAfter) {
      flushFor(kCloseFlushMs);
      logLine("connection closed at the client's request");
      break;
    }
  }

  reader_.detach(outbox_.get());
  // What was queued for this client and not written whole is lost with the connection, as on a
  // reader whose client went away: dropped, not sent.
  stats_.readsDropped += outbox_->unsentReads();
  if (reset) {
    linger l{1, 0};
    (void)setsockopt(fd_, SOL_SOCKET, SO_LINGER, &l, sizeof l);
  } else {
    (void)shutdown(fd_, SHUT_RDWR);
  }
  close(fd_);
  fd_ = -1;
  finished_ = true;
}

}  // namespace tessera::readersim
