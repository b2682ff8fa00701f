// tools/readersim/outbox.cc — bounded send queue of one connection.
#include "outbox.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tessera::readersim {

Outbox::Outbox(size_t limit, std::function<void()> onDrain)
    : limit_(limit), onDrain_(std::move(onDrain)) {
  wakeFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

Outbox::~Outbox() {
  if (wakeFd_ >= 0) close(wakeFd_);
}

void Outbox::wake() {
  uint64_t one = 1;
  if (wakeFd_ >= 0) (void)!write(wakeFd_, &one, sizeof one);
}

void Outbox::clearWake() {
  uint64_t v = 0;
  if (wakeFd_ >= 0) (void)!read(wakeFd_, &v, sizeof v);
}

void Outbox::pushLocked(std::deque<Queued>& q, std::vector<uint8_t> frame, uint32_t reads) {
  bytes_ += frame.size();
  q.push_back(Queued{std::move(frame), reads});
  if (bytes_ > limit_ / 4) aboveLowWater_ = true;
}

void Outbox::pushResponse(std::vector<uint8_t> frame) {
  {
    std::lock_guard<std::mutex> g(lock_);
    pushLocked(ready_, std::move(frame), 0);
  }
  wake();
}

void Outbox::pushEvent(std::vector<uint8_t> frame) {
  {
    std::lock_guard<std::mutex> g(lock_);
    pushLocked(holding_ ? held_ : ready_, std::move(frame), 0);
  }
  wake();
}

bool Outbox::pushReport(std::vector<uint8_t> frame, uint32_t reads) {
  {
    std::lock_guard<std::mutex> g(lock_);
    if (bytes_ + frame.size() > limit_) return false;
    pushLocked(holding_ ? held_ : ready_, std::move(frame), reads);
  }
  wake();
  return true;
}

void Outbox::hold() {
  std::lock_guard<std::mutex> g(lock_);
  holding_ = true;
}

void Outbox::release() {
  {
    std::lock_guard<std::mutex> g(lock_);
    holding_ = false;
    while (!held_.empty()) {
      ready_.push_back(std::move(held_.front()));
      held_.pop_front();
    }
  }
  wake();
}

void Outbox::adoptHeld(Outbox& other) {
  if (&other == this) return;
  std::scoped_lock g(lock_, other.lock_);
  if (other.frontOffset_ != 0 && !other.ready_.empty()) {
    // A frame half written to an earlier socket cannot be resent whole.
    other.bytes_ -= other.ready_.front().bytes.size() - other.frontOffset_;
    other.cutReads_ += other.ready_.front().reads;
    other.ready_.pop_front();
    other.frontOffset_ = 0;
  }
  for (auto* q : {&other.ready_, &other.held_}) {
    while (!q->empty()) {
      bytes_ += q->front().bytes.size();
      held_.push_back(std::move(q->front()));
      q->pop_front();
    }
  }
  other.bytes_ = 0;
}

uint64_t Outbox::takeWrittenReads() {
  std::lock_guard<std::mutex> g(lock_);
  const uint64_t n = writtenReads_;
  writtenReads_ = 0;
  return n;
}

uint64_t Outbox::unsentReads() const {
  std::lock_guard<std::mutex> g(lock_);
  uint64_t n = cutReads_;
  for (const auto* q : {&ready_, &held_}) {
    for (const Queued& f : *q) n += f.reads;
  }
  return n;
}

size_t Outbox::queuedBytes() const {
  std::lock_guard<std::mutex> g(lock_);
  return bytes_;
}

unsigned Outbox::fillPercent() const {
  std::lock_guard<std::mutex> g(lock_);
  return static_cast<unsigned>(bytes_ * 100 / limit_);
}

bool Outbox::hasOutput() const {
  std::lock_guard<std::mutex> g(lock_);
  return !ready_.empty();
}

int Outbox::writeTo(int fd) {
  bool drained = false;
  int rc = 0;
  {
    std::lock_guard<std::mutex> g(lock_);
    while (!ready_.empty()) {
      const std::vector<uint8_t>& f = ready_.front().bytes;
      ssize_t n = send(fd, f.data() + frontOffset_, f.size() - frontOffset_, MSG_NOSIGNAL);
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) rc = -1;
        break;
      }
      frontOffset_ += static_cast<size_t>(n);
      bytes_ -= static_cast<size_t>(n);
      if (frontOffset_ < f.size()) break;
      writtenReads_ += ready_.front().reads;
      ready_.pop_front();
      frontOffset_ = 0;
    }
    if (aboveLowWater_ && bytes_ <= limit_ / 4) {
      aboveLowWater_ = false;
      drained = true;
    }
  }
  if (drained && onDrain_) onDrain_();
  return rc;
}

}  // namespace tessera::readersim
