// Output over real sockets.
//
// The relay's TCP/IP sends over a socket whose buffers are kept small, so that the socket takes
// part of a batch: the rest must be kept and go out next, or reads are lost mid-report.
//
// The serial push tells the data channel when the line's transmit queue fills and when it has
// drained, so that the management software can pause and resume. A socket stands in for the
// line: its queue of unread bytes answers the same query a serial port's does.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "modes/relay_batch.h"
#include "output/tcp_server.h"
#include "reader/tag_processing.h"
#include "state/service_state.h"

namespace tessera {
namespace {

TEST(TcpIpSend, APartSentIsKeptUntilTheRestHasGone) {
  ServiceState s;
  s.tcpServer = makeOwned<TcpServer>(0);
  ASSERT_EQ(s.tcpServer->bind(), 0);
  ASSERT_EQ(s.tcpServer->listen(), 0);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  ASSERT_EQ(
      getsockname(s.tcpServer->listeningSocket(), reinterpret_cast<sockaddr*>(&address), &length),
      0);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  const int small = 4096;
  ASSERT_EQ(setsockopt(client, SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_GE(s.tcpServer->accept(), 0);
  ASSERT_EQ(setsockopt(s.tcpServer->clientSocket(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small),
            0);

  std::string batch(1 << 20, 'x');
  for (size_t i = 0; i < batch.size(); i += 97) batch[i] = static_cast<char>('a' + i % 26);
  size_t sent = 0;
  ASSERT_EQ(sendPiece(s, batch, sent), SendResult::kPartial);
  EXPECT_GT(sent, 0u);
  EXPECT_LT(sent, batch.size());

  std::string received;
  char buffer[65536];
  SendResult result = SendResult::kPartial;
  // Bounded, so that a send that stops short fails the test instead of hanging it.
  for (int pass = 0; received.size() < batch.size() && pass < 10000000; ++pass) {
    if (result != SendResult::kDelivered) result = sendPiece(s, batch, sent);
    ASSERT_NE(result, SendResult::kFailed);
    const ssize_t n = recv(client, buffer, sizeof buffer, MSG_DONTWAIT);
    if (n > 0) received.append(buffer, static_cast<size_t>(n));
  }
  EXPECT_EQ(result, SendResult::kDelivered);
  EXPECT_EQ(sent, batch.size());
  EXPECT_TRUE(received == batch);
  close(client);
  s.tcpServer->closeServer();
  s.tcpServer.reset();
}

// Every NUL-terminated notice the data channel has been sent so far.
std::string notices(int fd) {
  std::string text;
  char buffer[4096];
  ssize_t n;
  while ((n = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT)) > 0) text.append(buffer, n);
  return text;
}

TEST(SerialPush, AFullLineAndItsDrainingAreBothAnnounced) {
  int line[2], channel[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, line), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, channel), 0);
  ServiceState& s = serviceState;
  s.serialPortDescriptor = line[0];
  s.dataChannelClientFd = channel[0];
  s.serialPushActive = true;
  ReaderTagData tag;
  tag.tagIDLength = 12;
  tag.antennaID = 1;

  // Nobody reads the line: the queue passes the limit after a few dozen records.
  std::string seen;
  for (int i = 0; i < 1000 && seen.empty(); ++i) {
    processTagRead(&tag);
    seen = notices(channel[1]);
  }
  EXPECT_EQ(seen, std::string("BUFFER_FULL_EVENT", 18));

  char drain[65536];
  while (recv(line[1], drain, sizeof drain, MSG_DONTWAIT) > 0) {
  }
  processTagRead(&tag);
  EXPECT_EQ(notices(channel[1]), std::string("BUFFER_FULL_EVENT_CLEARED", 26));
  processTagRead(&tag);
  EXPECT_EQ(notices(channel[1]), "");  // announced once, not per record

  s.serialPushActive = false;
  s.serialPortDescriptor = -1;
  s.dataChannelClientFd = -1;
  s.serialTxFull = false;
  for (int fd : {line[0], line[1], channel[0], channel[1]}) close(fd);
}

}  // namespace
}  // namespace tessera
