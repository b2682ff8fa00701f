#include "app/autostart.h"

#include <unistd.h>

#include "config/cloud_conf.h"
#include "config/relay_conf.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "modes/relay.h"
#include "modes/serial_push.h"
#include "platform/platform.h"

namespace tessera {
namespace {

// Both cloud flags set: the cloud data service owns the reader and nothing starts here.
bool cloudHoldsBack() {
  ServiceState& s = serviceState;
  readCloudConfig(s.cloudSettings);
  return s.cloudSettings.CloudEnrolled && s.cloudSettings.CloudAutoConnect;
}

}  // namespace

void bootAutostart() {
  ServiceState& s = serviceState;
  if (s.serialPortConfig.Mode == 1 && s.serialPortConfig.IsAutostart) {
    if (cloudHoldsBack()) {
      Logger::log(LogLevel::kError,
                  "Tessera: Not starting Serial Port Push at boot time since auto connect to "
                  "cloud is enabled\n");
      return;
    }
    const SerialPushResult result = startSerialPush(false);
    if (result != SerialPushResult::kStarted) {
      Logger::log(LogLevel::kError, "Tessera: Unable to start Serial Port Push at boot time : %d\n",
                  static_cast<int>(result));
    } else {
      Logger::log(LogLevel::kInfo, "Tessera: Started Serial Port Push at Boot time\n");
    }
    return;
  }
  if (readRelayConfig(s.relayConfig, s.inventoryControl) < 0) {
    Logger::log(LogLevel::kError, "Tagrelay: Failed to parse Tagrelay Configuration.\n");
    return;
  }
  const std::string marker = platform::path("/var/volatile/isbooted");
  if (access(marker.c_str(), F_OK) == 0) return;
  platform::runShell("touch /var/volatile/isbooted");
  if (s.relayConfig.relayMode == 0 || !s.relayConfig.IsAutostart) return;
  if (cloudHoldsBack()) {
    Logger::log(LogLevel::kError, "Tagrelay: Not starting at boot time since auto connect to cloud is enabled\n");
    return;
  }
  const RelayStartResult result = relayStart(false);
  if (result != RelayStartResult::kStarted) {
    Logger::log(LogLevel::kError, "Tagrelay: Unable to start at boot time : %d\n",
                static_cast<int>(result));
  } else {
    Logger::log(LogLevel::kInfo, "Tagrelay: Started Tagrelay on Boot time\n");
  }
}

}  // namespace tessera
