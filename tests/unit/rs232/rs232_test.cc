// The serial port library on real pseudo-terminals: the test holds the master side and plays the
// device at the far end of the line.
#include "rs232/rs232.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

namespace tessera {
namespace {

// The words are copied as strncpy would: one that fills its field has no terminator, which some
// cases need.
SerialSettings settings(int32_t baud, int32_t dataBits, const char* parity, int32_t stopBits,
                        const char* flow) {
  SerialSettings s{baud, dataBits, {}, stopBits, {}};
  std::memcpy(s.Parity, parity, std::min(std::strlen(parity), sizeof s.Parity));
  std::memcpy(s.Flowcontrol, flow, std::min(std::strlen(flow), sizeof s.Flowcontrol));
  return s;
}

// A pseudo-terminal pair: the library opens and configures the slave by its path, closed at
// the end of the test.
class Rs232Test : public ::testing::Test {
 protected:
  void SetUp() override {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    char name[64] = {};
    ASSERT_TRUE(master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0 &&
                ptsname_r(master_, name, sizeof name) == 0);
    handle_ = RS232_open(name, 0);
    ASSERT_GE(handle_, 0) << RS232_statusText(handle_);
  }
  void TearDown() override {
    if (handle_ >= 0) {
      EXPECT_EQ(RS232_close(handle_), 0);
    }
    closeMaster();
  }
  void configure(const SerialSettings& s) { ASSERT_EQ(RS232_configure(handle_, s), 0); }
  void closeMaster() {
    if (master_ >= 0) ::close(master_);
    master_ = -1;
  }

