#include "app/signals.h"

#include <fcntl.h>
#include <unistd.h>

#include "command/dispatcher.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "modes/relay.h"
#include "output/data_channel.h"
#include "reader/event_thread.h"

namespace tessera {

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

void cleanupService() {
  ServiceState& s = serviceState;
  Logger::log(LogLevel::kInfo, "Caught SIGNAL: %d... Cleanup function.\n", s.terminationSignal.load());
  s.eventThreadStop = true;
  Logger::log(LogLevel::kInfo, "\nKilling Threads.. ");
  stopEventThread();
  Logger::log(LogLevel::kInfo, "\nKilling Threads.. Done");
  relayStop();
  // Counted before the spool closes, so that the line tells what it keeps for the next start.
  const ReadCounts counts = currentReadCounts();
  s.spool.close();
  for (int& fd : s.commandClients) {
    if (fd != 0) {
      close(fd);
      fd = 0;
    }
  }
  if (s.commandListener != 0) {
    close(s.commandListener);
    s.commandListener = 0;
  }
  stopDataChannel();
  Logger::log(LogLevel::kInfo, "cleanup tcp channels end ");
  Logger::log(LogLevel::kInfo, "Read statistics: %s\n", formatReadCountsLine(counts).c_str());
}

}  // namespace tessera
