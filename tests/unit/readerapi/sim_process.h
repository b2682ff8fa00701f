// tests/unit/readerapi/sim_process.h — starts tessera-readersim from $TESSERA_BIN on free ports
// for one test and talks to its control port; free loopback ports for scripted peers, a quick
// loopback connect, and a recorder of the events the reader API calls back with.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
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

// Connects to a reader on a loopback port with test timings (all in ms), since the library's
// defaults would make every lost-link case last seconds.
inline RfidStatus connectLoopback(ReaderHandle& h, int port, uint32_t keepaliveMs,
                                  uint32_t keepaliveMisses, uint32_t responseMs,
                                  uint32_t greetingMs) {
  ConnectionSettings s{kConnectionUseSettings, keepaliveMs, keepaliveMisses, responseMs,
                       greetingMs};
  ConnectionOptions options{2, &s};
  return RFID_ConnectW(&h, L"127.0.0.1", static_cast<uint32_t>(port), 2000, &options);
}

// Counts the events of one handle; optionally drains tag reads from inside the callback, or
// tries a request there that the library must refuse.
struct Recorder {
  std::mutex lock;  // guards counts and reads
  std::condition_variable changed;
  uint32_t counts[kRfidEventTypeCount] = {};
  uint64_t reads = 0;
  std::atomic<RfidStatus> requestFromCallback = RFID_API_SUCCESS;
  bool drain = true;                     // set before listenTo(), then only read
  std::atomic<bool> tryRequest = false;  // may be turned off while events come

  // Registers for every event of h, in an order unlike the codes' own.
  RfidStatus listenTo(ReaderHandle h) {
    static constexpr uint32_t kAll[] = {0, 1, 9, 2, 3, 8, 4, 5, 6, 7, 10, 11};
    return RFID_RegisterEventNotificationCallback(h, kAll, std::size(kAll), nullptr, &onEvent,
                                                  this);
  }

  static void onEvent(ReaderHandle h, uint32_t code, void* context) {
    auto* r = static_cast<Recorder*>(context);
    uint64_t got = 0;
    ReaderTagData t;
    while (code == TAG_READ_EVENT && r->drain && RFID_GetReadTag(h, &t) == RFID_API_SUCCESS) ++got;
    if (r->tryRequest) r->requestFromCallback = RFID_StopInventory(h);
    std::lock_guard g(r->lock);  // not held above: the library's calls must not wait on it
    if (code < kRfidEventTypeCount) ++r->counts[code];
    r->reads += got;
    r->changed.notify_all();
  }

  bool waitEvent(uint32_t code, uint32_t atLeast) {
    std::unique_lock g(lock);
    return changed.wait_for(g, std::chrono::seconds(5), [&] { return counts[code] >= atLeast; });
  }
  bool waitReads(uint64_t atLeast) {
    std::unique_lock g(lock);
    return changed.wait_for(g, std::chrono::seconds(5), [&] { return reads >= atLeast; });
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
    const std::string path = std::string(bin == nullptr ? "" : bin) + "/tessera-readersim";
    return bin != nullptr && ::access(path.c_str(), X_OK) == 0 ? path : "";
  }

  // Starts the simulator with extra arguments; false when it did not report its ports in 10 s.
  bool start(const std::vector<std::string>& extra = {}) {
    const std::string bin = binary();
    char ready[] = "/tmp/rapi-sim-ready-XXXXXX";  // empty until the simulator replaces it
    if (bin.empty() || ::close(::mkstemp(ready)) != 0) return false;
    ready_ = ready;
    std::vector<std::string> args = {bin, "--port", "0", "--control", "0", "--ready-file", ready};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t quiet;  // the simulator's log would bury the test's own output
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&quiet, 1, 2);
    if (::posix_spawn(&pid_, argv[0], &quiet, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&quiet);
    for (int i = 0; pid_ > 0 && i < 500; ++i) {  // it writes the file in one step
      std::ifstream in(ready);
      std::string line;
      if (std::getline(in, line) &&
          std::sscanf(line.c_str(), "llrp=%d control=%d", &llrpPort_, &controlPort_) == 2)
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }

  ~SimProcess() {
    if (control_ >= 0) ::close(control_);
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::kill(pid_, SIGCONT);  // in case a failed test left it frozen
      ::waitpid(pid_, nullptr, 0);
    }
    if (!ready_.empty()) ::unlink(ready_.c_str());
  }

  int llrpPort() const { return llrpPort_; }
  // Stops or resumes the process: a frozen reader keeps its TCP connections up but says nothing.
  void freeze(bool on) {
    if (pid_ > 0) ::kill(pid_, on ? SIGSTOP : SIGCONT);  // never -1: that means every process
  }

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
    const std::string out = line + "\n";
    if (::send(control_, out.data(), out.size(), MSG_NOSIGNAL) < 0) return "error send";
    std::string reply;
    for (char c; ::recv(control_, &c, 1, 0) == 1 && c != '\n';) reply.push_back(c);
    return reply;
  }

  // Whether a control command was accepted.
  bool ok(const std::string& line) { return command(line).rfind("ok", 0) == 0; }

  // One counter of the "stats" line, or -1.
  long stat(const std::string& key) {
    const std::string line = command("stats");  // "ok key=value key=value ..."
    const size_t at = line.find(" " + key + "=");
    return at == std::string::npos ? -1 : std::atol(line.c_str() + at + key.size() + 2);
  }

 private:
  pid_t pid_ = -1;
  std::string ready_;
  int llrpPort_ = 0;
  int controlPort_ = 0;
  int control_ = -1;
};

}  // namespace tessera::testing