  // Reads on the master until `want` bytes came or nothing came for timeoutMs; sleeps pauseMs
  // between reads. With SIZE_MAX it takes whatever has arrived so far.
  std::string read(size_t want, int timeoutMs = 2000, size_t chunk = 4096, int pauseMs = 0) {
    std::string got;
    char buffer[4096];
    while (got.size() < want) {
      pollfd wait{master_, POLLIN, 0};
      if (poll(&wait, 1, timeoutMs) <= 0) break;
      ssize_t n = ::read(master_, buffer, std::min({chunk, sizeof buffer, want - got.size()}));
      if (n <= 0) break;
      got.append(buffer, static_cast<size_t>(n));
      if (pauseMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
    }
    return got;
  }

  int master_ = -1;
  int handle_ = -1;
};

std::string pattern(size_t length) {
  std::string text(length, '\0');
  for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>('!' + i % 90);
  return text;
}

// Accepted settings reach the line. A pseudo-terminal forces 8 bits without parity, but keeps
// the speed, the parity kind bits, stop bits and flow control as set, so those show which word
// was understood. Refused ones name their field.
TEST_F(Rs232Test, SettingsReachTheLineOrNameTheRefusedField) {
  const struct {
    SerialSettings s;
    int status;
    speed_t speed;
    tcflag_t cflag;  // of PARODD | CMSPAR | CSTOPB | CRTSCTS
    tcflag_t iflag;  // of IXON | IXOFF
  } cases[] = {
      {settings(50, 8, "", 1, ""), 0, B50, 0, 0},
      {settings(4000000, 7, "ODD", 2, "none"), 0, B4000000, PARODD | CSTOPB, 0},
      {settings(576000, 6, "even", 1, "None"), 0, B576000, 0, 0},
      {settings(9600, 5, "Mark", 2, "None"), 0, B9600, PARODD | CMSPAR | CSTOPB, 0},
      {settings(9600, 8, "Space", 1, "None"), 0, B9600, CMSPAR, 0},
      {settings(9600, 8, "o", 1, "RTS/CTS"), 0, B9600, PARODD | CRTSCTS, 0},
      {settings(9600, 8, "m", 1, "Hardware"), 0, B9600, PARODD | CMSPAR | CRTSCTS, 0},
      {settings(9600, 8, "S", 1, "rtscts"), 0, B9600, CMSPAR | CRTSCTS, 0},
      {settings(9600, 8, "E", 1, "RTS-CTS"), 0, B9600, CRTSCTS, 0},
      {settings(9600, 8, "Odd", 1, "RTS_CTS"), 0, B9600, PARODD | CRTSCTS, 0},
      {settings(9600, 8, "Even", 1, "XON/XOFF"), 0, B9600, 0, IXON | IXOFF},
      {settings(9600, 8, "None", 1, "xonxoff"), 0, B9600, 0, IXON | IXOFF},
      {settings(9600, 8, "None", 1, "XON-XOFF"), 0, B9600, 0, IXON | IXOFF},
      {settings(9600, 8, "N", 1, "XON_XOFF"), 0, B9600, 0, IXON | IXOFF},
      {settings(9600, 8, "None", 2, "Software"), 0, B9600, CSTOPB, IXON | IXOFF},
      {settings(9600, 8, "None", 1, "None"), 0, B9600, 0, 0},  // back from flow control to none
      {settings(9601, 8, "None", 1, "None"), RS232_ERR_BAUD, 0, 0, 0},
      {settings(-9600, 8, "None", 1, "None"), RS232_ERR_BAUD, 0, 0, 0},
      {settings(60, 8, "None", 1, "None"), RS232_ERR_BAUD, 0, 0, 0},  // "9600" cut by the reader
      {settings(9600, 4, "None", 1, "None"), RS232_ERR_DATABITS, 0, 0, 0},
      {settings(9600, 9, "None", 1, "None"), RS232_ERR_DATABITS, 0, 0, 0},
      {settings(9600, 8, "None ", 1, "None"), RS232_ERR_PARITY, 0, 0, 0},
      {settings(9600, 8, "Oddity", 1, "None"), RS232_ERR_PARITY, 0, 0, 0},
      {settings(9600, 8, "NoneNoneNone", 1, "None"), RS232_ERR_PARITY, 0, 0, 0},  // no NUL
      {settings(9600, 8, "None", 0, "None"), RS232_ERR_STOPBITS, 0, 0, 0},
      {settings(9600, 8, "None", 3, "None"), RS232_ERR_STOPBITS, 0, 0, 0},
      {settings(9600, 8, "None", 1, "RTS"), RS232_ERR_FLOW, 0, 0, 0},
      {settings(9600, 8, "None", 1, "CTS/RTS"), RS232_ERR_FLOW, 0, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.s.Baudrate) + " " + std::to_string(c.s.Databits) + " " +
                 std::string(c.s.Parity, strnlen(c.s.Parity, sizeof c.s.Parity)) + " " +
                 std::to_string(c.s.Stopbits) + " " + c.s.Flowcontrol);
    ASSERT_EQ(RS232_configure(handle_, c.s), c.status);
    if (c.status != 0) continue;
    termios line{};
    ASSERT_EQ(tcgetattr(handle_, &line), 0);
    EXPECT_EQ(cfgetospeed(&line), c.speed);
    EXPECT_EQ(cfgetispeed(&line), c.speed);
    EXPECT_EQ(line.c_cflag & (PARODD | CMSPAR | CSTOPB | CRTSCTS), c.cflag);
    EXPECT_EQ(line.c_iflag & (IXON | IXOFF | IXANY), c.iflag);
    EXPECT_EQ(line.c_cflag & (CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));
    EXPECT_EQ(line.c_oflag & OPOST, 0u);
    EXPECT_EQ(line.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
  }
  EXPECT_EQ(RS232_configure(-1, settings(9600, 8, "None", 1, "None")), RS232_ERR_HANDLE);
}

TEST(Rs232Open, RefusesWhatIsNotATerminal) {
  EXPECT_EQ(RS232_open("/nonexistent/ttyS2", 0), RS232_ERR_OPEN);
  EXPECT_EQ(RS232_open("/dev/null", 0), RS232_ERR_NOT_TTY);
  EXPECT_EQ(RS232_open(nullptr, 0), RS232_ERR_ARGUMENT);
}

TEST_F(Rs232Test, TextArrivesWholeAndInOrderAndCloseKeepsUnreadBytes) {
  configure(settings(115200, 8, "None", 1, "XON/XOFF"));
  const std::string text = "EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n\x01\x11\x13\x7f\xff\n\r";
  EXPECT_GE(RS232_write(handle_, text.c_str()), 0);
  EXPECT_EQ(read(text.size()), text);
  // Far more than a pseudo-terminal buffers, so the write is taken in many pieces.
  const std::string longText = pattern(64 * 1024);
  std::string received;
  std::thread reader([&] { received = read(longText.size(), 5000, 512, 1); });
  int result = RS232_write(handle_, longText.c_str());
  reader.join();
  EXPECT_GE(result, 0) << RS232_statusText(result);
  ASSERT_EQ(received.size(), longText.size());
  EXPECT_TRUE(received == longText);

  EXPECT_GE(RS232_write(handle_, ""), 0);
  EXPECT_EQ(RS232_write(handle_, nullptr), RS232_ERR_ARGUMENT);
  EXPECT_EQ(RS232_write(-1, "x"), RS232_ERR_HANDLE);
  EXPECT_GE(RS232_write(handle_, "last record\r\n"), 0);
  EXPECT_EQ(RS232_close(handle_), 0);
  EXPECT_EQ(RS232_close(handle_), RS232_ERR_HANDLE);  // safe twice
  EXPECT_EQ(RS232_close(-1), RS232_ERR_HANDLE);
  handle_ = -1;
  EXPECT_EQ(read(13), "last record\r\n");
}

TEST_F(Rs232Test, WriteGivesUpWhenThePeerStopsReadingAndFailsWhenItHangsUp) {
  configure(settings(115200, 8, "None", 1, "None"));
  const std::string text = pattern(64 * 1024);
  EXPECT_EQ(RS232_write(handle_, text.c_str(), 100), RS232_ERR_TIMEOUT);
  EXPECT_EQ(RS232_write(handle_, "more", 100), RS232_ERR_TIMEOUT);
  // The port stays usable once the peer reads again; what was taken arrives uncut and in order.
  std::string arrived = read(SIZE_MAX, 50);
  ASSERT_FALSE(arrived.empty());
  EXPECT_TRUE(arrived == text.substr(0, arrived.size()));
  EXPECT_GE(RS232_write(handle_, "again\r\n", 100), 0);
  EXPECT_EQ(read(SIZE_MAX, 50), "again\r\n");
  closeMaster();
  EXPECT_EQ(RS232_write(handle_, "lost\r\n", 100), RS232_ERR_WRITE);
}

TEST_F(Rs232Test, XoffHoldsOutputUntilXon) {
  configure(settings(9600, 8, "None", 1, "Software"));
  const char xoff = 0x13, xon = 0x11;
  ASSERT_EQ(::write(master_, &xoff, 1), 1);
  // The XOFF is taken by the line a moment later; until then writes still go through.
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  int status = 0;
  while (status >= 0 && std::chrono::steady_clock::now() < giveUp) {
    status = RS232_write(handle_, "x", 50);
  }
  EXPECT_EQ(status, RS232_ERR_TIMEOUT);
  read(SIZE_MAX, 50);
  ASSERT_EQ(::write(master_, &xon, 1), 1);
  EXPECT_GE(RS232_write(handle_, "resumed", 2000), 0);
  EXPECT_EQ(read(7), "resumed");
}

}  // namespace
}  // namespace tessera
