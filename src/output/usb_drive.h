// src/output/usb_drive.h — hourly CSV files on the USB flash drive mounted at /media/usbdrive.
#pragma once

namespace tessera {

// Forgets the drive after it was pulled out: closes the open file; always 0.
int usbDriveDisconnect();

}  // namespace tessera
