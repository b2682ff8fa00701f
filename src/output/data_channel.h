// src/output/data_channel.h — the loopback data channel (port 50018) whose newest client receives
// notifications, "TagData:" lines and antenna results; and eth0's MAC address.
#pragma once

#include <cstddef>

namespace tessera {

// Starts the "dataChannel" thread: it listens on 127.0.0.1 and keeps the newest client; it ends
// the process on socket errors.
void startDataChannel();
// Wakes and joins the data channel thread and closes its sockets.
void stopDataChannel();
// Writes a notification with its terminating zero byte to the current client; bytes sent or -1.
int dataChannelNotify(const char* text);
// A client that takes nothing for this long is closed, so that it cannot hold up the reads.
inline constexpr int kDataChannelSendTimeoutMs = 1000;

// Writes bytes as they are (no terminating zero) to the current client; bytes sent or -1. A
// client that has not taken them within kDataChannelSendTimeoutMs is closed.
int dataChannelWrite(const char* data, size_t length);
// Prints "text: <system error>" on stderr and ends the process with status 1.
[[noreturn]] void fatalError(const char* text);
// eth0's MAC address as "AA:BB:CC:DD:EE:FF" in serviceState.macAddress, or null when unknown.
const char* getMacAddress();

}  // namespace tessera
