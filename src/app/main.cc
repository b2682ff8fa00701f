// The tessera service: relays the reader's tag reads through one output channel and obeys the
// appliance's management software on the command channel.
#include <cstdio>

#include "app/options.h"
#include "app/startup.h"
#include "command/command_server.h"
#include "config/check_config.h"
#include "platform/logger.h"
#include "platform/platform.h"

using namespace tessera;

int main(int argc, char** argv) {
  // First, so that every later step, the command line's included, can log.
  Logger::open();
  CommandLine commandLine;
  if (int status = parseCommandLine(argc, argv, commandLine); status != 0) return status;
  if (commandLine.help) {
    printUsage(argv[0]);
    return 0;
  }
  platform::configure(commandLine.settings);
  if (commandLine.checkConfig) return checkConfig(stdout);

  startService();
  runCommandServer();  // until SIGINT or SIGTERM
  cleanupService();
  return 0;
}
