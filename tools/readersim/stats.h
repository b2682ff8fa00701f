// tools/readersim/stats.h — counters for the control port's "stats" line; lock-free, written by
// the session, radio and accept threads, read by the control thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "options.h"

namespace tessera::readersim {

struct Stats {
  std::atomic<uint64_t> connections{0};      // sessions that got ConnectionAttemptEvent success
  std::atomic<uint64_t> rejectedBusy{0};     // second clients sent status 2
  std::atomic<uint64_t> refused{0};          // reset at once by "refuse"
  std::atomic<uint64_t> denied{0};           // sent status 3 by "deny"
  std::atomic<uint64_t> messagesReceived{0};
  std::atomic<uint64_t> messagesSent{0};
  std::atomic<uint64_t> errorMessagesSent{0};  // ERROR_MESSAGE frames
  std::atomic<uint64_t> readsSent{0};        // TagReportData entries written whole to the client
  std::atomic<uint64_t> readsDropped{0};     // refused by a full send queue, or left unsent
                                             // when a connection ended
  std::atomic<uint64_t> reportsSent{0};      // RO_ACCESS_REPORT messages
  std::atomic<uint64_t> eventsSent{0};       // READER_EVENT_NOTIFICATION messages
  std::atomic<uint64_t> rospecsStarted{0};
  std::atomic<uint64_t> rospecsStopped{0};
  std::atomic<uint64_t> keepalivesSent{0};
  std::atomic<uint64_t> keepaliveAcks{0};
  std::atomic<uint64_t> keepaliveTimeouts{0};  // connections closed for missing ACKs
  std::atomic<uint64_t> configSaves{0};
  std::atomic<bool> clientConnected{false};
  // Per ReportField: TagReportData entries sent without it by --omit-field.
  std::array<std::atomic<uint64_t>, kReportFieldCount> omitted{};

  // "connections=1 reads_sent=10 ... client_connected=1".
  std::string line() const {
    std::string s;
    auto add = [&s](const char* k, uint64_t v) {
      if (!s.empty()) s += ' ';
      s += k;
      s += '=';
      s += std::to_string(v);
    };
    add("connections", connections);
    add("rejected_busy", rejectedBusy);
    add("refused", refused);
    add("denied", denied);
    add("messages_received", messagesReceived);
    add("messages_sent", messagesSent);
    add("errors_sent", errorMessagesSent);
    add("reads_sent", readsSent);
    add("reads_dropped", readsDropped);
    add("reports_sent", reportsSent);
    add("events_sent", eventsSent);
    add("rospecs_started", rospecsStarted);
    add("rospecs_stopped", rospecsStopped);
    add("keepalives_sent", keepalivesSent);
    add("keepalive_acks", keepaliveAcks);
    add("keepalive_timeouts", keepaliveTimeouts);
    add("config_saves", configSaves);
    add("client_connected", clientConnected ? 1 : 0);
    for (size_t f = 0; f < kReportFieldCount; ++f) {
      if (omitted[f] != 0)
        add((std::string("omitted_") + kReportFieldNames[f]).c_str(), omitted[f]);
    }
    return s;
  }
};

}  // namespace tessera::readersim
