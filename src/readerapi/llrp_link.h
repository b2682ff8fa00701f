// src/readerapi/llrp_link.h — one LLRP connection to a reader: the socket, the greeting, the
// request/reply exchange, keepalives, and the receive thread with its back-pressure.
//
// Threads and locks:
// - request(), open() and close() are called one at a time (the owner serialises them).
// - The receive thread ("rfidRecv") decodes frames, answers keepalives, hands replies to the
//   waiting request through lock_ + replyCond_, and hands reports and events to the listener
//   with no lock of the link held.
// - Back-pressure, never discard: at the tag buffer's high-water mark the receive thread stops
//   reading the socket, so TCP flow control holds the reader. It reads on only to find a reply
//   that a request awaits or a KEEPALIVE that is due; the reports in front of those wait,
//   undecoded and in order, in the backlog. Reads are dropped only for a consumer that takes
//   none for kStallLimit (BUFFER_FULL_WARNING_EVENT) and then lets the backlog reach its limit
//   (BUFFER_FULL_EVENT).
// - sendLock_ serialises writes to the socket (requests and keepalive answers).
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "llrp/framer.h"
#include "llrp/records.h"
#include "readerapi/error_record.h"
#include "readerapi/frame_backlog.h"
#include "readerapi/rfid_records.h"
#include "readerapi/tag_buffer.h"

namespace tessera::readerapi {

// What the receive thread hands to the link's owner; called with no lock of the link held.
// Each call may append event codes to `events`, which deliver() later passes on in order.
class LinkListener {
 public:
  virtual ~LinkListener() = default;
  // A report: its reads go to the tag buffer.
  virtual void onReport(const llrp::ROAccessReport& report, std::vector<uint32_t>& events) = 0;
  // An event notification of the reader.
  virtual void onEvent(const llrp::ReaderEventNotificationData& data,
                       std::vector<uint32_t>& events) = 0;
  // The tag buffer's state at a BUFFER_FULL_WARNING_EVENT or BUFFER_FULL_EVENT (in `code`).
  virtual void onBufferEvent(uint32_t code, const BufferEventData& data,
                             std::vector<uint32_t>& events) = 0;
  // The link broke; `notify` is false when the client was closing it anyway.
  virtual void onLost(bool notify, bool readerClosed, const std::string& why) = 0;
  // Passes the collected events to the consumer.
  virtual void deliver(const std::vector<uint32_t>& events) = 0;
};

// Time limits of a link, in milliseconds (keepaliveMisses: periods of silence that break it).
struct LinkTimeouts {
  uint32_t connectMs = 0;
  uint32_t greetingMs = 0;
  uint32_t responseMs = 0;
  uint32_t keepaliveMs = 0;
  uint32_t keepaliveMisses = 0;
};

class LlrpLink {
 public:
  LlrpLink(TagBuffer& tags, LinkListener& listener);
  ~LlrpLink();
  LlrpLink(const LlrpLink&) = delete;
  LlrpLink& operator=(const LlrpLink&) = delete;

  // Connects, waits for the reader's greeting and starts the receive thread; on failure the link
  // stays closed and `error` says why.
  [[nodiscard]] RfidStatus open(const std::string& host, uint32_t port,
                                const LinkTimeouts& timeouts, ErrorRecord& error);
  // Stops the receive thread and closes the socket.
  void close();
  // Sends `body` and waits for its reply; an ERROR_MESSAGE counts as a reply. On failure `error`
  // says why.
  [[nodiscard]] RfidStatus request(llrp::MessageBody body, llrp::MessageType expected,
                                   llrp::Message& reply, ErrorRecord& error);
  // Whether the link is up.
  bool connected();
  // The client is closing the link: its end is no lost connection.
  void markClosing();
  // Keepalives were accepted: silence of keepaliveMisses periods breaks the link.
  void setWatchdog(bool on);
  // Whether the calling thread is this link's receive thread.
  bool onReceiveThread() const;
  // Counts reads dropped outside the link (e.g. the buffer emptied at an inventory stop), for
  // the buffer events.
  void countDiscarded(uint64_t reads);

 private:
  RfidStatus openSocket(const std::string& host, uint32_t port, int& fd, ErrorRecord& error);
  RfidStatus awaitGreeting(int fd, const std::string& where, ErrorRecord& error);
  RfidStatus sendFrame(const llrp::Message& message, ErrorRecord& error);

  // Receive thread.
  void receiveLoop(int fd);
  // Handles a frame now, or holds a report or event back behind the backlog.
  void takeFrame(std::vector<uint8_t>& frame, std::vector<uint32_t>& events);
  // Moves held-back frames into the tag buffer while it is below its high-water mark.
  void drainBacklog(std::vector<uint32_t>& events);
  // After the link broke: hands every held-back frame over as the consumer makes room.
  void flushBacklog(std::vector<uint32_t>& events);
  // Drops the backlog, counting its reads as discarded.
  void dropBacklog();
  // Hands the tag buffer's state to the listener with the event `code`.
  void bufferEvent(uint32_t code, std::vector<uint32_t>& events);
  bool replyAwaited();
  void handleFrame(const std::vector<uint8_t>& frame, std::vector<uint32_t>& events);
  void deliver(std::vector<uint32_t>& events);

  TagBuffer& tags_;
  LinkListener& listener_;

  // Written by open() and close() only, while no receive thread runs.
  int fd_ = -1;
  std::thread thread_;
  LinkTimeouts timeouts_;
  llrp::Framer greetingFramer_;  // bytes after the greeting, handed to the receive thread

  std::mutex sendLock_;  // guards writes to the socket

  std::mutex lock_;  // guards every member from here to watchdog_
  std::condition_variable replyCond_;
  bool connected_ = false;
  bool closing_ = false;        // the client is closing: no lost connection
  bool readerClosing_ = false;  // the reader announced ConnectionCloseEvent
  uint32_t nextMessageId_ = 1;
  uint32_t pendingId_ = 0;
  std::optional<llrp::Message> reply_;
  std::optional<llrp::Error> replyError_;
  bool watchdog_ = false;

  std::atomic<bool> stopReceiving_{false};
  std::atomic<uint64_t> discarded_{0};  // reads dropped since the link was made
  // Receive thread only.
  FrameBacklog backlog_;
  bool holding_ = false;   // at the high-water mark until the level falls below the low-water
  bool dropping_ = false;  // the backlog is full and reads are being dropped
  std::chrono::steady_clock::time_point lastKeepalive_{};
};

}  // namespace tessera::readerapi
