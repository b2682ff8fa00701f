// tools/readersim/server.h — the LLRP listening socket and its accept thread ("simAccept"):
// one client at a time, turned-away clients told why, and the control port's connection tricks
// (refuse, deny, drop).
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "options.h"
#include "reader.h"
#include "session.h"
#include "stats.h"

namespace tessera::readersim {

class Server {
 public:
  // radioWakeFd: written when a client's queue drains, so that link-speed reading resumes.
  Server(const Options& options, Reader& reader, Stats& stats, int radioWakeFd);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Binds and listens; 0, or -1 with error set.
  [[nodiscard]] int listenOn(std::string& error);
  // The port listened on (the one picked when --port 0).
  int port() const { return port_; }
  // Starts the accept thread.
  void start();
  // Stops accepting, ends the client's connection (ConnectionCloseEvent) and joins threads.
  void stop();

  // Control port: cut the client's connection ("ok"/"error" reply text).
  std::string drop(bool rst);
  // Control port: the next n connections are reset at once.
  std::string refuse(unsigned n);
  // Control port: the next n connections get ConnectionAttemptEvent status 3.
  std::string deny(unsigned n);

 private:
  void acceptLoop();
  void admit(int fd);
  void turnAway(int fd, llrp::ConnectionAttemptStatus status);
  void reapSession();

  const Options& options_;
  Reader& reader_;
  Stats& stats_;
  const int radioWakeFd_;
  int listenFd_ = -1;
  int stopFd_ = -1;
  int port_ = 0;
  std::thread acceptThread_;
  std::atomic<unsigned> refuse_{0};
  std::atomic<unsigned> deny_{0};
  std::mutex sessionLock_;  // guards session_ and sessionThread_
  std::shared_ptr<Session> session_;
  std::thread sessionThread_;
};

}  // namespace tessera::readersim
