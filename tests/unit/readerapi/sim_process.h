// tests/unit/readerapi/sim_process.h — starts tessera-readersim from $TESSERA_BIN on free ports
// for one test and talks to its control port; free loopback ports for scripted peers, and a
// recorder of the events the reader API calls back with.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "readerapi/rfid_api.h"

namespace tessera::testing {

// A TCP socket bound to a free loopback port (listening when asked); its port goes to `port`.
inline int loopbackSocket(bool listening, int& port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) return -1;
  if (listening && ::listen(fd, 4) != 0) return -1;
  socklen_t len = sizeof a;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  port = ntohs(a.sin_port);
  return fd;
}

constexpr uint32_t kAllEvents[] = {0, 1, 9, 2, 3, 8, 4, 5, 6, 7, 10, 11};

// Counts the events of one handle; optionally drains tag reads from inside the callback.
struct Recorder {
  std::mutex lock;  // guards every member below
  std::condition_variable changed;
  uint32_t counts[kRfidEventTypeCount] = {};
  uint64_t reads = 0;
  ReaderTagData last;
  bool drain = true;
  RfidStatus requestFromCallback = RFID_API_SUCCESS;
  bool tryRequest = false;

  static void onEvent(ReaderHandle h, uint32_t code, void* context) {
    auto* r = static_cast<Recorder*>(context);
    bool drain, tryRequest;
    {
      std::lock_guard g(r->lock);
      drain = r->drain;
      tryRequest = r->tryRequest;
    }
    uint64_t got = 0;
    ReaderTagData t;
    if (code == TAG_READ_EVENT && drain) {
      while (RFID_GetReadTag(h, &t) == RFID_API_SUCCESS) {
        ++got;
      }
    }
    RfidStatus fromCallback = RFID_API_SUCCESS;
    if (tryRequest) fromCallback = RFID_StopInventory(h);
    std::lock_guard g(r->lock);
    if (code < kRfidEventTypeCount) ++r->counts[code];
    if (got > 0) r->last = t;
    r->reads += got;
    if (tryRequest) r->requestFromCallback = fromCallback;
    r->changed.notify_all();
  }

  bool waitEvent(uint32_t code, uint32_t atLeast,
                 std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    std::unique_lock g(lock);
    return changed.wait_for(g, timeout, [&] { return counts[code] >= atLeast; });
  }
  bool waitReads(uint64_t atLeast, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    std::unique_lock g(lock);
    return changed.wait_for(g, timeout, [&] { return reads >= atLeast; });
  }
  uint32_t count(uint32_t code) {
    std::lock_guard g(lock);
    return counts[code];
  }
  void reset() {
    std::lock_guard g(lock);
    for (auto& c : counts) c = 0;
    reads = 0;
  }
};

class SimProcess {
 public:
  // Path of the simulator binary, or "" when TESSERA_BIN does not hold one.
  static std::string binary() {
    const char* bin = std::getenv("TESSERA_BIN");
    if (bin == nullptr) return "";
    std::string path = std::string(bin) + "/tessera-readersim";
    return ::access(path.c_str(), X_OK) == 0 ? path : "";
  }

  // Starts the simulator with extra arguments; false when it did not report its ports in 10 s.
  bool start(const std::vector<std::string>& extra = {}) {
    const std::string bin = binary();
    if (bin.empty()) return false;
    char dir[] = "/tmp/rapi-sim-XXXXXX";
    if (::mkdtemp(dir) == nullptr) return false;
    dir_ = dir;
    const std::string ready = dir_ + "/ready";
    std::vector<std::string> args = {bin, "--port", "0", "--control", "0", "--ready-file", ready};
    args.insert(args.end(), extra.begin(), extra.end());
    pid_ = ::fork();
    if (pid_ == 0) {
      int devnull = ::open("/dev/null", O_WRONLY);
      if (devnull >= 0) {
        ::dup2(devnull, 1);
        ::dup2(devnull, 2);
      }
      std::vector<char*> argv;
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    if (pid_ < 0) return false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      std::ifstream in(ready);
      std::string line;
      if (std::getline(in, line) && line.find("control=") != std::string::npos) {
        std::sscanf(line.c_str(), "llrp=%d control=%d", &llrpPort_, &controlPort_);
        if (llrpPort_ > 0 && controlPort_ > 0) return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }

  ~SimProcess() {
    if (control_ >= 0) ::close(control_);
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      int status = 0;
      ::waitpid(pid_, &status, 0);
    }
    if (!dir_.empty()) {
      ::unlink((dir_ + "/ready").c_str());
      ::rmdir(dir_.c_str());
    }
  }

  int llrpPort() const { return llrpPort_; }

  // Sends one control command and returns its reply line ("ok ..." or "error ...").
  std::string command(const std::string& line) {
    if (control_ < 0) {
      control_ = ::socket(AF_INET, SOCK_STREAM, 0);
      sockaddr_in a{};
      a.sin_family = AF_INET;
      a.sin_port = htons(static_cast<uint16_t>(controlPort_));
      a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      if (::connect(control_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0)
        return "error connect";
      timeval tv{5, 0};
      ::setsockopt(control_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    }
    std::string out = line + "\n";
    if (::send(control_, out.data(), out.size(), MSG_NOSIGNAL) < 0) return "error send";
    std::string reply;
    char c;
    while (::recv(control_, &c, 1, 0) == 1) {
      if (c == '\n') break;
      reply.push_back(c);
    }
    return reply;
  }

  // One counter of the "stats" line, or -1.
  long stat(const std::string& key) {
    std::istringstream in(command("stats"));
    std::string word;
    while (in >> word) {
      if (word.rfind(key + "=", 0) == 0) return std::atol(word.c_str() + key.size() + 1);
    }
    return -1;
  }

 private:
  pid_t pid_ = -1;
  std::string dir_;
  int llrpPort_ = 0;
  int controlPort_ = 0;
  int control_ = -1;
};

}  // namespace tessera::testing
