// src/rs232/rs232.h — the serial port library: a serial line (UART or pseudo-terminal) over
// termios, in raw mode, for writing text. A handle is the file descriptor of the open device.
//
// Writes never block for long. The device is opened non-blocking; RS232_write hands the text to
// the kernel piece by piece and, while the transmit queue is full, waits for room with poll. The
// write gives up with RS232_ERR_TIMEOUT when for the stall time-out (2 s by default) not a single
// byte could be handed over and the queue did not shrink either; the bytes already handed over
// stay on the line, so the peer sees a cut text. A slow line that keeps moving never times out; a
// peer that stops reading (flow control held, XOFF, a pty master that does not read) costs a
// caller at most one stall time-out per write, never a hang.
//
// Accepted settings (words compared without regard to case; an empty word means "None"):
//   Baudrate    50 75 110 134 150 200 300 600 1200 1800 2400 4800 9600 19200 38400 57600 115200
//               230400 460800 500000 576000 921600 1000000 1152000 1500000 2000000 2500000
//               3000000 3500000 4000000
//   Databits    5 6 7 8
//   Parity      "None", "Odd", "Even", "Mark", "Space" (also "N", "O", "E", "M", "S")
//   Stopbits    1 2
//   Flowcontrol "None"; "Hardware", "RTS/CTS", "RTSCTS", "RTS-CTS", "RTS_CTS";
//               "Software", "XON/XOFF", "XONXOFF", "XON-XOFF", "XON_XOFF".
//               The configuration file cannot carry a slash in a value, so "Hardware",
//               "Software", "RTSCTS" and "XONXOFF" are the words to write there.
// Anything else is refused with the status naming the field.
//
// What RS232_write counts: the transmit queue fill level in bytes after the write (TIOCOUTQ). On
// a UART this is what waits in the driver's 4096-byte transmit buffer, so it rises towards 4096
// when the line is slower than the writer. A pseudo-terminal keeps no transmit queue of its own
// (the bytes move straight to the master's input), and the kernel reports 0 there whatever the
// master has left unread.
#pragma once

#include <cstdint>

namespace tessera {

// The line parameters handed by value to RS232_configure: the configuration file's values
// unchanged. Texts are NUL-terminated within their 12 bytes (a full array is cut at 12).
struct SerialSettings {
  int32_t Baudrate = 0;
  int32_t Databits = 0;
  char Parity[12] = {};
  int32_t Stopbits = 0;
  char Flowcontrol[12] = {};
};
static_assert(sizeof(SerialSettings) == 36, "five fields, no gaps");

// Failure statuses; each names what went wrong.
enum : int {
  RS232_ERR_OPEN = -1,       // the device could not be opened (errno tells why)
  RS232_ERR_NOT_TTY = -2,    // the path is not a terminal device
  RS232_ERR_HANDLE = -3,     // the handle is negative or not an open terminal
  RS232_ERR_BAUD = -4,       // Baudrate not in the accepted set
  RS232_ERR_DATABITS = -5,   // Databits not 5 to 8
  RS232_ERR_PARITY = -6,     // Parity word not known
  RS232_ERR_STOPBITS = -7,   // Stopbits not 1 or 2
  RS232_ERR_FLOW = -8,       // Flowcontrol word not known
  RS232_ERR_APPLY = -9,      // the driver did not take the settings
  RS232_ERR_WRITE = -10,     // the device refused the write (errno tells why; EIO: hung up)
  RS232_ERR_TIMEOUT = -11,   // no room in the transmit queue for the whole stall time-out
  RS232_ERR_ARGUMENT = -12,  // a null path or text
};

// How long a write waits without handing over a single byte before it gives up.
inline constexpr int kRs232WriteStallMs = 2000;
// How long a close lets the transmit queue drain before it discards the rest.
inline constexpr int kRs232CloseDrainMs = 2000;

// Opens a terminal device: always read-write, non-blocking, no controlling terminal and
// close-on-exec, whatever flags holds (callers pass 0; no other mode would work). Not exclusive:
// the device can be opened again while a handle is open. A handle (>= 0), or RS232_ERR_OPEN,
// RS232_ERR_NOT_TTY, RS232_ERR_ARGUMENT.
[[nodiscard]] int RS232_open(const char* device, int32_t flags);
// Puts the line in raw mode (no echo, no translation, CLOCAL|CREAD, VMIN 1, VTIME 0) with the
// given speed, framing and flow control; 0 or a negative status. A pseudo-terminal always runs
// 8 bits without parity, so there the framing is accepted as the driver leaves it.
[[nodiscard]] int RS232_configure(int handle, SerialSettings settings);
// Writes text up to its NUL completely (partial writes continued, interrupted calls retried); the
// transmit queue fill level in bytes afterwards, or a negative status. stallMs bounds each wait
// for room in the queue, see above.
[[nodiscard]] int RS232_write(int handle, const char* text, int stallMs = kRs232WriteStallMs);
// Lets queued output drain for up to kRs232CloseDrainMs, discards the rest, releases flow
// control and closes; 0 or RS232_ERR_HANDLE. A negative handle is ignored. Forget the handle
// afterwards: the number may be reused by the next open in the process.
int RS232_close(int handle);
// A short English text for a status, for diagnostics.
const char* RS232_statusText(int status);

}  // namespace tessera
