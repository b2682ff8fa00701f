// src/platform/platform.h — the seam between the service and the appliance: paths, shell
// commands, the clock and fixed waits. On the appliance every option keeps its default; on a
// development PC the options move paths under a root, record shell commands instead of running
// them and shorten waits.
#pragma once

#include <cstdint>
#include <cstddef>
#include <ctime>
#include <optional>
#include <string>

namespace tessera::platform {

// Where the system mounts the USB flash drive; the relay's drive files and the removal's
// unmount both name it. Like every appliance path it is taken under the root by path().
inline constexpr const char* kUsbDriveMountPoint = "/media/usbdrive";

// Development-PC settings; the defaults are the appliance's.
struct Settings {
  std::string root = "/";            // every appliance path is taken under this folder
  int commandPort = 50017;           // command channel port
  int dataPort = 50018;              // data channel port
  std::string readerHost = "127.0.0.1";  // where the reader API connects
  int readerPort = 0;                // 0: the port the commands give (5084 by default)
  std::string recordShell;           // when set, shell commands are appended here, not run
  double waitScale = 1.0;            // multiplies every fixed wait (retries, pauses)
  long clockOffset = 0;              // seconds added to the wall clock (tests move time)
  std::string spoolDir;              // the outage spool's folder; empty: no spool
  uint64_t spoolMaxBytes = 64ull << 20;  // the spool's size cap
};

// Installs the settings; called once by main before any thread starts, read-only afterwards.
void configure(const Settings& settings);
// The settings in force.
const Settings& settings();
// An appliance path (absolute, e.g. "/dev/ttyS2") as seen under the root.
std::string path(const char* appliancePath);
// Runs a shell command, or appends it to the record file; the shell's status, or 0 when recorded.
int runShell(const char* command);
// The first line of an appliance file (a kernel status file, say) without its line feed, cut to
// maxLength characters; nullopt when the file cannot be opened.
[[nodiscard]] std::optional<std::string> readFirstLine(const char* appliancePath, size_t maxLength);
// Sleeps for a fixed wait of the product, multiplied by the wait scale.
void sleepSeconds(double seconds);
// A fixed wait of the product in seconds after scaling, for timed waits that are not sleeps.
double scaledSeconds(double seconds);
// The wall clock in seconds since the epoch, moved by the clock offset.
time_t now();

}  // namespace tessera::platform
