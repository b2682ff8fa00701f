// The reader API against the reader simulator over loopback: connecting and refusals, each
// trigger kind, tag read contents, a dropped link and reconnection, antenna power and saving
// the configuration, back-pressure on a consumer that pauses, and readers that fall silent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "llrp/codec.h"
#include "llrp/vendor_extension.h"
#include "readerapi/rfid_api.h"
#include "readerapi/sim_process.h"

namespace tessera {
namespace {

using namespace std::chrono_literals;
using testing::connectLoopback;
using testing::Recorder;

class ReaderApiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (testing::SimProcess::binary().empty()) GTEST_SKIP() << "tessera-readersim is not built";
  }
  void TearDown() override {
    if (handle_ != 0) (void)RFID_Disconnect(handle_);
  }

  RfidStatus connect(ReaderHandle& h, int port) {
    return connectLoopback(h, port, 1000, 3, 3000, 3000);
  }
  // Connects handle_ to the running simulator and registers the recorder for every event.
  void open() {
    ASSERT_EQ(connect(handle_, sim_.llrpPort()), RFID_API_SUCCESS);
    ASSERT_EQ(rec_.listenTo(handle_), RFID_API_SUCCESS);
  }

  testing::SimProcess sim_;
  ReaderHandle handle_ = 0;
  Recorder rec_;
};

std::wstring lastErrorText(ReaderHandle h) {
  ErrorInfo info;
  EXPECT_EQ(RFID_GetLastErrorInfoW(h, &info), RFID_API_SUCCESS);
  return std::wstring(info.statusDesc) + L" | " + info.vendorMessage;
}

// The table translations themselves are checked in building_blocks_test.cc; this is the
// reader's own capabilities, power table and error texts reaching the caller over a real link.
TEST_F(ReaderApiTest, CapabilitiesPowerSavedConfigurationAndReaderErrors) {
  ASSERT_TRUE(sim_.start({"--antennas", "2", "--gpis", "2"}));
  open();
  ReaderCaps caps;
  ASSERT_EQ(RFID_GetReaderCapsW(handle_, &caps), RFID_API_SUCCESS);
  EXPECT_EQ(caps.numAntennas, 2);
  EXPECT_EQ(caps.manufacturerId, llrp::kVendorId);
  EXPECT_EQ(caps.numTransmitPowerLevels, 81);
  EXPECT_EQ(caps.transmitPowerLevels[0], 1000);
  EXPECT_EQ(caps.transmitPowerLevels[80], 3000);
  EXPECT_EQ(caps.transmitPowerIndexes[0], 1);

  uint16_t rx = 1, power = 1, freq = 1;
  ASSERT_EQ(RFID_GetAntennaConfig(handle_, 2, &rx, &power, &freq), RFID_API_SUCCESS);
  ASSERT_EQ(RFID_SetAntennaConfig(handle_, 2, rx, 41, freq), RFID_API_SUCCESS)
      << lastErrorText(handle_).c_str();
  uint16_t rx2 = 0, power2 = 0, freq2 = 0;
  ASSERT_EQ(RFID_GetAntennaConfig(handle_, 2, &rx2, &power2, &freq2), RFID_API_SUCCESS);
  EXPECT_EQ(std::tuple(rx2, power2, freq2), std::tuple(rx, uint16_t{41}, freq));
  EXPECT_NE(sim_.command("power").find("2=41"), std::string::npos);
  EXPECT_EQ(RFID_SetAntennaConfig(handle_, 2, rx, 500, freq), RFID_API_PARAM_OUT_OF_RANGE);
  EXPECT_EQ(RFID_GetAntennaConfig(handle_, 5, &rx, &power, &freq), RFID_API_PARAM_OUT_OF_RANGE);
  EXPECT_EQ(RFID_SaveLlrpConfig(handle_, nullptr), RFID_API_SUCCESS)
      << lastErrorText(handle_).c_str();
  EXPECT_EQ(sim_.stat("config_saves"), 1);

  TriggerRecord t;
  t.start.type = StartTriggerType::Gpi;
  t.start.gpiPort = 9;  // the reader has two inputs
  EXPECT_EQ(RFID_PerformInventory(handle_, nullptr, nullptr, &t, nullptr), RFID_API_READER_ERROR);
  ErrorInfo info;
  ASSERT_EQ(RFID_GetLastErrorInfoW(handle_, &info), RFID_API_SUCCESS);
  EXPECT_EQ(info.status, RFID_API_READER_ERROR);
  EXPECT_NE(info.llrpStatusCode, 0u);
  EXPECT_NE(std::wstring(info.vendorMessage).find(L"ADD_ROSPEC"), std::wstring::npos)
      << info.vendorMessage;
  // Nothing half-installed is left behind.
  EXPECT_EQ(sim_.command("rospecs"), "ok none");

  EXPECT_EQ(RFID_Disconnect(handle_), RFID_API_SUCCESS);
  EXPECT_EQ(RFID_Disconnect(handle_), RFID_API_INVALID_HANDLE);
  handle_ = 0;
}

