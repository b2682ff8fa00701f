#include "platform/platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <ctime>
#include <mutex>

namespace tessera::platform {
namespace {

// The seam's configuration: written once by configure() before threads exist, then only read.
Settings& current() {
  static Settings s;
  return s;
}

// Serialises appends to the record file so that lines from different threads never interleave.
std::mutex& recordLock() {
  static std::mutex m;
  return m;
}

}  // namespace

void configure(const Settings& settings) { current() = settings; }

const Settings& settings() { return current(); }

std::string path(const char* appliancePath) {
  const std::string& root = current().root;
  if (root.empty() || root == "/") return appliancePath;
  std::string out = root;
  if (out.back() == '/') out.pop_back();
  if (appliancePath[0] != '/') out += '/';
  out += appliancePath;
  return out;
}

int runShell(const char* command) {
  const Settings& s = current();
  if (s.recordShell.empty()) return std::system(command);
  std::lock_guard<std::mutex> guard(recordLock());
  int fd = open(s.recordShell.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  std::string line = command;
  line += '\n';
  ssize_t n = write(fd, line.data(), line.size());
  close(fd);
  // "touch" makes a file that later code checks for; on a development PC the seam makes it too,
  // under the root, so that behaviour stays the same with commands recorded.
  // The appliance always has the marker's folder (/var/volatile); a fresh root may not.
  if (std::strncmp(command, "touch ", 6) == 0) {
    std::error_code ignored;
    const std::filesystem::path file = path(command + 6);
    std::filesystem::create_directories(file.parent_path(), ignored);
    int t = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (t >= 0) close(t);
  }
  return n == static_cast<ssize_t>(line.size()) ? 0 : -1;
}

std::optional<std::string> readFirstLine(const char* appliancePath, size_t maxLength) {
  FILE* file = fopen(path(appliancePath).c_str(), "re");
  if (file == nullptr) return std::nullopt;
  std::string line;
  for (int c = fgetc(file); c != EOF && c != '\n' && line.size() < maxLength; c = fgetc(file)) {
    line += static_cast<char>(c);
  }
  fclose(file);
  return line;
}

double scaledSeconds(double seconds) { return seconds * current().waitScale; }

void sleepSeconds(double seconds) {
  double total = scaledSeconds(seconds);
  if (total <= 0) return;
  timespec ts;
  ts.tv_sec = static_cast<time_t>(total);
  ts.tv_nsec = static_cast<long>((total - static_cast<double>(ts.tv_sec)) * 1e9);
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

time_t now() { return time(nullptr) + current().clockOffset; }

}  // namespace tessera::platform
