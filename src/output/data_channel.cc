#include "output/data_channel.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/logger.h"
#include "state/service_state.h"
#include "platform/platform.h"

namespace tessera {

// The "dataChannel" thread with its listening socket and the eventfd that ends it; one lives in
// serviceState.dataChannel from startDataChannel to stopDataChannel.
class DataChannel {
 public:
  DataChannel() {
    wake_ = eventfd(0, EFD_CLOEXEC);
    if (pthread_create(&thread_, nullptr, run, this) == 0) {
      pthread_setname_np(thread_, "dataChannel");
      started_ = true;
    }
  }
  // Wakes and joins the thread, then closes the listener and the wake-up.
  ~DataChannel() {
    if (started_) {
      uint64_t one = 1;
      if (write(wake_, &one, sizeof one) < 0) {
        // The wake-up cannot fail on a valid eventfd; the join below would then wait for ever.
      }
      pthread_join(thread_, nullptr);
    }
    if (listener_ != 0) close(listener_);
    if (wake_ >= 0) close(wake_);
  }
  DataChannel(const DataChannel&) = delete;
  DataChannel& operator=(const DataChannel&) = delete;

 private:
  static void* run(void* self) {
    static_cast<DataChannel*>(self)->serve();
    return nullptr;
  }
  // Listens on 127.0.0.1 and keeps the newest client; ends the process on socket errors.
  void serve();

  int listener_ = 0;  // the thread sets it; the destructor reads it after the join
  int wake_ = -1;     // eventfd: the destructor wakes the thread through it
  pthread_t thread_{};
  bool started_ = false;
};

void DataChannel::serve() {
  ServiceState& s = serviceState;
  {
    std::lock_guard<std::mutex> guard(s.dataChannelSendLock);
    int old = s.dataChannelClientFd.exchange(-1);
    if (old != -1) close(old);
  }

  int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) {
    Logger::log(LogLevel::kError, "Data Channel: ERROR opening socket\n");
    fatalError("ERROR opening socket");
  }
  int one = 1;
  if (setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) < 0) {
    Logger::log(LogLevel::kError, "setsockopt failed\n");
    fatalError("ERROR on setsockopt");
  }
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(platform::settings().dataPort));
  if (bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    Logger::log(LogLevel::kError, "Data Channel: ERROR on binding\n");
    fatalError("ERROR on binding");
  }
  listen(listener, 3);
  listener_ = listener;

  // accept() blocks, so the thread waits in poll() together with the wake-up that cleanup uses
  // to end it; no lock is ever held while it waits.
  for (;;) {
    pollfd fds[2] = {{listener, POLLIN, 0}, {wake_, POLLIN, 0}};
    int n = poll(fds, wake_ >= 0 ? 2 : 1, -1);
    if (n < 0) continue;
    if (fds[1].revents != 0) break;
    if ((fds[0].revents & POLLIN) == 0) continue;
    int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      Logger::log(LogLevel::kError, "Data Channel: ERROR on accept\n");
      fatalError("ERROR on accept");
    }
    Logger::log(LogLevel::kInfo, "Data Channel: Got New Connection\n");
    timeval limit{};
    limit.tv_sec = kDataChannelSendTimeoutMs / 1000;
    limit.tv_usec = (kDataChannelSendTimeoutMs % 1000) * 1000;
    (void)setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    std::lock_guard<std::mutex> guard(s.dataChannelSendLock);
    int previous = s.dataChannelClientFd.exchange(client);
    if (previous > 0) close(previous);
  }
}

void startDataChannel() { serviceState.dataChannel = makeOwned<DataChannel>(); }

void stopDataChannel() {
  ServiceState& s = serviceState;
  {
    std::lock_guard<std::mutex> guard(s.dataChannelSendLock);
    int client = s.dataChannelClientFd.exchange(-1);
    if (client != -1) close(client);
  }
  s.dataChannel.reset();
}

int dataChannelWrite(const char* data, size_t length) {
  // Held through the send: a stalled client costs at most the send timeout, and the accepting
  // thread cannot close this descriptor under the send.
  std::lock_guard<std::mutex> guard(serviceState.dataChannelSendLock);
  int fd = serviceState.dataChannelClientFd.load();
  if (fd == -1) return -1;
  const ssize_t n = send(fd, data, length, MSG_NOSIGNAL);
  const bool stalled = (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) ||
                       (n >= 0 && static_cast<size_t>(n) < length);
  if (stalled) {
    // Only the writer that still finds this client closes it; a newer client stays.
    int expected = fd;
    if (serviceState.dataChannelClientFd.compare_exchange_strong(expected, -1)) {
      Logger::log(LogLevel::kInfo, "Data Channel: client takes no data, closing it\n");
      close(fd);
    }
  }
  return static_cast<int>(n);
}

int dataChannelNotify(const char* text) { return dataChannelWrite(text, std::strlen(text) + 1); }

void fatalError(const char* text) {
  std::perror(text);
  std::exit(1);
}

const char* getMacAddress() {
  ServiceState& s = serviceState;
  std::memset(s.macAddress, 0, sizeof s.macAddress);
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return nullptr;
  ifreq req{};
  std::snprintf(req.ifr_name, sizeof req.ifr_name, "%s", "eth0");
  if (ioctl(fd, SIOCGIFHWADDR, &req) < 0) {
    close(fd);
    return nullptr;
  }
  const auto* b = reinterpret_cast<const unsigned char*>(req.ifr_hwaddr.sa_data);
  s.macAddressKnown = true;
  std::snprintf(s.macAddress, sizeof s.macAddress, "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X", b[0], b[1],
                b[2], b[3], b[4], b[5]);
  close(fd);
  return s.macAddress;
}

}  // namespace tessera
