// The tessera service: relays the reader's tag reads through one output channel and obeys the
// appliance's management software on the command channel.
#include <cstdio>

#include "config/check_config.h"
#include "config/serial_port_conf.h"
#include "platform/logger.h"
#include "app/options.h"
#include "state/service_state.h"
#include "app/signals.h"
#include "app/startup.h"
#include "platform/platform.h"

using namespace tessera;

int main(int argc, char** argv) {
  CommandLine commandLine;
  if (int status = parseCommandLine(argc, argv, commandLine); status != 0) return status;
  if (commandLine.help) {
    printUsage(argv[0]);
    return 0;
  }
  platform::configure(commandLine.settings);
  if (commandLine.checkConfig) return checkConfig(stdout);

  installSignalActions();
  closeInheritedDescriptors();
  // The sweep above may have closed syslog's socket; reopen it so that log lines never go to a
  // descriptor that a later socket reuses.
  Logger::reopen();
  if (openSignalPipe() != 0) Logger::log(LogLevel::kError, "Error: cannot create the signal pipe\n");
  Logger::log(LogLevel::kInfo, "Logger from tessera");
  readSerialPortConf(serviceState.serialPortConfig, serviceState.inventoryControl);
  startService();

  cleanupService();
  Logger::log(LogLevel::kInfo, "tessera stopped after signal %d\n", serviceState.terminationSignal.load());
  return 0;
}
