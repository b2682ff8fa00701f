#include "command/command_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "command/dispatcher.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "output/usb_drive.h"
#include "platform/platform.h"

namespace tessera {
namespace {

void setUpListener(ServiceState& s) {
  std::memset(s.commandClients, 0, sizeof s.commandClients);
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    Logger::log(LogLevel::kError, "Command socket create failed\n");
    std::exit(1);
  }
  s.commandListener = fd;
  int one = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) < 0) {
    Logger::log(LogLevel::kError, "setsockopt failed\n");
    std::exit(1);
  }
  const int port = platform::settings().commandPort;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    Logger::log(LogLevel::kError, "bind failed\n");
    std::exit(1);
  }
  Logger::log(LogLevel::kInfo, "Listener on port %d \n", port);
  if (listen(fd, 3) < 0) {
    Logger::log(LogLevel::kError, "listen failed\n");
    std::exit(1);
  }
  Logger::log(LogLevel::kError, "Waiting for command channel connections...\n");
}

void acceptClient(ServiceState& s) {
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  int fd = accept4(s.commandListener, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
  if (fd < 0) {
    Logger::log(LogLevel::kError, "accept failed\n");
    std::exit(1);
  }
  char address[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
  Logger::log(LogLevel::kInfo, "New connection , socket fd is %d , ip is : %s , port : %d \n", fd, address,
              ntohs(peer.sin_port));
  for (int slot = 0; slot < kCommandClientSlots; ++slot) {
    if (s.commandClients[slot] == 0) {
      s.commandClients[slot] = fd;
      Logger::log(LogLevel::kInfo, "Adding to list of sockets as %d\n", slot);
      return;
    }
  }
  // Every slot is busy: a connection that would never be read from is closed at once, so that
  // the client sees end of stream instead of hanging and no descriptor leaks.
  close(fd);
}

void serveClient(ServiceState& s, int slot) {
  int fd = s.commandClients[slot];
  // One byte more than a read can fill, so that the text is always zero-terminated.
  char buffer[257] = {};
  ssize_t n = read(fd, buffer, 256);
  if (n == 0) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length);
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
    Logger::log(LogLevel::kInfo, "Host disconnected , ip %s , port %d \n", address, ntohs(peer.sin_port));
    close(fd);
    s.commandClients[slot] = 0;
    return;
  }
  dispatchCommand(fd, buffer);
}

}  // namespace

void handleUevent() {
  char buffer[4096] = {};
  // The last byte stays zero so that the text search below always ends inside the buffer.
  if (recv(serviceState.ueventSocket, buffer, sizeof buffer - 1, 0) < 0) return;
  if (std::strstr(buffer, "remove") != nullptr && std::strstr(buffer, "block") != nullptr) {
    usbDriveDisconnect();
    const std::string unmount = std::string("umount ") + platform::kUsbDriveMountPoint;
    platform::runShell(unmount.c_str());
    Logger::log(LogLevel::kInfo, "umount usb drive\n");
  }
}

void runCommandServer() {
  ServiceState& s = serviceState;
  setUpListener(s);
  while (s.terminationSignal == 0) {
    fd_set readSet;
    FD_ZERO(&readSet);
    FD_SET(s.commandListener, &readSet);
    int highest = s.commandListener;
    for (int fd : s.commandClients) {
      if (fd > 0) {
        FD_SET(fd, &readSet);
        if (fd > highest) highest = fd;
      }
    }
    if (s.ueventSocket > 0) {
      FD_SET(s.ueventSocket, &readSet);
      if (s.ueventSocket > highest) highest = s.ueventSocket;
    }
    if (s.signalPipe[0] >= 0) {
      FD_SET(s.signalPipe[0], &readSet);
      if (s.signalPipe[0] > highest) highest = s.signalPipe[0];
    }
    if (select(highest + 1, &readSet, nullptr, nullptr, nullptr) < 0) {
      if (errno != EINTR) Logger::log(LogLevel::kError, "select error\n");
      // The sets are undefined after a failed select: start a new pass rather than block on a
      // descriptor that is not ready.
      continue;
    }
    if (s.signalPipe[0] >= 0 && FD_ISSET(s.signalPipe[0], &readSet)) break;
    if (FD_ISSET(s.commandListener, &readSet)) acceptClient(s);
    for (int slot = 0; slot < kCommandClientSlots; ++slot) {
      int fd = s.commandClients[slot];
      if (fd > 0 && FD_ISSET(fd, &readSet)) serveClient(s, slot);
    }
    if (s.ueventSocket > 0 && FD_ISSET(s.ueventSocket, &readSet)) handleUevent();
  }
}

}  // namespace tessera
