#include "platform/logger.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tessera {

namespace {

struct LevelInfo {
  char letter;
  int priority;
};

constexpr LevelInfo kLevels[7] = {
    {'E', LOG_ERR},     {'A', LOG_ALERT},  {'C', LOG_CRIT}, {'E', LOG_ERR},
    {'W', LOG_WARNING}, {'N', LOG_NOTICE}, {'I', LOG_INFO},
};

}  // namespace

Logger::Logger() {
  openlog("tessera", LOG_CONS | LOG_NDELAY, LOG_USER);
  const char* debug = std::getenv("MVM_DEBUG");
  echo_ = debug != nullptr && std::strcmp(debug, "enable") == 0;
}

Logger& Logger::instance() {
  // Built at first use and never destroyed: a thread still running while the process exits (a
  // relay worker, a reader API thread) may log after main has returned.
  static Logger* const logger = new Logger();
  return *logger;
}

void Logger::open() { static_cast<void>(instance()); }

bool Logger::echo() { return instance().echo_; }

void Logger::reopen() {
  Logger& logger = instance();
  std::lock_guard<std::recursive_mutex> guard(logger.lock_);
  closelog();
  openlog("tessera", LOG_CONS | LOG_NDELAY, LOG_USER);
}

void Logger::close() {
  Logger& logger = instance();
  std::lock_guard<std::recursive_mutex> guard(logger.lock_);
  closelog();
}

int Logger::log(LogLevel level, const char* format, ...) {
  char message[2048] = {};
  va_list args;
  va_start(args, format);
  int length = vsnprintf(message, sizeof message, format, args);
  va_end(args);
  if (level >= LogLevel::kDebug) return length;
  instance().emit(static_cast<unsigned>(level), message);
  return length;
}

int Logger::emit(unsigned level, const char* message) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  const LevelInfo& info = kLevels[level];
  snprintf(line_, 4095, "%c-%s", info.letter, message);
  syslog(info.priority, "%s", line_);
  if (echo_) {
    puts(line_);
    fflush(stdout);
  }
  return 0;
}

}  // namespace tessera
