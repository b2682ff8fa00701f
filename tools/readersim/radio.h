// tools/readersim/radio.h — the radio thread ("simRadio"): runs the reader's triggers and tag
// reads on time, whether or not a client is connected.
#pragma once

#include <atomic>
#include <thread>

#include "reader.h"

namespace tessera::readersim {

class Radio {
 public:
  Radio();
  ~Radio();
  Radio(const Radio&) = delete;
  Radio& operator=(const Radio&) = delete;

  // The eventfd that wakes the thread early (timing changed, a queue drained).
  int wakeFd() const { return wakeFd_; }
  // Starts ticking reader.
  void start(Reader& reader);
  // Stops and joins the thread.
  void stop();

 private:
  void loop(Reader& reader);

  int wakeFd_ = -1;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace tessera::readersim
