// src/readerapi/reader_session.h — one reader behind a ReaderHandle: its LLRP link and
// everything the library keeps for the handle (capabilities, antenna settings, singulation,
// pre-filters, tag buffer, events).
//
// Threads and locks:
// - API calls that talk to the reader hold opLock_ for the whole operation (one request at a
//   time per handle); calls that only read library state take stateLock_ briefly.
// - The link's receive thread calls the LinkListener calls below: they store reads in the
//   TagBuffer and event data under stateLock_, and deliver() calls the user's callback with no
//   lock held.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "llrp/records.h"
#include "readerapi/error_record.h"
#include "readerapi/llrp_link.h"
#include "readerapi/rfid_types.h"
#include "readerapi/rospec_builder.h"
#include "readerapi/tag_buffer.h"
#include "readerapi/tag_report.h"

namespace tessera::readerapi {

class ReaderSession final : private LinkListener {
 public:
  explicit ReaderSession(ReaderHandle handle);
  ~ReaderSession() override;
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
  struct Registration {
    uint32_t mask = 0;
    RfidEventCallback callback = nullptr;
    RfidEventContextCallback contextCallback = nullptr;
    void* context = nullptr;
  };
  // Connection (opLock_ held).
  RfidStatus establish();
  RfidStatus setupReader();
  void closeConnection();
  RfidStatus restoreAfterReconnect();

  // Requests (opLock_ held).
  RfidStatus request(llrp::MessageBody body, llrp::MessageType expected, llrp::Message& reply);
  RfidStatus requestChecked(llrp::MessageBody body, llrp::MessageType expected,
                            llrp::Message& reply);
  RfidStatus installInventory();
  RfidStatus removeInventory();
  RfidStatus refreshAntennaConfigs();

  // What the link hands over (receive thread).
  void onReport(const llrp::ROAccessReport& report, std::vector<uint32_t>& events) override;
  void onEvent(const llrp::ReaderEventNotificationData& data,
               std::vector<uint32_t>& events) override;
  void onBufferEvent(uint32_t code, const BufferEventData& data,
                     std::vector<uint32_t>& events) override;
  void onLost(bool notify, bool readerClosed, const std::string& why) override;
  void deliver(const std::vector<uint32_t>& events) override;

  RfidStatus fail(RfidStatus status, std::string what, std::string where = {},
                  uint32_t messageType = 0);
  // The same with stateLock_ already held.
  RfidStatus failLocked(RfidStatus status, std::string what, std::string where = {},
                        uint32_t messageType = 0);
  // Records what the link said went wrong.
  RfidStatus failWith(RfidStatus status, ErrorRecord record);
  RfidStatus failWithLlrp(const llrp::LLRPStatus& st, uint32_t messageType);
  bool onReceiveThread() const;
  uint16_t antennaCount();

  const ReaderHandle handle_;

  std::mutex opLock_;  // one operation that talks to the reader at a time; guards host_, port_,
                       // timeouts_, plan_ and the ROSpec bookkeeping below
  std::string host_;
  uint32_t port_ = 0;
  LinkTimeouts timeouts_;
  uint32_t nextRoSpecId_ = 1;
  bool roSpecInstalled_ = false;
  uint32_t roSpecId_ = 0;
  InventoryRequest plan_;  // the inventory last started (triggers, antennas)
  std::vector<uint16_t> planAntennas_;

  std::mutex stateLock_;  // guards every member from here to tags_
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
  LlrpLink link_;  // after tags_, which it holds back
};

}  // namespace tessera::readerapi
