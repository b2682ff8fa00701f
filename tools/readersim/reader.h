// tools/readersim/reader.h — the simulated reader: configuration, GPIO and antennas, the
// operation engine and the requests of one client at a time. Every call is thread-safe: the
// session, radio, accept and control threads all come through here.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "engine.h"
#include "llrp/records.h"
#include "model.h"
#include "options.h"
#include "outbox.h"
#include "population.h"
#include "stats.h"

namespace tessera::readersim {

class Reader : private EngineSink {
 public:
  // radioWakeFd: eventfd of the radio thread, written whenever timing may have changed.
  Reader(const Options& options, Population population, ReaderConfig config, Stats& stats,
         int radioWakeFd);
  ~Reader() override;

  // Makes outbox the client's connection: events and reports go there from now on (held back
  // when the client asked for holding); false when another connection is attached.
  [[nodiscard]] bool attach(Outbox* outbox);
  // Ends the attachment of outbox (no-op for another outbox).
  void detach(Outbox* outbox);
  // Whether a connection is attached.
  bool attached();
  // Handles one decoded client message through its handler, queueing the response and what
  // follows it; sets closeAfter for CLOSE_CONNECTION. A message without a handler gets LLRP's
  // M_UnsupportedMessage answer.
  void handle(const llrp::Message& message, Outbox& outbox, bool& closeAfter);
  // Answers an undecodable frame with ERROR_MESSAGE carrying status.
  void sendError(Outbox& outbox, uint32_t messageId, const llrp::LLRPStatus& status);
  // The ConnectionAttemptEvent frame with a status (for accepted and turned-away clients).
  std::vector<uint8_t> connectionAttemptFrame(llrp::ConnectionAttemptStatus status);
  // Tells the attached client that another connection was attempted (status 4).
  void notifyAnotherConnection();
  // The ConnectionCloseEvent frame sent when the reader closes the connection.
  std::vector<uint8_t> connectionCloseFrame();
  // A KEEPALIVE frame.
  std::vector<uint8_t> keepaliveFrame();
  // Keepalive period in ms (0 = none).
  uint32_t keepaliveMs();
  // Next message ID for a reader-initiated message.
  uint32_t nextMessageId() { return nextId_.fetch_add(1) + 1; }

  // Radio thread: runs due triggers and reads; when to tick next.
  Clock::time_point tick(Clock::time_point now);

  // Control port operations; "ok ..." / "error ..." reply texts.
  std::string setGpi(unsigned port, bool high);
  std::string setAntenna(unsigned port, bool connected);
  std::string setRate(double rate);
  std::string bufferWarning();
  std::string bufferOverflow();
  std::string describeROSpecs();
  std::string describePower();

 private:
  // A frame produced while a request is handled; it follows the request's response.
  struct Deferred {
    llrp::Message message;  // encoded when it is queued, so the log shows the wire order
    size_t reads = 0;       // TagReportData entries when the message is a report
    bool isReport = false;
  };

  // What a request's handler needs besides the message.
  struct Request {
    Outbox& out;
    uint32_t id;
    Clock::time_point now;
    bool& closeAfter;
  };
  using Handler = void (Reader::*)(const llrp::Message& message, Request& request);
  struct HandlerEntry {
    llrp::MessageType type;
    Handler handler;
  };
  // The handler of a message type a client may send, or null (requests.cc has the table).
  static const HandlerEntry* handlerFor(llrp::MessageType type);
  // LLRP's answer to a message the simulator does not take: M_UnsupportedMessage.
  void answerUnsupported(const llrp::Message& message, Request& request);
  // The handlers, called with lock_ held; each queues its response.
  void onGetReaderCapabilities(const llrp::Message& message, Request& request);
  void onGetReaderConfig(const llrp::Message& message, Request& request);
  void onSetReaderConfig(const llrp::Message& message, Request& request);
  void onCloseConnection(const llrp::Message& message, Request& request);
  void onAddROSpec(const llrp::Message& message, Request& request);
  // DELETE/START/STOP/ENABLE/DISABLE_ROSPEC: one engine call on the request's ROSpec ID.
  template <typename Message, typename Response,
            Status (Engine::*call)(uint32_t, Clock::time_point)>
  void onROSpecIdRequest(const llrp::Message& message, Request& request);
  void onDeleteAccessSpec(const llrp::Message& message, Request& request);
  void onGetReport(const llrp::Message& message, Request& request);
  void onEnableEventsAndReports(const llrp::Message& message, Request& request);
  void onCustomMessage(const llrp::Message& message, Request& request);

  // EngineSink, called with lock_ held.
  void roSpecStarted(uint32_t roSpecId) override;
  void roSpecEnded(uint32_t roSpecId) override;
  void aiSpecEnded(uint32_t roSpecId, uint16_t specIndex) override;
  void report(std::vector<TagRead>&& reads, const ContentSelector& content) override;
  size_t readRoom() override;

  void respond(Outbox& out, uint32_t id, llrp::MessageBody body);
  void sendEvent(llrp::ReaderEventNotificationData data);
  Outbox* target();
  void deliver(Deferred item);
  void flushDeferred();
  void checkBufferLevel();
  llrp::ReaderEventNotificationData eventData();
  // next with the cable and input levels of the configuration in force.
  ReaderConfig keepPhysical(ReaderConfig next) const;
  Status setReaderConfig(const llrp::SetReaderConfig& m);
  Status getReaderConfig(const llrp::GetReaderConfig& m, llrp::GetReaderConfigResponse& r);
  Status saveConfig();
  void wakeRadio();

  const Options& options_;
  const int radioWakeFd_;
  Stats& stats_;
  std::atomic<uint32_t> nextId_{0};

  std::mutex lock_;  // guards every member below (and the engine's state)
  Population population_;
  ReaderConfig config_;
  ReaderConfig startConfig_;  // loaded at start or last saved: where --forget-config goes back to
  Engine engine_;
  Outbox* outbox_ = nullptr;         // the attached connection's queue, or none
  std::unique_ptr<Outbox> offline_;  // events and reports held while no client is attached
  uint32_t configVersion_ = 1;       // LLRPConfigurationStateValue
  bool deferEvents_ = false;         // while a request is handled: events wait for its response
  std::vector<Deferred> deferred_;
  bool warned_ = false;              // a buffer level warning was sent for this fill
  bool overflowed_ = false;          // an overflow event was sent for this fill
  uint32_t reportMessageId_ = 0;     // GET_REPORT: ID the flushed reports carry (0 = new IDs)
  size_t reportsThisFlush_ = 0;
  uint64_t readsReported_ = 0;  // TagReportData entries built, for --omit-field's choice
};

}  // namespace tessera::readersim
