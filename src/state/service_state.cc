#include "state/service_state.h"

namespace tessera {

// Built after the Logger (priority 101) and before everything else that may log or use it.
ServiceState serviceState __attribute__((init_priority(102)));

ServiceState::~ServiceState() {
  static_cast<void>(httpClient.release());
  static_cast<void>(mqttClient.release());
  static_cast<void>(tcpServer.release());
  static_cast<void>(dataChannel.release());
  static_cast<void>(eventThread.release());
}

}  // namespace tessera
