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
  // Opens syslog and reads MVM_DEBUG: the first step of main. The Logger also opens itself at
  // its first line, so that nothing that runs earlier loses a line.
  static void open();
  // Reconnects to syslog, e.g. after start-up closed inherited descriptors.
  static void reopen();
  // Formats and emits one line at a level (kDebug is dropped); the formatted length.
  static int log(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Whether lines are echoed to standard output.
  static bool echo();
  // Closes syslog: the last step of the cleanup.
  static void close();

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

 private:
  Logger();
  // The one instance, built at its first use and never destroyed: threads that outlive main
  // (the reader API's) can still log while the process exits.
  static Logger& instance();
  int emit(unsigned level, const char* message);

  bool echo_ = false;
  std::recursive_mutex lock_;  // guards line_ and the syslog/console writes of one line
  char line_[4096] = {};
};

}  // namespace tessera
