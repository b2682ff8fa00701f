// src/platform/logger.h — the process-wide Logger: syslog with identity "tessera", a level letter
// before each line, and a copy on standard output when MVM_DEBUG is "enable".
#pragma once

#include <mutex>

namespace tessera {

// Syslog's severities as the service names them. The service itself logs errors, information
// and debugging detail; detail is formatted and then dropped, so it costs no syslog traffic.
enum class LogLevel : unsigned {
  kEmergency = 0,  // emitted as an error: a service never speaks for the whole machine
  kAlert = 1,
  kCritical = 2,
  kError = 3,
  kWarning = 4,
  kNotice = 5,
  kInfo = 6,
  kDebug = 7,
};

class Logger {
 public:
  // Opens syslog and reads MVM_DEBUG; the one instance is built before every other global.
  Logger();
  // Closes syslog.
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Formats and emits one line at a level (kDebug is dropped); the formatted length.
  static int log(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Whether lines are echoed to standard output.
  static bool echo();
  // Reconnects to syslog, e.g. after start-up closed inherited descriptors.
  static void reopen();

 private:
  int emit(unsigned level, const char* message);

  bool echo_ = false;
  std::recursive_mutex lock_;  // guards line_ and the syslog/console writes of one line
  char line_[4096] = {};
};

}  // namespace tessera
