// src/platform/logger.h — the process-wide Logger: syslog with identity "tessera", a level letter
// before each line, and a copy on standard output when MVM_DEBUG is "enable".
#pragma once

#include <mutex>

namespace tessera {

class Logger {
 public:
  // Opens syslog and reads MVM_DEBUG; the one instance is built before every other global.
  Logger();
  // Closes syslog.
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Formats and emits one line at a level (0-6 emitted, 7+ dropped); the formatted length.
  static int log(unsigned level, const char* format, ...) __attribute__((format(printf, 2, 3)));
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
