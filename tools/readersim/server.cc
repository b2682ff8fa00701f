// tools/readersim/server.cc — LLRP listening socket and accept thread.
#include "server.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "wire.h"

namespace tessera::readersim {

namespace {

// Writes a whole small frame to a blocking socket, giving up after a second.
void sendAll(int fd, const std::vector<uint8_t>& frame) {
  timeval tv{1, 0};
  (void)setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
  size_t at = 0;
  while (at < frame.size()) {
    ssize_t n = send(fd, frame.data() + at, frame.size() - at, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    at += static_cast<size_t>(n);
  }
}

}  // namespace

Server::Server(const Options& options, Reader& reader, Stats& stats, int radioWakeFd)
    : options_(options), reader_(reader), stats_(stats), radioWakeFd_(radioWakeFd) {
  stopFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

Server::~Server() {
  stop();
  if (listenFd_ >= 0) close(listenFd_);
  if (stopFd_ >= 0) close(stopFd_);
}

int Server::listenOn(std::string& error) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* res = nullptr;
  std::string service = std::to_string(options_.port);
  int rc = getaddrinfo(options_.host.c_str(), service.c_str(), &hints, &res);
  if (rc != 0 || res == nullptr) {
    error = "cannot resolve " + options_.host + ": " + gai_strerror(rc);
    return -1;
  }
  int fd = socket(res->ai_family, res->ai_socktype | SOCK_CLOEXEC, res->ai_protocol);
  if (fd < 0) {
    error = std::string("socket: ") + strerror(errno);
    freeaddrinfo(res);
    return -1;
  }
  int one = 1;
  (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (bind(fd, res->ai_addr, res->ai_addrlen) != 0 || listen(fd, 16) != 0) {
    error = "cannot listen on " + options_.host + ":" + service + ": " + strerror(errno);
    close(fd);
    freeaddrinfo(res);
    return -1;
  }
  freeaddrinfo(res);
  sockaddr_storage ss{};
  socklen_t len = sizeof ss;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0) {
    port_ = ss.ss_family == AF_INET6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&ss)->sin6_port)
                                     : ntohs(reinterpret_cast<sockaddr_in*>(&ss)->sin_port);
  }
  listenFd_ = fd;
  return 0;
}

void Server::start() {
  acceptThread_ = std::thread([this] { acceptLoop(); });
}

void Server::stop() {
  if (stopFd_ >= 0) {
    uint64_t one = 1;
    (void)!write(stopFd_, &one, sizeof one);
  }
  if (acceptThread_.joinable()) acceptThread_.join();
  std::thread t;
  {
    std::lock_guard<std::mutex> g(sessionLock_);
    if (session_) session_->requestStop();
    t = std::move(sessionThread_);
  }
  if (t.joinable()) t.join();
  std::lock_guard<std::mutex> g(sessionLock_);
  session_.reset();
}

std::string Server::drop(bool rst) {
  std::lock_guard<std::mutex> g(sessionLock_);
  if (!session_ || session_->finished()) return "error no client connected";
  session_->requestDrop(rst);
  return rst ? "ok dropped (reset)" : "ok dropped";
}

std::string Server::refuse(unsigned n) {
  refuse_ = n;
  return "ok refusing the next " + std::to_string(n) + " connections";
}

std::string Server::deny(unsigned n) {
  deny_ = n;
  return "ok denying the next " + std::to_string(n) + " connections";
}

void Server::reapSession() {
  std::thread t;
  {
    std::lock_guard<std::mutex> g(sessionLock_);
    if (!session_ || !session_->finished()) return;
    t = std::move(sessionThread_);
    session_.reset();
  }
  if (t.joinable()) t.join();
}

void Server::turnAway(int fd, llrp::ConnectionAttemptStatus status) {
  sendAll(fd, reader_.connectionAttemptFrame(status));
  stats_.messagesSent++;
  (void)shutdown(fd, SHUT_WR);
  close(fd);
}

void Server::admit(int fd) {
  if (refuse_ > 0) {
    --refuse_;
    stats_.refused++;
    logLine("refusing a connection (reset)");
    linger l{1, 0};
    (void)setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    close(fd);
    return;
  }
  if (deny_ > 0) {
    --deny_;
    stats_.denied++;
    logLine("denying a connection (status 3)");
    turnAway(fd, llrp::ConnectionAttemptStatus::kFailedOtherReason);
    return;
  }
  reapSession();
  int radio = radioWakeFd_;
  auto outbox = std::make_unique<Outbox>(options_.bufferLimit, [radio] {
    uint64_t one = 1;
    (void)!write(radio, &one, sizeof one);
  });
  // The connection attempt's answer goes first, before any event the reader produces.
  outbox->pushResponse(reader_.connectionAttemptFrame(llrp::ConnectionAttemptStatus::kSuccess));
  stats_.messagesSent++;
  if (!reader_.attach(outbox.get())) {
    stats_.rejectedBusy++;
    logLine("turning away a second client (status 2)");
    reader_.notifyAnotherConnection();
    turnAway(fd, llrp::ConnectionAttemptStatus::kFailedClientInitiatedConnectionExists);
    return;
  }
  stats_.connections++;
  logLine("client connected");
  auto session = std::make_shared<Session>(fd, options_, reader_, stats_, std::move(outbox));
  // The previous session has detached, so its thread is on its way out: join it first.
  std::thread previous;
  {
    std::lock_guard<std::mutex> g(sessionLock_);
    previous = std::move(sessionThread_);
  }
  if (previous.joinable()) previous.join();
  std::lock_guard<std::mutex> g(sessionLock_);
  session_ = session;
  sessionThread_ = std::thread([session] { session->run(); });
}

void Server::acceptLoop() {
  pthread_setname_np(pthread_self(), "simAccept");
  for (;;) {
    pollfd fds[2] = {{listenFd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
    if (poll(fds, 2, 1000) < 0) {
      if (errno == EINTR) continue;
      logLine("accept poll failed: %s", strerror(errno));
      return;
    }
    if (fds[1].revents & POLLIN) return;
    reapSession();
    if (!(fds[0].revents & POLLIN)) continue;
    int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno != EINTR && errno != EAGAIN && errno != ECONNABORTED) {
        logLine("accept failed: %s", strerror(errno));
      }
      continue;
    }
    admit(fd);
  }
}

}  // namespace tessera::readersim
