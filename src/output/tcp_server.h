// src/output/tcp_server.h — the relay's TCP/IP output channel: one listener on all IPv4
// addresses, at most one connected client.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

namespace tessera {

class TcpServer {
 public:
  // Creates the listening socket for the port; initialised() tells whether that worked.
  explicit TcpServer(int port);
  // Closes the client socket; owners call closeServer() first for the listener.
  ~TcpServer();
  TcpServer(const TcpServer&) = delete;
  TcpServer& operator=(const TcpServer&) = delete;

  // Binds to the port on INADDR_ANY; 0 or -1.
  [[nodiscard]] int bind();
  // Listens with a backlog of 3; 0 or -1.
  [[nodiscard]] int listen();
  // Waits for a client and keeps it; the client socket or -1.
  [[nodiscard]] int accept();
  // One send of up to `length` bytes to the client that never waits; the bytes the socket took,
  // or -1 with errno (EAGAIN: it takes nothing now).
  [[nodiscard]] long send(const char* data, size_t length);
  // Closes the client socket, if any.
  void closeClient();
  // Closes the listener and forgets the port.
  void closeServer();

  bool initialised() const { return initialised_; }
  int listeningSocket() const { return listeningSocket_; }
  int clientSocket() const { return clientSocket_; }
  int port() const { return port_; }

 private:
  bool checkInitialised() const;

  int listeningSocket_ = 0;
  int clientSocket_ = 0;
  bool initialised_ = false;
  socklen_t addressLength_ = sizeof(sockaddr_in);
  int port_ = 0;
  sockaddr_in serverAddress_{};
  sockaddr_in clientAddress_{};
};

}  // namespace tessera
