// src/state/service_state.h — the one process-wide record of everything that outlives a call.
// Each member names the thread(s) that write it and the lock, if any, that guards it. Members
// that are written by one thread and read by others without a lock are plain values by design:
// they change only at mode starts and stops, which the command thread serialises.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "config/config_records.h"
#include "state/event_queue.h"
#include "state/owned.h"
#include "state/read_ledger.h"
#include "state/relay_queue.h"
#include "state/usb_drive_file.h"
#include "spool/spool.h"
#include "readerapi/rfid_types.h"

namespace tessera {

// The channel objects and threads: owned here, defined by the layers above.
class DataChannel;
class EventThread;
class HTTPClient;
class MqttClient;
class TcpServer;

constexpr int kCommandClientSlots = 30;

struct ServiceState {
  // Start-up and shutdown.
  std::atomic<int> terminationSignal{0};  // signal handler writes; main thread reads
  int signalPipe[2] = {-1, -1};           // handler writes a byte; command loop wakes on it
  int ueventSocket = -1;                  // main thread (start-up); command loop reads

  // Command channel (main thread only).
  int commandListener = 0;
  int commandClients[kCommandClientSlots] = {};

  // Data channel: the thread writes the client descriptor; every thread that notifies reads it.
  std::atomic<int> dataChannelClientFd{-1};
  // Taken to send on dataChannelClientFd and to close or replace it, so that a descriptor is
  // never closed, and its number reused, while another thread is sending on it.
  std::mutex dataChannelSendLock;
  Owned<DataChannel> dataChannel;         // its thread and listener; main starts and stops it
  char macAddress[24] = "00:00:00:00:00:00";
  bool macAddressKnown = false;

  // Reader connection and mode flags: the command thread writes them (the event thread's
  // reconnect keeps the handle); every thread reads them with single loads.
  std::atomic<ReaderHandle> readerHandle{0};
  uint32_t antennaCount = 0;              // main thread
  std::atomic<bool> relayActive{false};
  std::atomic<bool> serialPushActive{false};
  std::atomic<bool> disconnectRequested{false};
  std::atomic<bool> suppressDisconnectEvent{false};  // event thread clears it after use
  std::atomic<int32_t> requestedRelayMode{-1};
  int32_t relayReaderPort = 5084;         // main thread
  uint8_t relayConnectOption = 0;         // main thread
  int32_t serialReaderPort = 5084;        // main thread
  uint8_t serialConnectOption = 0;        // main thread

  // Configuration records: written by their readers on the main thread before a mode starts,
  // read by the event thread and the relay worker while it runs.
  SerialPortConfig serialPortConfig;
  InventoryControlConfig inventoryControl;
  DataFormatConfig dataFormat;
  TcpIpConfig tcpIpConfig;
  HttpPostConfig httpPostConfig;
  MqttConfig mqttConfig;
  ReaderName readerName;
  RelayConfig relayConfig;
  CloudSettings cloudSettings;

  // The serial push's open port, -1 while closed: main opens and closes it, the event thread
  // writes to it and closes it after a failed write.
  std::atomic<int32_t> serialPortDescriptor{-1};

  // Tag read processing (event thread only).
  bool serialTxFull = false;              // "BUFFER_FULL_EVENT" sent and not yet cleared
  ReaderHandle apiDiscardHandle = 0;      // the handle whose own discards were last counted
  uint32_t apiDiscardSeen = 0;            // ... and how many of them were counted

  // Where every read went; every thread that moves reads updates it (it has its own lock).
  ReadLedger readLedger;

  // Relay hand-off between tag read processing (producer) and the relay worker (consumer); the
  // worker also sleeps on it between passes. Appends count in readLedger, declared above it.
  RelayQueue relayPending{readLedger};
  std::atomic<bool> inventoryPausedForBuffer{false};  // event thread sets, worker clears

  // Relay worker and its batch: the start (main) prepares them, the worker owns them while it
  // runs, the stop (main) releases them after the join.
  std::string relayBatch;
  uint64_t relayBatchReads = 0;           // tag records in relayBatch
  size_t relayBatchHeartbeat = std::string::npos;  // offset of relayBatch's heartbeat record
  // TCP/IP: a closed batch the client has not taken whole yet; sent on, from relayInFlightSent,
  // before anything newer, so that no JSON object is ever cut.
  std::string relayInFlight;
  size_t relayInFlightSent = 0;
  uint64_t relayInFlightReads = 0;
  std::string heartbeatRecord;
  // The outage spool (--spool): the relay worker writes and delivers, getStatistics reads its
  // counts, the start-up opens it. It has its own lock.
  spool::Spool spool;
  // The worker can put batches into the spool now: tag read processing then wakes the worker at
  // 70 KiB instead of pausing the inventory.
  std::atomic<bool> spoolAccepting{false};
  int64_t relayBatchSeq = -1;             // the open batch's number with the spool, else -1
  int64_t lastHeartbeat = 0;              // seconds of the wall clock; worker after start
  pthread_t relayThread{};
  bool relayThreadStarted = false;        // main thread
  std::atomic<bool> relayWorkerStop{false};  // stop sets it and wakes the worker
  Owned<TcpServer> tcpServer;             // relay's TCP/IP channel; see relayStart/relayStop

  // Event queue: reader API threads push, the event thread drains.
  EventQueue eventQueue;
  std::atomic<bool> eventThreadStop{false};  // cleanup writes; event thread polls
  Owned<EventThread> eventThread;         // its thread handle; main starts and stops it

  // ---- Relay output channels: HTTP POST client, USB HID keyboard, USB flash drive file ----
  // The relay start (main thread) creates the HTTP client, the relay worker posts through it, and
  // the relay stop (main, after joining the worker) or the worker's own fatal exit destroys it.
  Owned<HTTPClient> httpClient;
  // Likewise the MQTT client (relay mode 5), whose own network thread keeps the connection.
  Owned<MqttClient> mqttClient;
  // The relay start (main) switches the USB device port to the HID gadget and opens /dev/hidg0;
  // the worker types into it; the relay stop (main, after the join) or the worker's fatal exit
  // closes it and switches back.
  bool hidGadgetLoaded = false;
  int hidFd = -1;
  // The CSV file on the USB flash drive (usbDriveFd and usbDriveFileOpened) with its lock.
  UsbDriveFile usbDrive;

  ServiceState() = default;
  ServiceState(const ServiceState&) = delete;
  ServiceState& operator=(const ServiceState&) = delete;
  // Leaves the channel objects and threads alone: the exits on socket failures end the process
  // while the relay worker may still post or publish through them, and may run on the data
  // channel's own thread, which cannot join itself.
  ~ServiceState();
};

// The process-wide state, built before main.
extern ServiceState serviceState;

}  // namespace tessera
