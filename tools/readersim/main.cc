// tools/readersim/main.cc — tessera-readersim: an LLRP 1.0.1 fixed reader simulator for tests.
//
// Threads: main (signals and "quit"), simAccept (LLRP connections), simClient (the client's
// connection), simRadio (triggers and tag reads), simControl (text control port). Each stops
// through a flag or an eventfd it polls; SIGINT and SIGTERM arrive through a signalfd, so no
// handler runs on an arbitrary thread.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "capabilities.h"
#include "control.h"
#include "options.h"
#include "population.h"
#include "radio.h"
#include "reader.h"
#include "server.h"
#include "state_file.h"
#include "stats.h"
#include "wire.h"

using namespace tessera::readersim;

namespace {

// Writes the ready file through a temporary name so that a reader never sees half of it.
int writeReadyFile(const std::string& path, int llrpPort, int controlPort) {
  std::string tmp = path + ".tmp";
  FILE* f = fopen(tmp.c_str(), "w");
  if (f == nullptr) return -1;
  fprintf(f, "llrp=%d control=%d\n", llrpPort, controlPort);
  if (fclose(f) != 0) return -1;
  return rename(tmp.c_str(), path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string error;
  int rc = parseOptions(argc, argv, options, error);
  if (rc == 1) return 0;
  if (rc != 0) {
    fprintf(stderr, "tessera-readersim: %s\n", error.c_str());
    return 2;
  }

  Population population;
  if (!options.epcFile.empty()) {
    if (population.loadFile(options.epcFile, options.seed, error) != 0) {
      fprintf(stderr, "tessera-readersim: %s\n", error.c_str());
      return 2;
    }
  } else {
    population.generate(options.tags, options.seed);
  }

  ReaderConfig config = factoryDefaults(options);
  if (!options.stateFile.empty()) {
    int lr = loadState(options.stateFile, options, config, error);
    if (lr < 0) {
      fprintf(stderr, "tessera-readersim: %s\n", error.c_str());
      return 2;
    }
    if (lr == 0) logLine("configuration loaded from %s", options.stateFile.c_str());
  }

  // Signals are taken by the main thread only: block them before any thread starts.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  int sigFd = signalfd(-1, &signals, SFD_CLOEXEC);
  int quitFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (sigFd < 0 || quitFd < 0) {
    fprintf(stderr, "tessera-readersim: signalfd/eventfd: %s\n", strerror(errno));
    return 1;
  }

  Stats stats;
  Radio radio;
  Reader reader(options, std::move(population), std::move(config), stats, radio.wakeFd());
  Server server(options, reader, stats, radio.wakeFd());
  if (server.listenOn(error) != 0) {
    fprintf(stderr, "tessera-readersim: %s\n", error.c_str());
    return 1;
  }
  std::unique_ptr<ControlPort> control;
  if (options.controlPort >= 0) {
    control = std::make_unique<ControlPort>(options, reader, server, stats, quitFd);
    if (control->listenOn(error) != 0) {
      fprintf(stderr, "tessera-readersim: %s\n", error.c_str());
      return 1;
    }
  }

  radio.start(reader);
  server.start();
  if (control) control->start();

  printf("listening on %s:%d\n", options.host.c_str(), server.port());
  if (control) printf("control on 127.0.0.1:%d\n", control->port());
  fflush(stdout);
  if (!options.readyFile.empty() &&
      writeReadyFile(options.readyFile, server.port(), control ? control->port() : -1) != 0) {
    logLine("cannot write ready file %s: %s", options.readyFile.c_str(), strerror(errno));
  }

  for (;;) {
    pollfd fds[2] = {{sigFd, POLLIN, 0}, {quitFd, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[0].revents & POLLIN) {
      signalfd_siginfo si{};
      (void)!read(sigFd, &si, sizeof si);
      logLine("signal %u: shutting down", si.ssi_signo);
      break;
    }
    if (fds[1].revents & POLLIN) {
      logLine("quit requested: shutting down");
      break;
    }
  }

  if (control) control->stop();
  server.stop();
  radio.stop();
  close(sigFd);
  close(quitFd);
  logLine("stopped");
  return 0;
}