TEST_F(ReaderApiTest, RefusedAndDeniedConnectionsGiveDistinctStatuses) {
  ASSERT_TRUE(sim_.start());
  // Nothing listens: take a free port and close it again.
  int closedPort = 0;
  ::close(testing::loopbackSocket(false, closedPort));
  ReaderHandle h = 0;
  EXPECT_EQ(connect(h, closedPort), RFID_CONNECTION_REFUSED);

  ASSERT_TRUE(sim_.ok("refuse 1"));
  EXPECT_EQ(connect(h, sim_.llrpPort()), RFID_CONNECTION_REFUSED) << lastErrorText(0).c_str();
  ASSERT_TRUE(sim_.ok("deny 1"));
  EXPECT_EQ(connect(h, sim_.llrpPort()), RFID_CONNECTION_DENIED);
  EXPECT_EQ(h, 0u);

  // The reader still takes a client afterwards, and turns a second one away without
  // disturbing the first.
  open();
  ReaderHandle second = 77;
  EXPECT_EQ(connect(second, sim_.llrpPort()), RFID_CONNECTION_DENIED);
  EXPECT_EQ(second, 0u);
  EXPECT_NE(lastErrorText(0).find(L"ConnectionAttemptEvent status"), std::wstring::npos);
  uint16_t rx, power, freq;
  EXPECT_EQ(RFID_GetAntennaConfig(handle_, 1, &rx, &power, &freq), RFID_API_SUCCESS);
}

