#include "rs232/rs232.h"

#include <fcntl.h>
#include <poll.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace tessera {
namespace {

// While waiting for room, re-try the write at least this often: a UART reports "writable" only
// once its queue has fallen below 256 bytes, long after the first byte of room appears.
constexpr int kWaitSliceMs = 20;
// Unix98 pseudo-terminal slaves use majors 136 to 143.
constexpr unsigned kPtySlaveMajorFirst = 136;
constexpr unsigned kPtySlaveMajorLast = 143;

struct SpeedEntry {
  int32_t baud;
  speed_t code;
};

constexpr SpeedEntry kSpeeds[] = {
    {50, B50},         {75, B75},         {110, B110},       {134, B134},
    {150, B150},       {200, B200},       {300, B300},       {600, B600},
    {1200, B1200},     {1800, B1800},     {2400, B2400},     {4800, B4800},
    {9600, B9600},     {19200, B19200},   {38400, B38400},   {57600, B57600},
    {115200, B115200}, {230400, B230400}, {460800, B460800}, {500000, B500000},
    {576000, B576000}, {921600, B921600}, {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000},
};

struct Framing {
  tcflag_t cflag = 0;  // CSIZE, PARENB, PARODD, CMSPAR, CSTOPB, CRTSCTS bits to set
  tcflag_t iflag = 0;  // IXON, IXOFF bits to set
};

constexpr tcflag_t kFramingMask = CSIZE | PARENB | PARODD | CMSPAR;
constexpr tcflag_t kCflagMask = kFramingMask | CSTOPB | CRTSCTS;
constexpr tcflag_t kIflagMask = IXON | IXOFF | IXANY;

// A 12-byte text field equals word, ignoring case; the field need not hold a NUL.
bool fieldIs(const char (&field)[12], const char* word) {
  size_t length = strnlen(field, sizeof field);
  return std::strlen(word) == length && strncasecmp(field, word, length) == 0;
}

bool fieldIsAnyOf(const char (&field)[12], std::initializer_list<const char*> words) {
  if (strnlen(field, sizeof field) == 0) return false;
  for (const char* word : words) {
    if (fieldIs(field, word)) return true;
  }
  return false;
}

bool fieldIsEmpty(const char (&field)[12]) { return field[0] == '\0'; }

// Translates the settings into termios bits; 0 or the status naming the refused field.
int framingFor(const SerialSettings& settings, speed_t* speed, Framing* framing) {
  bool known = false;
  for (const SpeedEntry& entry : kSpeeds) {
    if (entry.baud == settings.Baudrate) {
      *speed = entry.code;
      known = true;
      break;
    }
  }
  if (!known) return RS232_ERR_BAUD;

  switch (settings.Databits) {
    case 5: framing->cflag |= CS5; break;
    case 6: framing->cflag |= CS6; break;
    case 7: framing->cflag |= CS7; break;
    case 8: framing->cflag |= CS8; break;
    default: return RS232_ERR_DATABITS;
  }

  if (fieldIsEmpty(settings.Parity) || fieldIsAnyOf(settings.Parity, {"None", "N"})) {
    // no parity bit
  } else if (fieldIsAnyOf(settings.Parity, {"Odd", "O"})) {
    framing->cflag |= PARENB | PARODD;
  } else if (fieldIsAnyOf(settings.Parity, {"Even", "E"})) {
    framing->cflag |= PARENB;
  } else if (fieldIsAnyOf(settings.Parity, {"Mark", "M"})) {
    framing->cflag |= PARENB | CMSPAR | PARODD;
  } else if (fieldIsAnyOf(settings.Parity, {"Space", "S"})) {
    framing->cflag |= PARENB | CMSPAR;
  } else {
    return RS232_ERR_PARITY;
  }

  switch (settings.Stopbits) {
    case 1: break;
    case 2: framing->cflag |= CSTOPB; break;
    default: return RS232_ERR_STOPBITS;
  }

  if (fieldIsEmpty(settings.Flowcontrol) || fieldIsAnyOf(settings.Flowcontrol, {"None"})) {
    // no flow control
  } else if (fieldIsAnyOf(settings.Flowcontrol,
                          {"Hardware", "RTS/CTS", "RTSCTS", "RTS-CTS", "RTS_CTS"})) {
    framing->cflag |= CRTSCTS;
  } else if (fieldIsAnyOf(settings.Flowcontrol,
                          {"Software", "XON/XOFF", "XONXOFF", "XON-XOFF", "XON_XOFF"})) {
    framing->iflag |= IXON | IXOFF;
  } else {
    return RS232_ERR_FLOW;
  }
  return 0;
}

// A pseudo-terminal has no wire: its driver forces 8 bits without parity whatever is asked.
bool isPseudoTerminal(int handle) {
  struct stat info {};
  if (fstat(handle, &info) != 0 || !S_ISCHR(info.st_mode)) return false;
  unsigned deviceMajor = major(info.st_rdev);
  return deviceMajor >= kPtySlaveMajorFirst && deviceMajor <= kPtySlaveMajorLast;
}

long long monotonicMs() {
  timespec now {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Bytes waiting in the transmit queue; 0 when the driver cannot tell.
int queuedBytes(int handle) {
  int queued = 0;
  if (ioctl(handle, TIOCOUTQ, &queued) != 0 || queued < 0) return 0;
  return queued;
}

void sleepMs(int milliseconds) {
  timespec pause {0, static_cast<long>(milliseconds) * 1000000L};
  while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
  }
}

}  // namespace

int RS232_open(const char* device, int32_t /*flags*/) {
  if (device == nullptr) return RS232_ERR_ARGUMENT;
  int handle;
  do {
    handle = ::open(device, O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  } while (handle < 0 && errno == EINTR);
  if (handle < 0) return RS232_ERR_OPEN;
  if (!isatty(handle)) {
    int saved = errno;
    ::close(handle);
    errno = saved;
    return RS232_ERR_NOT_TTY;
  }
  return handle;
}

int RS232_configure(int handle, SerialSettings settings) {
  speed_t speed = B0;
  Framing framing;
  if (int status = framingFor(settings, &speed, &framing); status != 0) return status;
  if (handle < 0) return RS232_ERR_HANDLE;

  termios line {};
  if (tcgetattr(handle, &line) != 0) return RS232_ERR_HANDLE;
  // Raw: bytes go out as written, nothing arriving is interpreted except XON/XOFF when chosen.
  line.c_iflag &= ~(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | kIflagMask);
  line.c_oflag &= ~OPOST;
  line.c_lflag &= ~(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
  line.c_cflag &= ~kCflagMask;
  line.c_cflag |= framing.cflag | CLOCAL | CREAD;
  line.c_iflag |= framing.iflag;
  // Nothing is read from the line; these are the classic raw values should anyone read.
  line.c_cc[VMIN] = 1;
  line.c_cc[VTIME] = 0;
  if (cfsetispeed(&line, speed) != 0 || cfsetospeed(&line, speed) != 0) return RS232_ERR_BAUD;
  // tcsetattr succeeds when any part was taken and fails with EINVAL when none was (a
  // pseudo-terminal asked only for a framing it ignores); either way the read-back decides.
  if (tcsetattr(handle, TCSANOW, &line) != 0 && errno != EINVAL) {
    return errno == EBADF || errno == ENOTTY ? RS232_ERR_HANDLE : RS232_ERR_APPLY;
  }

  termios kept {};
  if (tcgetattr(handle, &kept) != 0) return RS232_ERR_HANDLE;
  tcflag_t cflagChecked = isPseudoTerminal(handle) ? kCflagMask & ~kFramingMask : kCflagMask;
  if (cfgetospeed(&kept) != speed || cfgetispeed(&kept) != speed ||
      (kept.c_cflag & cflagChecked) != (line.c_cflag & cflagChecked) ||
      (kept.c_iflag & kIflagMask) != (line.c_iflag & kIflagMask) || (kept.c_oflag & OPOST) != 0 ||
      (kept.c_lflag & (ECHO | ICANON | ISIG | IEXTEN)) != 0) {
    return RS232_ERR_APPLY;
  }
  return 0;
}

int RS232_write(int handle, const char* text, int stallMs) {
  if (handle < 0) return RS232_ERR_HANDLE;
  if (text == nullptr) return RS232_ERR_ARGUMENT;
  const size_t length = std::strlen(text);
  size_t done = 0;
  long long lastProgress = monotonicMs();
  int lastQueued = -1;
  while (done < length) {
    ssize_t written = ::write(handle, text + done, length - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
      lastProgress = monotonicMs();
      lastQueued = -1;
      continue;
    }
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      return errno == EBADF || errno == ENOTTY ? RS232_ERR_HANDLE : RS232_ERR_WRITE;
    }

    // No room. A queue that shrinks is a line that moves, even before a byte fits again.
    int queued = queuedBytes(handle);
    long long now = monotonicMs();
    if (lastQueued >= 0 && queued < lastQueued) lastProgress = now;
    lastQueued = queued;
    long long left = lastProgress + stallMs - now;
    if (left <= 0) return RS232_ERR_TIMEOUT;

    pollfd wait {handle, POLLOUT, 0};
    int ready = poll(&wait, 1, static_cast<int>(left < kWaitSliceMs ? left : kWaitSliceMs));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return RS232_ERR_WRITE;
    if (ready > 0 && (wait.revents & POLLNVAL) != 0) return RS232_ERR_HANDLE;
    if (ready > 0 && (wait.revents & POLLOUT) == 0 && (wait.revents & (POLLERR | POLLHUP)) != 0) {
      errno = EIO;
      return RS232_ERR_WRITE;
    }
  }
  return queuedBytes(handle);
}

int RS232_close(int handle) {
  if (handle < 0) return RS232_ERR_HANDLE;
  termios line {};
  if (tcgetattr(handle, &line) != 0) {
    if (errno == EBADF) return RS232_ERR_HANDLE;
    ::close(handle);
    return 0;
  }
  // Closing a terminal waits (up to 30 s on a UART) for its queue to empty; a held line would
  // stall the caller. Give the queue a bounded time, drop what is left and release flow
  // control so that the driver has nothing to wait for. A pseudo-terminal reports an empty
  // queue, so its unread bytes are never discarded here.
  long long deadline = monotonicMs() + kRs232CloseDrainMs;
  while (queuedBytes(handle) > 0 && monotonicMs() < deadline) sleepMs(kWaitSliceMs);
  if (queuedBytes(handle) > 0) tcflush(handle, TCOFLUSH);
  if ((line.c_cflag & CRTSCTS) != 0 || (line.c_iflag & (IXON | IXOFF)) != 0) {
    line.c_cflag &= ~CRTSCTS;
    line.c_iflag &= ~(IXON | IXOFF);
    tcsetattr(handle, TCSANOW, &line);
  }
  ::close(handle);
  return 0;
}

const char* RS232_statusText(int status) {
  switch (status) {
    case RS232_ERR_OPEN: return "device could not be opened";
    case RS232_ERR_NOT_TTY: return "device is not a terminal";
    case RS232_ERR_HANDLE: return "handle is not an open terminal";
    case RS232_ERR_BAUD: return "baud rate not supported";
    case RS232_ERR_DATABITS: return "data bits not 5 to 8";
    case RS232_ERR_PARITY: return "parity word not known";
    case RS232_ERR_STOPBITS: return "stop bits not 1 or 2";
    case RS232_ERR_FLOW: return "flow control word not known";
    case RS232_ERR_APPLY: return "driver did not take the settings";
    case RS232_ERR_WRITE: return "device refused the write";
    case RS232_ERR_TIMEOUT: return "transmit queue stayed full";
    case RS232_ERR_ARGUMENT: return "null path or text";
    default: return status >= 0 ? "success" : "unknown status";
  }
}

}  // namespace tessera
