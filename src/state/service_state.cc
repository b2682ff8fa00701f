#include "state/service_state.h"

namespace tessera {

// The process's only global with a constructor, so no order among globals needs stating; the
// Logger builds itself at its first use.
ServiceState serviceState;

ServiceState::~ServiceState() {
  static_cast<void>(httpClient.release());
  static_cast<void>(mqttClient.release());
  static_cast<void>(tcpServer.release());
  static_cast<void>(dataChannel.release());
  static_cast<void>(eventThread.release());
}

}  // namespace tessera