TEST_F(ReaderApiTest, EveryTriggerKindStartsAndStops) {
  ASSERT_TRUE(sim_.start());
  open();
  using Start = StartTriggerType;
  using Stop = StopTriggerType;
  const struct {
    const char* name;
    Start start;
    Stop stop;
    const char* startCommand;  // control command that starts it, or null
    const char* stopCommand;   // control command that stops it, or null
    uint32_t starts;           // start events to wait for
  } cases[] = {
      {"immediate/duration", Start::Immediate, Stop::Duration, nullptr, nullptr, 1},
      {"periodic/duration", Start::Periodic, Stop::Duration, nullptr, nullptr, 2},
      {"gpi/gpi", Start::Gpi, Stop::Gpi, "gpi 1 1", "gpi 2 1", 1},
      {"immediate/tags", Start::Immediate, Stop::TagCount, nullptr, nullptr, 1},
      {"immediate/rounds", Start::Immediate, Stop::RoundCount, nullptr, nullptr, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    rec_.reset();
    TriggerRecord t;
    t.start.type = c.start;
    t.start.periodMs = 400;
    t.start.gpiPort = 1;
    t.stop.type = c.stop;
    t.stop.durationMs = 150;
    t.stop.gpiPort = 2;
    t.stop.tagCount = 5;
    t.stop.roundCount = 2;
    t.tagReportTrigger = 1;
    ASSERT_EQ(RFID_PerformInventory(handle_, nullptr, nullptr, &t, nullptr), RFID_API_SUCCESS)
        << lastErrorText(handle_).c_str();
    if (c.startCommand != nullptr) {
      EXPECT_EQ(rec_.count(INVENTORY_START_EVENT), 0u);
      ASSERT_TRUE(sim_.ok(c.startCommand));
      ASSERT_TRUE(rec_.waitEvent(GPI_EVENT, 1));
      GpiEventData gpi;
      ASSERT_EQ(RFID_GetEventData(handle_, GPI_EVENT, &gpi), RFID_API_SUCCESS);
      EXPECT_EQ(gpi.port, 1);
      EXPECT_EQ(gpi.state, GPI_PORT_STATE_HIGH);
    }
    ASSERT_TRUE(rec_.waitEvent(INVENTORY_START_EVENT, c.starts));
    ASSERT_TRUE(rec_.waitReads(1));
    if (c.stopCommand != nullptr) {
      ASSERT_TRUE(sim_.ok(c.stopCommand));
    }
    ASSERT_TRUE(rec_.waitEvent(INVENTORY_STOP_EVENT, c.starts));
    InventoryEventData inv;
    ASSERT_EQ(RFID_GetEventData(handle_, INVENTORY_STOP_EVENT, &inv), RFID_API_SUCCESS);
    EXPECT_NE(inv.roSpecId, 0u);
    EXPECT_EQ(RFID_StopInventory(handle_), RFID_API_SUCCESS);
    if (c.startCommand != nullptr) {
      ASSERT_TRUE(sim_.ok("gpi 1 0") && sim_.ok("gpi 2 0"));
    }
  }
  EXPECT_EQ(sim_.command("rospecs"), "ok none");
}

TEST_F(ReaderApiTest, AntennaListAndPreFilterChooseWhatIsRead) {
  char path[] = "/tmp/rapi-epcs-XXXXXX";
  ::close(::mkstemp(path));
  std::ofstream(path) << "E28011606000020000000001\n300833B2DDD9014000000002\n";
  const bool started = sim_.start({"--epc-file", path});
  ::unlink(path);  // read at start
  ASSERT_TRUE(started);
  rec_.drain = false;  // the test takes the reads itself, to look at every one
  open();
  const uint8_t pattern[] = {0x30, 0x08};
  PreFilter f;  // in the EPC bank
  f.pattern = pattern;
  f.patternBitCount = 16;
  f.bitOffset = 32;
  f.stateUnawareAction = 0;
  uint32_t index = 0;
  ASSERT_EQ(RFID_AddPreFilter(handle_, 0, &f, &index), RFID_API_SUCCESS);
  EXPECT_NE(index, 0u);
  const uint16_t ids[] = {3}, bad[] = {9};
  AntennaInfo antennas{ids, 1}, badAntennas{bad, 1};
  ASSERT_EQ(RFID_PerformInventory(handle_, nullptr, &antennas, nullptr, nullptr), RFID_API_SUCCESS);
  ASSERT_TRUE(rec_.waitEvent(TAG_READ_EVENT, 20));
  EXPECT_EQ(RFID_StopInventory(handle_), RFID_API_SUCCESS);
  int reads = 0;
  for (ReaderTagData t; RFID_GetReadTag(handle_, &t) == RFID_API_SUCCESS; ++reads) {
    ASSERT_EQ(t.antennaID, 3) << "read " << reads;
    ASSERT_EQ(t.tagID[0], 0x30) << "read " << reads;
    ASSERT_EQ(t.tagID[11], 0x02) << "read " << reads;
  }
  EXPECT_GE(reads, 20);
  EXPECT_EQ(RFID_DeletePreFilter(handle_, 0, index), RFID_API_SUCCESS);
  EXPECT_EQ(RFID_DeletePreFilter(handle_, 0, index), RFID_API_PARAM_OUT_OF_RANGE);
  EXPECT_EQ(RFID_DeletePreFilter(handle_, 0, 0), RFID_API_SUCCESS);
  EXPECT_EQ(RFID_PerformInventory(handle_, nullptr, &badAntennas, nullptr, nullptr),
            RFID_API_PARAM_OUT_OF_RANGE);
}

TEST_F(ReaderApiTest, DroppedLinkIsReportedAndReconnectResumesReading) {
  ASSERT_TRUE(sim_.start());
  rec_.tryRequest = true;  // a callback may drain reads but not wait for the reader
  open();
  SingulationControl sc;
  ASSERT_EQ(RFID_GetSingulationControl(handle_, 1, &sc), RFID_API_SUCCESS);
  sc.session = 2;
  ASSERT_EQ(RFID_SetSingulationControl(handle_, 0, &sc), RFID_API_SUCCESS);
  ASSERT_EQ(RFID_PerformInventory(handle_, nullptr, nullptr, nullptr, nullptr), RFID_API_SUCCESS);
  ASSERT_TRUE(rec_.waitReads(10));
  rec_.tryRequest = false;
  EXPECT_EQ(rec_.requestFromCallback, RFID_API_CALLBACK_CONTEXT);
  ASSERT_TRUE(sim_.ok("drop"));
  ASSERT_TRUE(rec_.waitEvent(DISCONNECTION_EVENT, 1));
  DisconnectionEventData d;
  ASSERT_EQ(RFID_GetEventData(handle_, DISCONNECTION_EVENT, &d), RFID_API_SUCCESS);
  EXPECT_EQ(d.reason, CONNECTION_LOST);
  uint16_t rx, power, freq;
  EXPECT_EQ(RFID_GetAntennaConfig(handle_, 1, &rx, &power, &freq), RFID_API_NOT_CONNECTED);

  const ReaderHandle before = handle_;
  ASSERT_EQ(RFID_Reconnect(handle_), RFID_API_SUCCESS) << lastErrorText(handle_).c_str();
  EXPECT_EQ(handle_, before);
  // Drain what came before the drop, then count only new reads.
  for (ReaderTagData t; RFID_GetReadTag(handle_, &t) == RFID_API_SUCCESS;) {
  }
  rec_.reset();
  EXPECT_TRUE(rec_.waitReads(10));
  const std::string rospecs = sim_.command("rospecs");
  EXPECT_NE(rospecs.find("=Active"), std::string::npos) << rospecs;
  ASSERT_EQ(RFID_GetSingulationControl(handle_, 3, &sc), RFID_API_SUCCESS);
  EXPECT_EQ(sc.session, 2u);
}

// A consumer that stops taking reads holds the reader back through TCP instead of losing reads:
// keepalives and the stop's reply are still found behind the waiting reports, and once the
// consumer drains, every read the reader sent arrives.
TEST_F(ReaderApiTest, APausedConsumerHoldsTheReaderBackAndLosesNothing) {
  ASSERT_TRUE(sim_.start({"--rate", "3000"}));
  rec_.drain = false;  // the paused consumer
  open();
  TagStorageSettings s;
  ASSERT_EQ(RFID_GetTagStorageSettings(handle_, &s), RFID_API_SUCCESS);
  s.maxTagCount = 100;
  ASSERT_EQ(RFID_SetTagStorageSettings(handle_, &s), RFID_API_SUCCESS);
  ASSERT_EQ(RFID_PerformInventory(handle_, nullptr, nullptr, nullptr, nullptr), RFID_API_SUCCESS);
  // Four keepalive periods: the reader hangs up after three unanswered ones.
  const long acksBefore = sim_.stat("keepalive_acks");
  std::this_thread::sleep_for(4500ms);
  EXPECT_GE(sim_.stat("keepalive_acks") - acksBefore, 3);
  EXPECT_EQ(sim_.stat("keepalive_timeouts"), 0);
  ASSERT_EQ(RFID_StopInventory(handle_), RFID_API_SUCCESS) << lastErrorText(handle_).c_str();
  const long sent = sim_.stat("reads_sent");
  EXPECT_GT(sent, 100);
  long taken = 0;
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  for (ReaderTagData t; taken < sent && std::chrono::steady_clock::now() < deadline;) {
    if (RFID_GetReadTag(handle_, &t) == RFID_API_SUCCESS) {
      ++taken;
    } else {
      std::this_thread::sleep_for(1ms);
    }
  }
  EXPECT_EQ(taken, sent);
  EXPECT_EQ(sim_.stat("reads_dropped"), 0);
  EXPECT_EQ(rec_.count(BUFFER_FULL_WARNING_EVENT), 0u);
  EXPECT_EQ(rec_.count(BUFFER_FULL_EVENT), 0u);
  EXPECT_EQ(rec_.count(DISCONNECTION_EVENT), 0u);
}

// The paths no real reader shows on demand: a request nobody answers, from a peer that greets
// and then falls silent; a listener that never greets; and a link that dies without TCP
// noticing, from a frozen simulator.
using SilentReader = ReaderApiTest;
TEST_F(SilentReader, AnUnansweredRequestOrMissingKeepalivesEndTheConnection) {
  llrp::ReaderEventNotification hello;
  hello.readerEventNotificationData.connectionAttemptEvent = llrp::ConnectionAttemptEvent{};
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(llrp::encode(llrp::Message{0, hello}, bytes).ok());
  int port = 0, peer = -1;
  const int listener = testing::loopbackSocket(true, port);
  std::thread greeter([&] {
    pollfd p{listener, POLLIN, 0};
    if (::poll(&p, 1, 5000) == 1) peer = ::accept(listener, nullptr, nullptr);
    (void)::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  });
  ReaderHandle h = 5;
  EXPECT_EQ(connectLoopback(h, port, 200, 2, 300, 1000), RFID_API_COMMAND_TIMEOUT);
  greeter.join();
  EXPECT_EQ(h, 0u);
  EXPECT_EQ(lastErrorText(0), L"no answer from the reader within 300 ms | GET_READER_CAPABILITIES");
  // With nobody to accept it now, the next connection waits in the kernel's queue, unspoken to.
  EXPECT_EQ(connectLoopback(h, port, 200, 2, 300, 300), RFID_CONNECTION_TIMEOUT);
  EXPECT_NE(lastErrorText(0).find(L"no ConnectionAttemptEvent"), std::wstring::npos);
  ::close(peer);
  ::close(listener);

  ASSERT_TRUE(sim_.start());
  ASSERT_EQ(connectLoopback(handle_, sim_.llrpPort(), 200, 2, 300, 1000), RFID_API_SUCCESS);
  ASSERT_EQ(rec_.listenTo(handle_), RFID_API_SUCCESS);
  sim_.freeze(true);  // the TCP connection stays up; no keepalive ever comes
  ASSERT_TRUE(rec_.waitEvent(DISCONNECTION_EVENT, 1));
  sim_.freeze(false);
  DisconnectionEventData d;
  ASSERT_EQ(RFID_GetEventData(handle_, DISCONNECTION_EVENT, &d), RFID_API_SUCCESS);
  EXPECT_EQ(d.reason, CONNECTION_LOST);
  EXPECT_THAT(lastErrorText(handle_),
              ::testing::EndsWith(L"| no keepalive from the reader for 400 ms"));
  EXPECT_EQ(RFID_StopInventory(handle_), RFID_API_NOT_CONNECTED);
  EXPECT_EQ(RFID_Disconnect(handle_), RFID_API_SUCCESS);
  handle_ = 0;
}

}  // namespace
}  // namespace tessera
