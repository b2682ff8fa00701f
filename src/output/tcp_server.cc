#include "output/tcp_server.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <unistd.h>

#include "platform/logger.h"

namespace tessera {

TcpServer::TcpServer(int port) : port_(port) {
  listeningSocket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listeningSocket_ < 0) {
    listeningSocket_ = 0;
    Logger::log(LogLevel::kError, "TCP/IP Server : Failed to create socket\n");
    Logger::log(LogLevel::kError, "TCP/IP Server : Initilizaton failed.\n");
    return;
  }
  int one = 1;
  if (setsockopt(listeningSocket_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) < 0) {
    Logger::log(LogLevel::kError, "TCP/IP Server : setsockopt failed- SO_REUSEADDR\n");
    Logger::log(LogLevel::kError, "TCP/IP Server : Initilizaton failed.\n");
    return;
  }
  serverAddress_.sin_family = AF_INET;
  serverAddress_.sin_port = htons(static_cast<uint16_t>(port));
  serverAddress_.sin_addr.s_addr = htonl(INADDR_ANY);
  // A client that vanishes must make send() fail, not end the process.
  std::signal(SIGPIPE, SIG_IGN);
  initialised_ = true;
}

TcpServer::~TcpServer() {
  if (clientSocket_ > 0) close(clientSocket_);
}

bool TcpServer::checkInitialised() const {
  if (!initialised_) Logger::log(LogLevel::kError, "TCP/IP Server : Listenign port is not initialized.\n");
  return initialised_;
}

int TcpServer::bind() {
  if (!checkInitialised()) return -1;
  if (::bind(listeningSocket_, reinterpret_cast<const sockaddr*>(&serverAddress_),
             sizeof serverAddress_) < 0) {
    Logger::log(LogLevel::kError, "TCP/IP Server : bind failed\n");
    return -1;
  }
  return 0;
}

int TcpServer::listen() {
  if (!checkInitialised()) return -1;
  if (::listen(listeningSocket_, 3) < 0) {
    Logger::log(LogLevel::kError, "TCP/IP Server : listen failed\n");
    return -1;
  }
  return 0;
}

int TcpServer::accept() {
  if (!checkInitialised()) return -1;
  addressLength_ = sizeof clientAddress_;
  clientSocket_ = ::accept4(listeningSocket_, reinterpret_cast<sockaddr*>(&clientAddress_),
                            &addressLength_, SOCK_CLOEXEC);
  if (clientSocket_ < 0) {
    Logger::log(LogLevel::kError, "TCP/IP Server : accept failed\n");
    return -1;
  }
  return clientSocket_;
}

long TcpServer::send(const char* data, size_t length) {
  if (!checkInitialised()) return -1;
  return static_cast<long>(::send(clientSocket_, data, length, MSG_NOSIGNAL | MSG_DONTWAIT));
}

void TcpServer::closeClient() {
  if (clientSocket_ != 0) {
    if (clientSocket_ > 0) close(clientSocket_);
    clientSocket_ = 0;
  }
}

void TcpServer::closeServer() {
  if (listeningSocket_ != 0) {
    close(listeningSocket_);
    listeningSocket_ = 0;
  }
  port_ = 0;
  initialised_ = false;
}

}  // namespace tessera
