// src/readerapi/reader_session.h — one LLRP connection behind a ReaderHandle: the socket, the
// receive thread, the request/reply exchange and everything the library keeps for the handle
// (capabilities, antenna settings, singulation, pre-filters, tag buffer, events).
//
// Threads and locks:
// - API calls that talk to the reader hold opLock_ for the whole operation (one request at a
//   time per handle); calls that only read library state take stateLock_ briefly.
// - The receive thread ("rfidRecv") decodes frames, answers keepalives, hands replies to the
//   waiting call through stateLock_ + replyCond_, stores reads in the TagBuffer and calls the
//   user's callback with no lock held.
// - Back-pressure, never discard: at the tag buffer's high-water mark the receive thread stops
//   reading the socket, so TCP flow control holds the reader. It reads on only to find a reply
//   that a call awaits or a KEEPALIVE that is due; the reports in front of those wait, undecoded
//   and in order, in the backlog. Reads are dropped only for a consumer that takes none for
//   kStallLimit (BUFFER_FULL_WARNING_EVENT) and then lets the backlog reach its limit
//   (BUFFER_FULL_EVENT).
// - sendLock_ serialises writes to the socket (requests and keepalive answers).
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "llrp/framer.h"
#include "llrp/records.h"
#include "readerapi/frame_backlog.h"
#include "readerapi/rospec_builder.h"
#include "readerapi/rfid_types.h"
#include "readerapi/tag_buffer.h"

namespace tessera::readerapi {

// What went wrong in the last failed call, kept as text until a caller asks for ErrorInfo.
struct ErrorRecord {
  uint32_t status = 0;
  uint32_t llrpStatusCode = 0;
  uint16_t fieldNum = 0;
  uint16_t fieldErrorCode = 0;
  uint16_t parameterType = 0;
  uint16_t parameterErrorCode = 0;
  uint32_t messageType = 0;
  std::string what;   // the reader's description or ours
  std::string where;  // message, parameter and field
};

// Copies a record into the caller's ErrorInfo (texts cut to fit, always terminated).
void fillErrorInfo(const ErrorRecord& record, ErrorInfo& info);

class ReaderSession {
 public:
  explicit ReaderSession(ReaderHandle handle);
  ~ReaderSession();
  ReaderSession(const ReaderSession&) = delete;
  ReaderSession& operator=(const ReaderSession&) = delete;

  // Opens the connection; on failure the session is left closed and lastError() says why.
  RfidStatus connect(const std::string& host, uint32_t port, uint32_t connectTimeoutMs,
                     const ConnectionSettings* settings);
  RfidStatus reconnect();
  RfidStatus disconnect();

  RfidStatus caps(ReaderCaps& out);
  RfidStatus registerEvents(const uint32_t* types, uint32_t count, RfidEventCallback callback,
                            RfidEventContextCallback contextCallback, void* context);
  template <typename T>
  RfidStatus eventData(uint32_t eventType, T& out);
  RfidStatus readTag(ReaderTagData& out);

  RfidStatus performInventory(const PostFilter* postFilter, const AntennaInfo* antennas,
                              const TriggerRecord* triggers);
  RfidStatus stopInventory();

  RfidStatus getAntennaConfig(uint16_t antennaId, uint16_t& rx, uint16_t& power, uint16_t& freq);
  RfidStatus setAntennaConfig(uint16_t antennaId, uint16_t rx, uint16_t power, uint16_t freq);
  RfidStatus getSingulation(uint16_t antennaId, SingulationControl& out);
  RfidStatus setSingulation(uint16_t antennaId, const SingulationControl& in);
  RfidStatus getTagStorage(TagStorageSettings& out);
  RfidStatus setTagStorage(const TagStorageSettings& in);
  RfidStatus addPreFilter(uint16_t antennaId, const PreFilter& filter, uint32_t& index);
  RfidStatus deletePreFilter(uint16_t antennaId, uint32_t index);
  RfidStatus saveConfig();

  ErrorRecord lastError();

 private:
  struct AntennaState {
    std::optional<llrp::RFReceiver> receiver;
    std::optional<llrp::RFTransmitter> transmitter;
    bool setByClient = false;  // restored after a reconnect
  };
  struct PostFilterData {
    std::vector<uint8_t> pattern;
    uint16_t bits = 0;
    uint16_t offset = 0;
    bool matchRssi = false;
    int8_t rssiMin = -128;
    int8_t rssiMax = 127;
  };
  struct Registration {
    uint32_t mask = 0;
    RfidEventCallback callback = nullptr;
    RfidEventContextCallback contextCallback = nullptr;
    void* context = nullptr;
  };
  // Connection (opLock_ held).
  RfidStatus establish();
  RfidStatus openSocket(int& fd);
  RfidStatus awaitGreeting(int fd);
  RfidStatus setupReader();
  void closeConnection();
  RfidStatus restoreAfterReconnect();

