// tools/readersim/session.h — one client's LLRP connection: reads and answers requests, writes
// the send queue, sends keepalives and notices a client that stopped answering them.
#pragma once

#include <atomic>
#include <memory>

#include "options.h"
#include "outbox.h"
#include "reader.h"
#include "stats.h"

namespace tessera::readersim {

class Session {
 public:
  // fd: the accepted socket (owned from now on); outbox: its queue, already attached.
  Session(int fd, const Options& options, Reader& reader, Stats& stats,
          std::unique_ptr<Outbox> outbox);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // The thread body ("simClient"): returns when the connection is over.
  void run();
  // Cuts the connection without CLOSE_CONNECTION or an event (rst: with a TCP reset).
  void requestDrop(bool rst);
  // Ends the connection as a reader shutting down: ConnectionCloseEvent, then close.
  void requestStop();
  // Whether run() has returned.
  bool finished() const { return finished_; }

 private:
  void handleFrame(const std::vector<uint8_t>& frame, bool& closeAfter);
  void flushFor(int milliseconds);
  void wake();

  int fd_;
  const Options& options_;
  Reader& reader_;
  Stats& stats_;
  std::unique_ptr<Outbox> outbox_;
  int wakeFd_ = -1;
  std::atomic<int> drop_{0};  // 0 none, 1 close, 2 reset
  std::atomic<bool> stop_{false};
  std::atomic<bool> finished_{false};
  unsigned unanswered_ = 0;  // KEEPALIVEs sent since the last KEEPALIVE_ACK (session thread)
};

}  // namespace tessera::readersim
