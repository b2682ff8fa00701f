// A scripted LLRP peer that greets and then falls silent, for the paths no real reader shows on
// demand: a request nobody answers, and a link that dies without TCP noticing.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "llrp/codec.h"
#include "llrp/framer.h"
#include "readerapi/rfid_api.h"
#include "readerapi/sim_process.h"

namespace tessera {
namespace {

// Listens on a free loopback port; each client in turn gets a greeting and, while answering is
// on, a success reply to every request until it leaves or the peer stops.
class ScriptedPeer {
 public:
  explicit ScriptedPeer(bool answer) : answer_(answer) {
    int port = 0;
    listen_ = testing::loopbackSocket(true, port);
    EXPECT_GE(listen_, 0);
    port_ = static_cast<uint32_t>(port);
    thread_ = std::thread([this] { run(); });
  }
  ~ScriptedPeer() {
    stop_ = true;
    thread_.join();
    ::close(listen_);
  }
  uint32_t port() const { return port_; }
  void answer(bool on) { answer_ = on; }

 private:
  static void send(int fd, llrp::MessageBody body, uint32_t id) {
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(llrp::encode(llrp::Message{id, std::move(body)}, bytes).ok());
    ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }

  void run() {
    while (!stop_) {
      pollfd p{listen_, POLLIN, 0};
      if (::poll(&p, 1, 50) == 1) serve(::accept(listen_, nullptr, nullptr));
    }
  }

  void serve(int fd) {
    llrp::ReaderEventNotification hello;
    hello.readerEventNotificationData.connectionAttemptEvent = llrp::ConnectionAttemptEvent{};
    send(fd, hello, 0);
    llrp::Framer framer;
    std::vector<uint8_t> frame;
    uint8_t buf[4096];
    while (!stop_) {
      pollfd q{fd, POLLIN, 0};
      if (::poll(&q, 1, 50) <= 0) continue;
      ssize_t n = ::recv(fd, buf, sizeof buf, 0);
      if (n <= 0) break;
      (void)framer.feed(std::span<const uint8_t>(buf, static_cast<size_t>(n)));
      while (framer.pop(frame) == 1) {
        llrp::Message m;
        if (!llrp::decode(frame, m).ok() || !answer_) continue;
        if (std::holds_alternative<llrp::GetReaderCapabilities>(m.body)) {
          llrp::GetReaderCapabilitiesResponse r;
          llrp::GeneralDeviceCapabilities g;
          g.maxNumberOfAntennaSupported = 1;
          g.receiveSensitivityTable.push_back({1, 0});
          g.perAntennaAirProtocols.push_back({1, {llrp::AirProtocol::kEPCGlobalClass1Gen2}});
          r.generalDeviceCapabilities = g;
          send(fd, r, m.id);
        } else if (std::holds_alternative<llrp::DeleteROSpec>(m.body)) {
          send(fd, llrp::DeleteROSpecResponse{}, m.id);
        } else if (std::holds_alternative<llrp::DeleteAccessSpec>(m.body)) {
          send(fd, llrp::DeleteAccessSpecResponse{}, m.id);
        } else if (std::holds_alternative<llrp::SetReaderConfig>(m.body)) {
          send(fd, llrp::SetReaderConfigResponse{}, m.id);
        } else if (std::holds_alternative<llrp::GetReaderConfig>(m.body)) {
          send(fd, llrp::GetReaderConfigResponse{}, m.id);
        }
      }
    }
    ::close(fd);
  }

  int listen_ = -1;
  uint32_t port_ = 0;
  std::atomic<bool> answer_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

ConnectionOptions quickOptions(ConnectionSettings& s) {
  s.flags = kConnectionUseSettings;
  s.keepaliveMs = 200;
  s.keepaliveMisses = 2;
  s.responseTimeoutMs = 300;
  s.greetingTimeoutMs = 1000;
  ConnectionOptions o;
  o.settings = &s;
  return o;
}

TEST(SilentReader, AnUnansweredRequestOrMissingKeepalivesEndTheConnection) {
  ScriptedPeer peer(false);
  ConnectionSettings s;
  ConnectionOptions o = quickOptions(s);
  ReaderHandle h = 5;
  EXPECT_EQ(RFID_ConnectW(&h, L"127.0.0.1", peer.port(), 0, &o), RFID_API_COMMAND_TIMEOUT);
  EXPECT_EQ(h, 0u);
  ErrorInfo info;
  ASSERT_EQ(RFID_GetLastErrorInfoW(0, &info), RFID_API_SUCCESS);
  EXPECT_STREQ(info.statusDesc, L"no answer from the reader within 300 ms");
  EXPECT_STREQ(info.vendorMessage, L"GET_READER_CAPABILITIES");

  peer.answer(true);
  h = 0;
  ASSERT_EQ(RFID_ConnectW(&h, L"127.0.0.1", peer.port(), 0, &o), RFID_API_SUCCESS);
  testing::Recorder rec;
  ASSERT_EQ(RFID_RegisterEventNotificationCallback(h, testing::kAllEvents, 12, nullptr,
                                                   &testing::Recorder::onEvent, &rec),
            RFID_API_SUCCESS);
  peer.answer(false);  // the TCP connection stays up; no keepalive ever comes
  ASSERT_TRUE(rec.waitEvent(DISCONNECTION_EVENT, 1));
  DisconnectionEventData d;
  ASSERT_EQ(RFID_GetEventData(h, DISCONNECTION_EVENT, &d), RFID_API_SUCCESS);
  EXPECT_EQ(d.reason, CONNECTION_LOST);
  ASSERT_EQ(RFID_GetLastErrorInfoW(h, &info), RFID_API_SUCCESS);
  EXPECT_STREQ(info.vendorMessage, L"no keepalive from the reader for 400 ms");
  EXPECT_EQ(RFID_StopInventory(h), RFID_API_NOT_CONNECTED);
  EXPECT_EQ(RFID_Disconnect(h), RFID_API_SUCCESS);
}

}  // namespace
}  // namespace tessera