  // Requests (opLock_ held).
  RfidStatus request(llrp::MessageBody body, llrp::MessageType expected, llrp::Message& reply);
  RfidStatus requestChecked(llrp::MessageBody body, llrp::MessageType expected,
                            llrp::Message& reply);
  RfidStatus sendFrame(const llrp::Message& message);
  RfidStatus installInventory();
  RfidStatus removeInventory();
  RfidStatus refreshAntennaConfigs();

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
  // Records the tag buffer's state for RFID_GetEventData and queues the event.
  void bufferEvent(uint32_t code, std::vector<uint32_t>& events);
  bool replyAwaited();
  void handleFrame(const std::vector<uint8_t>& frame, std::vector<uint32_t>& events);
  void handleReport(const llrp::ROAccessReport& report, std::vector<uint32_t>& events);
  void handleEvent(const llrp::ReaderEventNotificationData& data, std::vector<uint32_t>& events);
  // Marks the link lost; whether the consumer is to get DISCONNECTION_EVENT.
  bool connectionLost(const std::string& why);
  void deliver(const std::vector<uint32_t>& events);

  RfidStatus fail(RfidStatus status, std::string what, std::string where = {},
                  uint32_t messageType = 0);
  // The same with stateLock_ already held.
  RfidStatus failLocked(RfidStatus status, std::string what, std::string where = {},
                        uint32_t messageType = 0);
  RfidStatus failWithLlrp(const llrp::LLRPStatus& st, uint32_t messageType);
  bool onReceiveThread() const;
  uint16_t antennaCount();

  const ReaderHandle handle_;

  std::mutex opLock_;  // one operation that talks to the reader at a time; guards fd_, thread_,
                       // host_/port_/timeouts, plan_ and roSpec bookkeeping below
  int fd_ = -1;
  std::thread thread_;
  std::string host_;
  uint32_t port_ = 0;
  uint32_t connectTimeoutMs_ = 0;
  uint32_t keepaliveMs_ = 0;
  uint32_t keepaliveMisses_ = 0;
  uint32_t responseTimeoutMs_ = 0;
  uint32_t greetingTimeoutMs_ = 0;
  llrp::Framer greetingFramer_;  // bytes after the greeting, handed to the receive thread
  uint32_t nextRoSpecId_ = 1;
  bool roSpecInstalled_ = false;
  uint32_t roSpecId_ = 0;
  InventoryRequest plan_;  // the inventory last started (triggers, antennas)
  std::vector<uint16_t> planAntennas_;

  std::mutex sendLock_;  // guards writes to the socket

  std::mutex stateLock_;  // guards every member from here to tags_
  std::condition_variable replyCond_;
  bool connected_ = false;
  bool closing_ = false;        // the client is closing: no disconnection event
  bool readerClosing_ = false;  // the reader announced ConnectionCloseEvent
  uint32_t nextMessageId_ = 1;
  uint32_t pendingId_ = 0;
  std::optional<llrp::Message> reply_;
  std::optional<llrp::Error> replyError_;
  bool watchdog_ = false;  // keepalives were accepted: silence means a lost link
  bool restoreInventory_ = false;
  ReaderCaps caps_{};
  std::vector<AntennaState> antennas_;
  std::vector<SingulationControl> singulation_;  // [0] is antenna 1
  std::vector<StoredPreFilter> filters_;
  uint32_t nextFilterIndex_ = 1;
  TagStorageSettings storage_;
  std::shared_ptr<const PostFilterData> postFilter_;
  Registration registration_;
  std::optional<GpiEventData> gpiData_;
  std::optional<AntennaEventData> antennaData_;
  std::optional<InventoryEventData> inventoryData_;
  std::optional<BufferEventData> bufferData_;
  std::optional<BufferEventData> readerBufferData_;
  std::optional<DisconnectionEventData> disconnectionData_;
  std::optional<ReaderExceptionEventData> exceptionData_;
  ErrorRecord error_;
  uint16_t tagFieldsInForce_ = kDefaultTagFields;  // what the running inventory asked for
  uint32_t maxEpcBytes_ = kMaxTagIdBytes;

  TagBuffer tags_;

  std::atomic<bool> stopReceiving_{false};
  std::atomic<uint64_t> discarded_{0};  // reads the library dropped since it was made
  // Receive thread only.
  FrameBacklog backlog_;
  bool holding_ = false;   // at the high-water mark until the level falls below the low-water
  bool dropping_ = false;  // the backlog is full and reads are being dropped
  std::chrono::steady_clock::time_point lastKeepalive_{};
};

}  // namespace tessera::readerapi
