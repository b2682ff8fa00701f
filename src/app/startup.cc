#include "app/startup.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "command/command_server.h"
#include "app/autostart.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "app/signals.h"
#include "modes/relay.h"
#include "output/data_channel.h"
#include "platform/platform.h"
#include "reader/event_thread.h"

namespace tessera {

int closeInheritedDescriptors() {
  int closed = 0;
  for (int fd = 3; fd <= 33; ++fd) {
    if (close(fd) == 0) {
      ++closed;
    } else if (errno == EBADF) {
      break;
    }
  }
  return closed;
}

void installSignalActions() {
  struct sigaction action {};
  action.sa_handler = onTerminationSignal;
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESETHAND;
  if (sigaction(SIGINT, &action, nullptr) != 0) Logger::log(LogLevel::kInfo, "Error: cannot handle SIGINT");
  if (sigaction(SIGTERM, &action, nullptr) != 0) Logger::log(LogLevel::kInfo, "Error: cannot handle SIGTERM");
}

int openUeventSocket() {
  int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
  if (fd < 0) {
    Logger::log(LogLevel::kInfo, "socket error");
    return -1;
  }
  int size = 2048;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  sockaddr_nl addr{};
  addr.nl_family = AF_NETLINK;
  addr.nl_pid = static_cast<uint32_t>(getpid());
  addr.nl_groups = 1;
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    Logger::log(LogLevel::kInfo, "bind error");
    close(fd);
    return -1;
  }
  return fd;
}

void startService() {
  ServiceState& s = serviceState;
  s.antennaCount = 0;
  // What an earlier run left in the spool is counted from the start, and delivered by the next
  // relay start. A folder that cannot be used now is tried again by the relay.
  if (!platform::settings().spoolDir.empty()) (void)openSpool(s);
  startEventThread();
  startDataChannel();
  s.ueventSocket = openUeventSocket();
  bootAutostart();
  runCommandServer();
}

}  // namespace tessera
