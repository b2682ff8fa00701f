// The serial push tells the data channel when the line's transmit queue fills and when it has
// drained, so that the management software can pause and resume. A socket stands in for the
// line: its queue of unread bytes answers the same query a serial port's does.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "reader/tag_processing.h"
#include "state/service_state.h"

namespace tessera {
namespace {

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
