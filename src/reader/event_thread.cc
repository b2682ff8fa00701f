#include "reader/event_thread.h"

#include <pthread.h>

#include <optional>

#include "state/console.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "output/data_channel.h"
#include "platform/platform.h"
#include "reader/tag_processing.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

constexpr const wchar_t* kGpiStateNames[3] = {L"LOW", L"HIGH", L"UNKNOWN"};
constexpr int kReconnectAttempts = 10;
constexpr double kReconnectPauseSeconds = 5.0;

// Takes every buffered read out of the library into `tag`: each to processTagRead, or, with a
// reason, discarded and counted under it.
void takeBufferedReads(ReaderHandle handle, ReaderTagData* tag, std::optional<DiscardReason> why) {
  uint64_t dropped = 0;
  while (RFID_GetReadTag(handle, tag) == RFID_API_SUCCESS) {
    if (why) {
      ++dropped;
    } else {
      processTagRead(tag);
    }
  }
  if (dropped != 0) serviceState.readLedger.takenAndDiscarded(*why, dropped);
}

// Takes every buffered read out of the library; hands each to processTagRead or discards it.
void drainTags(ReaderHandle handle, bool process, const wchar_t* trace) {
  ReaderTagData* tag = RFID_AllocateTag(handle);
  if (tag == nullptr) {
    consolePrint(L"RFID_AllocateTag Failed.\n");
    return;
  }
  if (trace != nullptr) consolePrint(trace);
  takeBufferedReads(handle, tag, process ? std::nullopt : std::optional(DiscardReason::BufferFull));
  RFID_DeallocateTag(handle, tag);
}

// Reads the library dropped itself never reach a drain; its buffer event says how many.
void countLibraryDiscards(ReaderHandle handle, uint32_t eventCode) {
  ServiceState& s = serviceState;
  BufferEventData data{};
  if (RFID_GetEventData(handle, eventCode, &data) != RFID_API_SUCCESS) return;
  if (handle != s.apiDiscardHandle) {
    s.apiDiscardHandle = handle;
    s.apiDiscardSeen = 0;
  }
  if (data.discarded > s.apiDiscardSeen) {
    s.readLedger.takenAndDiscarded(DiscardReason::ReaderApi, data.discarded - s.apiDiscardSeen);
    s.apiDiscardSeen = data.discarded;
  }
}

void notify(const char* text) {
  if (serviceState.dataChannelClientFd > 0) dataChannelNotify(text);
}

void handleDisconnection(ReaderHandle handle) {
  ServiceState& s = serviceState;
  consolePrint(L"SIGNALLED: DISCONNECTION_EVENT\n");
  DisconnectionEventData data{};
  if (RFID_GetEventData(handle, DISCONNECTION_EVENT, &data) != RFID_API_SUCCESS) data = {};
  const char* reason =
      data.reason != 0 ? "Reader Connection Lost" : "Reader Initiated Disconnection";
  consolePrint(L"%s", reason);
  Logger::log(LogLevel::kInfo, "%s", reason);
  if (!s.disconnectRequested) {
    Logger::log(LogLevel::kInfo, "LLRP Disconnected, trying to reconnect.");
    for (int attempt = 1; attempt <= kReconnectAttempts; ++attempt) {
      // A disconnect command or a shutdown during the retries ends them.
      if (s.disconnectRequested || s.eventThreadStop) break;
      if (RFID_Reconnect(handle) == RFID_API_SUCCESS) {
        s.readLedger.readerReconnected();
        Logger::log(LogLevel::kInfo, "Re-Connected with LLRP\n");
        return;
      }
      Logger::log(LogLevel::kInfo, "Trying to reconnect with LLRP - %d/10\n", attempt);
      platform::sleepSeconds(kReconnectPauseSeconds);
    }
  }
  Logger::log(LogLevel::kInfo, "LLRP does not reconnect, exiting...\n");
  if (!s.suppressDisconnectEvent) notify("DISCONNECTION_EVENT");
  s.suppressDisconnectEvent = false;
}

}  // namespace

void discardBufferedReads(ReaderHandle handle, DiscardReason why) {
  ReaderTagData* tag = RFID_AllocateTag(handle);
  if (tag == nullptr) return;
  takeBufferedReads(handle, tag, why);
  RFID_DeallocateTag(handle, tag);
}

