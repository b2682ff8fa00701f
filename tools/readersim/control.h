// tools/readersim/control.h — the loopback text control port ("simControl"): one command per
// line, one reply line "ok ..." or "error <why>". Lets tests play the world around the reader:
// inputs, antennas, the network and the client's pace.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "options.h"
#include "reader.h"
#include "server.h"
#include "stats.h"

namespace tessera::readersim {

class ControlPort {
 public:
  // quitFd: eventfd written when a client sends "quit".
  ControlPort(const Options& options, Reader& reader, Server& server, Stats& stats, int quitFd);
  ~ControlPort();
  ControlPort(const ControlPort&) = delete;
  ControlPort& operator=(const ControlPort&) = delete;

  // Listens on 127.0.0.1:--control; 0, or -1 with error set.
  [[nodiscard]] int listenOn(std::string& error);
  int port() const { return port_; }
  // Starts the thread.
  void start();
  // Stops and joins it.
  void stop();
  // Runs one command line and returns its reply (without the newline).
  std::string execute(const std::string& line);

 private:
  void loop();

  const Options& options_;
  Reader& reader_;
  Server& server_;
  Stats& stats_;
  const int quitFd_;
  int listenFd_ = -1;
  int stopFd_ = -1;
  int port_ = 0;
  std::thread thread_;
};

}  // namespace tessera::readersim
