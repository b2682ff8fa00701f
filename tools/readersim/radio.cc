// tools/readersim/radio.cc — the radio thread.
#include "radio.h"

#include <cerrno>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessera::readersim {

Radio::Radio() { wakeFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC); }

Radio::~Radio() {
  stop();
  if (wakeFd_ >= 0) close(wakeFd_);
}

void Radio::start(Reader& reader) {
  thread_ = std::thread([this, &reader] { loop(reader); });
}

void Radio::stop() {
  stop_ = true;
  uint64_t one = 1;
  if (wakeFd_ >= 0) (void)!write(wakeFd_, &one, sizeof one);
  if (thread_.joinable()) thread_.join();
}

void Radio::loop(Reader& reader) {
  pthread_setname_np(pthread_self(), "simRadio");
  while (!stop_) {
    Clock::time_point now = Clock::now();
    Clock::time_point next = reader.tick(now);
    auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
    // Round up so that a deadline 0.4 ms away is not polled for with a busy 0 ms timeout.
    int timeout = wait <= 0 ? (next > Clock::now() ? 1 : 0) : static_cast<int>(wait > 1000 ? 1000 : wait + 1);
    pollfd p{wakeFd_, POLLIN, 0};
    if (poll(&p, 1, timeout) < 0 && errno != EINTR) break;
    if (p.revents & POLLIN) {
      uint64_t v;
      (void)!read(wakeFd_, &v, sizeof v);
    }
  }
}

}  // namespace tessera::readersim