// The "readerEvent" thread's handle; one lives in serviceState.eventThread from
// startEventThread to stopEventThread.
class EventThread {
 public:
  explicit EventThread(ServiceState& s) : queue_(s.eventQueue) {
    started_ = pthread_create(&thread_, nullptr, ProcessRfidEventsThread, &s) == 0;
    if (started_) pthread_setname_np(thread_, "readerEvent");
  }
  // Wakes the thread, which must have been told to stop, and joins it.
  ~EventThread() {
    if (!started_) return;
    // The stop flag is checked at every wake-up; this makes the wake-up immediate.
    queue_.wake();
    pthread_join(thread_, nullptr);
  }
  EventThread(const EventThread&) = delete;
  EventThread& operator=(const EventThread&) = delete;

 private:
  EventQueue& queue_;
  pthread_t thread_{};
  bool started_ = false;
};

void startEventThread() {
  ServiceState& s = serviceState;
  s.eventThreadStop = false;
  s.eventThread = makeOwned<EventThread>(s);
}

void onReaderEvent(ReaderHandle, uint32_t eventCode) { serviceState.eventQueue.push(eventCode); }

void* ProcessRfidEventsThread(void* state) {
  ServiceState& s = *static_cast<ServiceState*>(state);
  for (;;) {
    if (s.eventThreadStop) {
      Logger::log(LogLevel::kInfo, "ProcessRfidEventsThread stop testing");
      return nullptr;
    }
    s.eventQueue.waitASecond();
    for (;;) {
      if (s.eventThreadStop) {
        Logger::log(LogLevel::kInfo, "ProcessRfidEventsThread stop testing");
        return nullptr;
      }
      const std::optional<uint32_t> code = s.eventQueue.pop();
      if (!code) break;
      handleReaderEvent(s.readerHandle, *code);
    }
  }
}

void handleReaderEvent(ReaderHandle handle, uint32_t eventCode) {
  switch (eventCode) {
    case GPI_EVENT: {
      GpiEventData data{};
      if (RFID_GetEventData(handle, GPI_EVENT, &data) != RFID_API_SUCCESS) {
        consolePrint(L"SIGNALLED: GPI : No event Data\n");
      } else {
        const wchar_t* name = data.state < 3 ? kGpiStateNames[data.state] : kGpiStateNames[2];
        consolePrint(L"SIGNALLED: GPI %d : %ls\n", data.port, name);
      }
      break;
    }
    case TAG_READ_EVENT:
      drainTags(handle, true, nullptr);
      break;
    case BUFFER_FULL_WARNING_EVENT:
      countLibraryDiscards(handle, eventCode);
      drainTags(handle, false, L"SIGNALLED: BUFFER_FULL_WARNING_EVENT\n");
      break;
    case BUFFER_FULL_EVENT:
      countLibraryDiscards(handle, eventCode);
      drainTags(handle, false, L"SIGNALLED: BUFFER_FULL_EVENT\n");
      break;
    case ANTENNA_EVENT:
      consolePrint(L"SIGNALLED: ANTENNA_EVENT\n");
      break;
    case INVENTORY_START_EVENT:
      consolePrint(L"SIGNALLED: INVENTORY_START_EVENT\n");
      notify("INVENTORY_START_EVENT");
      break;
    case INVENTORY_STOP_EVENT:
      consolePrint(L"SIGNALLED: INVENTORY_STOP_EVENT\n");
      notify("INVENTORY_STOP_EVENT");
      break;
    case ACCESS_START_EVENT:
      consolePrint(L"SIGNALLED: ACCESS_START_EVENT\n");
      break;
    case ACCESS_STOP_EVENT:
      consolePrint(L"SIGNALLED: ACCESS_STOP_EVENT\n");
      break;
    case DISCONNECTION_EVENT:
      handleDisconnection(handle);
      break;
    default:
      consolePrint(L"Unknown/Unhandled event %d signalled\n", eventCode);
      break;
  }
}

void stopEventThread() {
  ServiceState& s = serviceState;
  s.eventThreadStop = true;
  s.eventThread.reset();
}

}  // namespace tessera
