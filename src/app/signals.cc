#include "app/signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "platform/logger.h"
#include "state/service_state.h"

namespace tessera {

void installSignalActions() {
  struct sigaction action {};
  action.sa_handler = onTerminationSignal;
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESETHAND;
  if (sigaction(SIGINT, &action, nullptr) != 0) {
    Logger::log(LogLevel::kInfo, "Error: cannot handle SIGINT");
  }
  if (sigaction(SIGTERM, &action, nullptr) != 0) {
    Logger::log(LogLevel::kInfo, "Error: cannot handle SIGTERM");
  }
}

int openSignalPipe() {
  return pipe2(serviceState.signalPipe, O_CLOEXEC | O_NONBLOCK);
}

void onTerminationSignal(int signal) {
  ServiceState& s = serviceState;
  s.terminationSignal = signal;
  const char byte = 1;
  if (s.signalPipe[1] >= 0 && write(s.signalPipe[1], &byte, 1) < 0) {
    // Nothing useful can be done inside a signal handler; the flag is set either way.
  }
}

}  // namespace tessera
