// The relay's TCP/IP sends over a real socket whose buffers are kept small, so that the socket
// takes part of a batch: the rest must be kept and go out next, or reads are lost mid-report.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "modes/relay_batch.h"
#include "output/tcp_server.h"
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
  ASSERT_EQ(getsockname(s.tcpServer->listeningSocket(), reinterpret_cast<sockaddr*>(&address),
                        &length), 0);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  const int small = 4096;
  ASSERT_EQ(setsockopt(client, SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_GE(s.tcpServer->accept(), 0);
  ASSERT_EQ(setsockopt(s.tcpServer->clientSocket(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);

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

}  // namespace
}  // namespace tessera
