#include "output/usb_drive.h"

namespace tessera {

int usbDriveDisconnect() { return 0; }

}  // namespace tessera
