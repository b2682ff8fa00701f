#include "output/serial_port.h"

#include <cstring>
#include <string>

#include "config/config_records.h"
#include "platform/logger.h"
#include "state/service_state.h"
#include "platform/platform.h"

namespace tessera {
namespace {

// Copies a configuration text into a library field, cut to fit and always NUL-terminated.
template <size_t N, size_t M>
void copyWord(char (&to)[N], const char (&from)[M]) {
  size_t length = strnlen(from, M);
  if (length > N - 1) length = N - 1;
  std::memcpy(to, from, length);
  to[length] = '\0';
}

}  // namespace

SerialSettings serialSettingsOf(const SerialPortConfig& config) {
  SerialSettings settings;
  settings.Baudrate = config.Baudrate;
  settings.Databits = config.Databits;
  copyWord(settings.Parity, config.Parity);
  settings.Stopbits = config.Stopbits;
  copyWord(settings.Flowcontrol, config.Flowcontrol);
  return settings;
}

int serialOpen() {
  const std::string device = platform::path("/dev/ttyS2");
  const int handle = RS232_open(device.c_str(), 0);
  serviceState.serialPortDescriptor.store(handle);
  if (handle < 0) {
    Logger::log(LogLevel::kInfo, "Unable to Open Serial Port.");
    return -1;
  }
  Logger::log(LogLevel::kInfo, "Opened Serial Port.");
  if (RS232_configure(handle, serialSettingsOf(serviceState.serialPortConfig)) < 0) {
    Logger::log(LogLevel::kInfo, "Unable to Configure Serial Port.");
    RS232_close(handle);
    serviceState.serialPortDescriptor.store(-1);
    return -1;
  }
  Logger::log(LogLevel::kInfo, "Configured Serial Port.");
  return 0;
}

int serialWrite(const char* text) {
  // One load: the main thread may close the port between the test and the write.
  const int handle = serviceState.serialPortDescriptor.load();
  if (handle < 0) {
    Logger::log(LogLevel::kInfo, "Serial port is not opened.");
    return -1;
  }
  int queued = RS232_write(handle, text);
  if (queued < 0) {
    Logger::log(LogLevel::kInfo, "Failed to write data on Serial Port.");
    return -1;
  }
  return queued;
}

int serialClose() {
  // Taking the handle and marking the port closed in one step lets the command thread and the
  // event thread (after a failed write) both close without closing the same handle twice.
  const int handle = serviceState.serialPortDescriptor.exchange(-1);
  if (handle < 0) {
    Logger::log(LogLevel::kInfo, "Serial port is not opened.");
    return 0;
  }
  RS232_close(handle);
  return 0;
}

}  // namespace tessera
