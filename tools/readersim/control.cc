// tools/readersim/control.cc — the text control port.
#include "control.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "wire.h"

namespace tessera::readersim {

namespace {

constexpr size_t kMaxClients = 8;
constexpr size_t kMaxLine = 256;

struct Client {
  int fd = -1;
  std::string pending;  // bytes of an unfinished line
};

std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> out;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && isspace(static_cast<unsigned char>(line[i]))) ++i;
    size_t j = i;
    while (j < line.size() && !isspace(static_cast<unsigned char>(line[j]))) ++j;
    if (j > i) out.push_back(line.substr(i, j - i));
    i = j;
  }
  return out;
}

bool toUnsigned(const std::string& s, unsigned max, unsigned& out) {
  if (s.empty() || s.size() > 9) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  unsigned long v = strtoul(s.c_str(), nullptr, 10);
  if (v > max) return false;
  out = static_cast<unsigned>(v);
  return true;
}

void sendLine(int fd, const std::string& reply) {
  std::string line = reply + "\n";
  size_t at = 0;
  while (at < line.size()) {
    ssize_t n = send(fd, line.data() + at, line.size() - at, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    at += static_cast<size_t>(n);
  }
}

}  // namespace

ControlPort::ControlPort(const Options& options, Reader& reader, Server& server, Stats& stats,
                         int quitFd)
    : options_(options), reader_(reader), server_(server), stats_(stats), quitFd_(quitFd) {
  stopFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

ControlPort::~ControlPort() {
  stop();
  if (listenFd_ >= 0) close(listenFd_);
  if (stopFd_ >= 0) close(stopFd_);
}

int ControlPort::listenOn(std::string& error) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = std::string("control socket: ") + strerror(errno);
    return -1;
  }
  int one = 1;
  (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(static_cast<uint16_t>(options_.controlPort));
  if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, 8) != 0) {
    error = "cannot listen on control port " + std::to_string(options_.controlPort) + ": " +
            strerror(errno);
    close(fd);
    return -1;
  }
  socklen_t len = sizeof a;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) port_ = ntohs(a.sin_port);
  listenFd_ = fd;
  return 0;
}

void ControlPort::start() {
  thread_ = std::thread([this] { loop(); });
}

void ControlPort::stop() {
  uint64_t one = 1;
  if (stopFd_ >= 0) (void)!write(stopFd_, &one, sizeof one);
  if (thread_.joinable()) thread_.join();
}

std::string ControlPort::execute(const std::string& line) {
  std::vector<std::string> w = words(line);
  if (w.empty()) return "error empty command";
  const std::string& cmd = w[0];
  unsigned a = 0;
  if (cmd == "gpi") {
    if (w.size() != 3 || !toUnsigned(w[1], 65535, a) || (w[2] != "0" && w[2] != "1")) {
      return "error usage: gpi PORT 0|1";
    }
    return reader_.setGpi(a, w[2] == "1");
  }
  if (cmd == "antenna") {
    if (w.size() != 3 || !toUnsigned(w[1], 65535, a) ||
        (w[2] != "connected" && w[2] != "disconnected")) {
      return "error usage: antenna PORT connected|disconnected";
    }
    return reader_.setAntenna(a, w[2] == "connected");
  }
  if (cmd == "drop") {
    if (w.size() > 2 || (w.size() == 2 && w[1] != "rst")) return "error usage: drop [rst]";
    return server_.drop(w.size() == 2);
  }
  if (cmd == "refuse" || cmd == "deny") {
    if (w.size() != 2 || !toUnsigned(w[1], 1000000, a)) return "error usage: " + cmd + " N";
    return cmd == "refuse" ? server_.refuse(a) : server_.deny(a);
  }
  if (cmd == "rate") {
    char* end = nullptr;
    double r = w.size() == 2 ? strtod(w[1].c_str(), &end) : -1;
    if (w.size() != 2 || end == nullptr || *end != '\0' || !std::isfinite(r) || r < 0 || r > 1e7) {
      return "error usage: rate R (reads per second, 0 = link speed)";
    }
    return reader_.setRate(r);
  }
  if (w.size() != 1) return "error " + cmd + " takes no argument";
  if (cmd == "buffer-warning") return reader_.bufferWarning();
  if (cmd == "buffer-overflow") return reader_.bufferOverflow();
  if (cmd == "stats") return "ok " + stats_.line();
  if (cmd == "rospecs") return reader_.describeROSpecs();
  if (cmd == "power") return reader_.describePower();
  if (cmd == "quit") {
    uint64_t one = 1;
    (void)!write(quitFd_, &one, sizeof one);
    return "ok quitting";
  }
  return "error unknown command " + cmd;
}

void ControlPort::loop() {
  pthread_setname_np(pthread_self(), "simControl");
  std::vector<Client> clients;
  for (;;) {
    std::vector<pollfd> fds;
    fds.push_back({stopFd_, POLLIN, 0});
    fds.push_back({listenFd_, static_cast<short>(clients.size() < kMaxClients ? POLLIN : 0), 0});
    for (const Client& c : clients) fds.push_back({c.fd, POLLIN, 0});
    if (poll(fds.data(), fds.size(), 1000) < 0) {
      if (errno == EINTR) continue;
      logLine("control poll failed: %s", strerror(errno));
      break;
    }
    if (fds[0].revents & POLLIN) break;
    for (size_t i = 0; i < clients.size(); ++i) {
      if (!(fds[i + 2].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buf[512];
      ssize_t n = recv(clients[i].fd, buf, sizeof buf, 0);
      if (n <= 0) {
        if (n < 0 && errno == EINTR) continue;
        close(clients[i].fd);
        clients[i].fd = -1;
        continue;
      }
      clients[i].pending.append(buf, static_cast<size_t>(n));
      size_t nl;
      while ((nl = clients[i].pending.find('\n')) != std::string::npos) {
        std::string line = clients[i].pending.substr(0, nl);
        clients[i].pending.erase(0, nl + 1);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        std::string reply = execute(line);
        logLine("control: %s -> %s", line.c_str(), reply.c_str());
        sendLine(clients[i].fd, reply);
      }
      if (clients[i].pending.size() > kMaxLine) {
        sendLine(clients[i].fd, "error line too long");
        close(clients[i].fd);
        clients[i].fd = -1;
      }
    }
    std::erase_if(clients, [](const Client& c) { return c.fd < 0; });
    if (fds[1].revents & POLLIN) {
      int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) clients.push_back({fd, std::string()});
    }
  }
  for (Client& c : clients) close(c.fd);
}

}  // namespace tessera::readersim
