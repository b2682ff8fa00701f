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
  [[nodiscard]] RfidStatus connect(const std::string& host, uint32_t port,
                                   uint32_t connectTimeoutMs, const ConnectionSettings* settings);
  // Closes and opens the link again, then restores the client's antenna settings and inventory.
  [[nodiscard]] RfidStatus reconnect();
  // Removes the inventory, says CLOSE_CONNECTION and closes the link.
  [[nodiscard]] RfidStatus disconnect();

  // The capabilities read at the last connect.
  [[nodiscard]] RfidStatus caps(ReaderCaps& out);
  // Sets which events reach which callback (no types or no callback: none).
  [[nodiscard]] RfidStatus registerEvents(const uint32_t* types, uint32_t count,
                                          RfidEventCallback callback,
                                          RfidEventContextCallback contextCallback, void* context);
  // The data of the last event of a type.
  template <typename T>
  [[nodiscard]] RfidStatus eventData(uint32_t eventType, T& out);
  // Takes the oldest read out of the tag buffer; RFID_API_NO_DATA when it is empty.
  [[nodiscard]] RfidStatus readTag(ReaderTagData& out);

  // Replaces any running inventory by one with these antennas, triggers and post-filter.
  [[nodiscard]] RfidStatus performInventory(const PostFilter* postFilter,
                                            const AntennaInfo* antennas,
                                            const TriggerRecord* triggers);
  // Stops and removes the inventory; it is not restored on a reconnect.
  [[nodiscard]] RfidStatus stopInventory();

  // Reads an antenna's receiver, power and frequency indexes from the reader.
  [[nodiscard]] RfidStatus getAntennaConfig(uint16_t antennaId, uint16_t& rx, uint16_t& power,
                                            uint16_t& freq);
  // Sets them on the reader (antenna 0: every antenna) and keeps them for reconnects.
  [[nodiscard]] RfidStatus setAntennaConfig(uint16_t antennaId, uint16_t rx, uint16_t power,
                                            uint16_t freq);
  // The singulation the next inventory uses on an antenna (0: antenna 1's).
  [[nodiscard]] RfidStatus getSingulation(uint16_t antennaId, SingulationControl& out);
  // Sets it for an antenna (0: every antenna).
  [[nodiscard]] RfidStatus setSingulation(uint16_t antennaId, const SingulationControl& in);
  // The tag buffer's settings.
  [[nodiscard]] RfidStatus getTagStorage(TagStorageSettings& out);
  // Sets them; a new capacity empties the buffer, its reads counted as discarded.
  [[nodiscard]] RfidStatus setTagStorage(const TagStorageSettings& in);
  // Adds a pre-filter for the next inventories; its index in `index`.
  [[nodiscard]] RfidStatus addPreFilter(uint16_t antennaId, const PreFilter& filter,
                                        uint32_t& index);
  // Deletes a pre-filter (index 0: every one of the antenna, antenna 0: of every antenna).
  [[nodiscard]] RfidStatus deletePreFilter(uint16_t antennaId, uint32_t index);
  // Asks the reader to keep its configuration across restarts (llrp/vendor_extension.h).
  [[nodiscard]] RfidStatus saveConfig();

  // What went wrong in the last failed call.
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
  // The refusal of an antenna number beyond the reader's n antennas.
  RfidStatus noSuchAntenna(uint16_t antennaId, uint16_t n);
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
