// tests/unit/readerapi/sim_process.h — starts tessera-readersim from $TESSERA_BIN on free ports
// for one test and talks to its control port; and free loopback ports for scripted peers.
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
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

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
