#include <sys/socket.h>

#include "platform/logger.h"
#include "state/service_state.h"
#include "modes/relay.h"
#include "modes/relay_batch.h"
#include "output/http_client.h"
#include "output/mqtt_client.h"
#include "output/tcp_server.h"
#include "output/usb_drive.h"
#include "output/usb_hid.h"

namespace tessera {

void joinRelayWorker(bool wakeAccept) {
  ServiceState& s = serviceState;
  if (!s.relayThreadStarted) return;
  // The worker is never cancelled: it is told to stop and woken wherever it waits (the
  // condition, its pause, accept on the TCP/IP listener, a post in progress), so no lock is
  // ever left held.
  s.relayWorkerStop = true;
  s.relayPending.wake();
  if (wakeAccept && s.tcpServer != nullptr && s.tcpServer->listeningSocket() > 0) {
    shutdown(s.tcpServer->listeningSocket(), SHUT_RDWR);
  }
  pthread_join(s.relayThread, nullptr);
  s.relayThreadStarted = false;
}

void discardRelayHoldings() {
  ServiceState& s = serviceState;
  const uint64_t pendingReads = s.relayPending.clear();
  s.readLedger.discarded(DiscardReason::Stopped,
                         pendingReads + s.relayBatchReads + s.relayInFlightReads);
  s.relayBatch.clear();
  s.relayBatchReads = 0;
  s.relayBatchHeartbeat = std::string::npos;
  s.relayInFlight.clear();
  s.relayInFlightSent = 0;
  s.relayInFlightReads = 0;
  s.relayBatchSeq = -1;
}

void relayStop() {
  ServiceState& s = serviceState;
  joinRelayWorker(true);
  spoolRelayHoldings(s);
  if (s.tcpServer != nullptr) {
    s.tcpServer->closeClient();
    s.tcpServer->closeServer();
    s.tcpServer.reset();
  }
  discardRelayHoldings();
  s.httpClient.reset();
  // Publishes the retained "offline" and disconnects before the client goes.
  s.mqttClient.reset();
  hidClose();
  usbDriveDisconnect();
  if (s.hidGadgetLoaded) {
    switchToEthernetGadget();
    s.hidGadgetLoaded = false;
  }
  Logger::log(LogLevel::kInfo, "Tagrelay: Tagrelay thread cleaned.\n");
}

}  // namespace tessera
