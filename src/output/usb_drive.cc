#include "output/usb_drive.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "platform/logger.h"
#include "state/service_state.h"
#include "platform/platform.h"

namespace tessera {
namespace {

// A file takes the batches of one hour; the first batch after that still goes in, then it closes.
constexpr long kRotationSeconds = 3600;

// Closes the file and forgets it; the caller holds its lock.
void closeFileLocked(UsbDriveFile& file) {
  if (file.fd != -1) {
    close(file.fd);
  } else {
    Logger::log(LogLevel::kDebug, "USB Flash Drive is not connected.");
  }
  file.fd = -1;
  file.opened = -1;
}

// Whether /proc/mounts lists the drive's mount point; logs why not.
bool driveMounted() {
  FILE* mounts = fopen(platform::path("/proc/mounts").c_str(), "re");
  if (mounts == nullptr) {
    Logger::log(LogLevel::kInfo, "Unable to open /proc/mounts \n");
    Logger::log(LogLevel::kInfo, "USB Flash Drive is not connected \n");
    return false;
  }
  // A line longer than the buffer is read in pieces; the mount point sits near the start of a
  // line, so a piece boundary inside it would need a device name of over 4000 characters.
  char line[4096];
  bool found = false;
  while (!found && fgets(line, sizeof line, mounts) != nullptr) {
    found = std::strstr(line, platform::kUsbDriveMountPoint) != nullptr;
  }
  fclose(mounts);
  if (!found) Logger::log(LogLevel::kInfo, "USB Flash Drive is not connected \n");
  return found;
}

// usbDriveOpenFile with the file's lock held.
int openFileLocked(UsbDriveFile& file) {
  if (file.fd != -1) {
    if (file.fd >= 0) return file.fd;
    Logger::log(LogLevel::kInfo, "Unable to create file in USB Flash Drive \n");
    file.fd = -1;
    file.opened = -1;
    return -1;
  }
  if (!driveMounted()) return -1;

  const time_t opened = platform::now();
  tm local{};
  localtime_r(&opened, &local);
  char name[64];
  snprintf(name, sizeof name, "%s/%04d-%02d-%02d-%02d-%02d-%02d.csv", platform::kUsbDriveMountPoint,
           local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
           local.tm_sec);
  // Append mode: two opens within one second share the file instead of truncating it.
  int fd = open(platform::path(name).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (fd < 0) {
    Logger::log(LogLevel::kInfo, "Unable to create file in usb \n");
    return -1;
  }
  file.fd = fd;
  file.opened = static_cast<int64_t>(opened);
  return fd;
}

}  // namespace

int usbDriveOpenFile() {
  UsbDriveFile& file = serviceState.usbDrive;
  std::lock_guard<std::mutex> guard(file.lock);
  return openFileLocked(file);
}

int usbDriveWrite(char* text) {
  UsbDriveFile& file = serviceState.usbDrive;
  struct statvfs stats {};
  // A failed query leaves the decision to the mount check below.
  const std::string mountPoint = platform::path(platform::kUsbDriveMountPoint);
  if (statvfs(mountPoint.c_str(), &stats) == 0 && stats.f_bfree == 0) {
    Logger::log(LogLevel::kInfo, "USB Flash Drive has no space.\n");
    return -1;
  }
  int written = 0;
  {
    std::lock_guard<std::mutex> guard(file.lock);
    if (file.fd < 0 && openFileLocked(file) < 0) {
      Logger::log(LogLevel::kInfo, "USB Flash Drive is not connected.\n");
      return -1;
    }
    size_t length = 0;
    for (char* p = text; *p != '\0'; ++p, ++length) {
      if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p - 'A' + 'a');
    }
    const ssize_t n = write(file.fd, text, length);
    if (n < 0 || static_cast<size_t>(n) != length) {
      Logger::log(LogLevel::kInfo, "Failed to write data in USB FLash Drive\n");
      closeFileLocked(file);
      return -2;
    }
    written = static_cast<int>(n);
    if (static_cast<int64_t>(platform::now()) - file.opened > kRotationSeconds) {
      closeFileLocked(file);
    }
  }
  platform::runShell("sync");
  return written;
}

int usbDriveDisconnect() {
  UsbDriveFile& file = serviceState.usbDrive;
  std::lock_guard<std::mutex> guard(file.lock);
  closeFileLocked(file);
  return 0;
}

}  // namespace tessera
