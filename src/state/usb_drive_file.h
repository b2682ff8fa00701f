// src/state/usb_drive_file.h — the relay's open CSV file on the USB flash drive. The relay worker
// opens, writes and rotates it; the command thread closes it when the drive is pulled out and the
// relay stop closes it too, while the worker may write: hence the lock.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <mutex>

namespace tessera {

struct UsbDriveFile {
  UsbDriveFile() = default;
  UsbDriveFile(const UsbDriveFile&) = delete;
  UsbDriveFile& operator=(const UsbDriveFile&) = delete;
  ~UsbDriveFile() {
    if (fd >= 0) close(fd);
  }

  std::mutex lock;  // guards fd and opened
  int fd = -1;              // the open file's descriptor, -1 when none
  int64_t opened = -1;      // seconds since the epoch when it was opened, -1 when none
};

}  // namespace tessera
