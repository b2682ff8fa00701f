#include "app/startup.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "app/autostart.h"
#include "app/signals.h"
#include "command/dispatcher.h"
#include "config/serial_port_conf.h"
#include "modes/relay.h"
#include "output/data_channel.h"
#include "platform/logger.h"
#include "platform/platform.h"
#include "reader/event_thread.h"
#include "state/service_state.h"

namespace tessera {
namespace {

constexpr int kFirstInheritedDescriptor = 3;
constexpr int kLastInheritedDescriptor = 33;
constexpr int kUeventBufferBytes = 2048;
constexpr uint32_t kKernelUeventGroup = 1;

// Closes the descriptors a parent left open, stopping at the first that is not open.
void closeInheritedDescriptors() {
  for (int fd = kFirstInheritedDescriptor; fd <= kLastInheritedDescriptor; ++fd) {
    if (close(fd) != 0 && errno == EBADF) break;
  }
}

// The kernel uevent socket bound to our process id, on which the command loop sees a USB drive
// go; -1 when it cannot be had (the drive's removal then goes unnoticed).
int openUeventSocket() {
  int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
  if (fd < 0) {
    Logger::log(LogLevel::kInfo, "socket error");
    return -1;
  }
  int size = kUeventBufferBytes;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  sockaddr_nl addr{};
  addr.nl_family = AF_NETLINK;
  addr.nl_pid = static_cast<uint32_t>(getpid());
  addr.nl_groups = kKernelUeventGroup;
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    Logger::log(LogLevel::kInfo, "bind error");
    close(fd);
    return -1;
  }
  return fd;
}

}  // namespace

void startService() {
  ServiceState& s = serviceState;
  installSignalActions();
  closeInheritedDescriptors();
  // The sweep above may have closed syslog's socket; reopen it so that log lines never go to a
  // descriptor that a later socket reuses.
  Logger::reopen();
  if (openSignalPipe() != 0) {
    Logger::log(LogLevel::kError, "Error: cannot create the signal pipe\n");
  }
  Logger::log(LogLevel::kInfo, "Logger from tessera");
  readSerialPortConf(s.serialPortConfig, s.inventoryControl);
  s.antennaCount = 0;
  // What an earlier run left in the spool is counted from the start, and delivered by the next
  // relay start. A folder that cannot be used now is tried again by the relay.
  if (!platform::settings().spoolDir.empty()) static_cast<void>(openSpool(s));
  startEventThread();
  startDataChannel();
  s.ueventSocket = openUeventSocket();
  bootAutostart();
}

void cleanupService() {
  ServiceState& s = serviceState;
  Logger::log(LogLevel::kInfo, "Caught SIGNAL: %d... Cleanup function.\n",
              s.terminationSignal.load());
  s.eventThreadStop = true;
  Logger::log(LogLevel::kInfo, "\nKilling Threads.. ");
  stopEventThread();
  Logger::log(LogLevel::kInfo, "\nKilling Threads.. Done");
  relayStop();
  // Counted before the spool closes, so that the line tells what it keeps for the next start.
  const ReadCounts counts = currentReadCounts();
  s.spool.close();
  for (int& fd : s.commandClients) {
    if (fd != 0) {
      close(fd);
      fd = 0;
    }
  }
  if (s.commandListener != 0) {
    close(s.commandListener);
    s.commandListener = 0;
  }
  stopDataChannel();
  Logger::log(LogLevel::kInfo, "cleanup tcp channels end ");
  Logger::log(LogLevel::kInfo, "Read statistics: %s\n", formatReadCountsLine(counts).c_str());
  Logger::log(LogLevel::kInfo, "tessera stopped after signal %d\n", s.terminationSignal.load());
  Logger::close();
}

}  // namespace tessera
