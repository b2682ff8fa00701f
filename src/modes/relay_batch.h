// src/modes/relay_batch.h — the relay worker's batch: taking records from tag read processing,
// heartbeats, closing a batch for its channel, the pass pause and the fatal exits. Shared by the
// worker's plain loop and its spool loop; worker thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "state/service_state.h"

namespace tessera {

// What one delivery attempt did.
enum class SendResult {
  kDelivered,  // the batch is out; for TCP/IP every closed batch was taken whole
  kPartial,    // TCP/IP: the client took part of a batch, or nothing yet; the rest goes first on
              // the next pass
  kFailed,     // nothing delivered: the batch is kept and sent again
  kRejected,   // with the spool: the HTTP server refused the batch for good (a 4xx)
  kFatal,      // the channel is gone and the worker ends
};

// The channel is gone: the reader is released, the local client told, the channel closed.
void fatalExit(ServiceState& s, const char* text);
// The batch with its last character dropped (always, or only a ",") and "]}" appended.
std::string closedBatch(const std::string& batch, bool dropAlways);
// The open batch closed for its channel, with its number (with the spool) and its read count;
// the batch itself stays open.
spool::Batch closeOpenBatch(const ServiceState& s);
// The open batch was used (delivered, spooled or handed to a delivery): a new one opens, with
// the next number.
void startNextBatch(ServiceState& s);
// Whether relayBatch holds a tag record or a heartbeat.
bool batchHasContent(const ServiceState& s);
// Whether a heartbeat is due at `now` (seconds of the wall clock).
bool heartbeatDue(const ServiceState& s, int64_t now);
// Appends a heartbeat record, replacing the batch's earlier one.
void addHeartbeat(ServiceState& s, int64_t now);
// Moves every pending record into the batch.
void movePendingToBatch(ServiceState& s);
// Moves pending records into the batch unless it is at its limit; whether it took them. Restarts
// an inventory paused for a full buffer.
bool takeRecords(ServiceState& s);
// Waits for records (or a stop); false when stopping.
bool waitForRecords(ServiceState& s);
// Sleeps for the pass interval (scaled), or less when the relay stops; 0 yields.
void pause(ServiceState& s, double seconds);
inline constexpr long kHttpRequestTimeout = 408;
inline constexpr long kHttpTooManyRequests = 429;

// One HTTP POST of a closed batch. Without `statusDecides` any answer delivers it; with it only
// a 2xx does, a 4xx other than 408 and 429 refuses it for good, anything else keeps it.
SendResult postText(ServiceState& s, const std::string& text, bool statusDecides);
// Publishes a closed batch on the MQTT topic; Delivered at its PUBACK (QoS 1).
SendResult publishText(ServiceState& s, const std::string& text);
// Sends what the TCP/IP client's socket takes of `text` from `sent` on (advanced); Delivered when
// all of it is out; Failed, with `sent` back at 0, when the client is gone.
SendResult sendPiece(ServiceState& s, const std::string& text, size_t& sent);
// Logs the worker's common exit line.
void commonExit();
// The worker's loop with the outage spool; returns when the relay stops or fails.
void runSpoolRelay(ServiceState& s, double interval);
// At a relay stop: pending records and the open batch go to the spool (when it serves the relay)
// instead of being dropped.
void spoolRelayHoldings(ServiceState& s);

}  // namespace tessera
