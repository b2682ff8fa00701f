// src/output/usb_drive.h — hourly CSV files on the USB flash drive mounted at /media/usbdrive.
#pragma once

namespace tessera {

// Opens the current file, creating one named after the local time if none is open; the
// descriptor, or -1 when the drive is not mounted or the file cannot be created.
[[nodiscard]] int usbDriveOpenFile();
// Appends a NUL-terminated batch (lowered in place) with one write, closes the file once it is
// over an hour old, then syncs; the bytes written, -1 when the drive is full or absent, -2 when
// the write failed.
[[nodiscard]] int usbDriveWrite(char* text);
// Forgets the drive after it was pulled out (or the relay stops): closes the open file; always 0.
int usbDriveDisconnect();

}  // namespace tessera
