// src/output/usb_hid.h — the USB device port as a keyboard: switching between the Ethernet and
// the HID gadget, the /dev/hidg0 node and typing text as keyboard reports.
#pragma once

namespace tessera {

// Loads the HID gadget in place of the Ethernet gadget, unless it is loaded already.
void switchToHidGadget();
// Unloads the HID gadget and brings back the Ethernet gadget with its address and DHCP server.
void switchToEthernetGadget();
// Opens /dev/hidg0 once and keeps it in the service state; the descriptor or -1.
[[nodiscard]] int hidOpen();
// Closes /dev/hidg0 if it is open; always 0.
int hidClose();
// Whether a USB host powers the port: 1 powered, 0 not, -1 when the status could not be read.
[[nodiscard]] int hidHostPowered();
// Types a NUL-terminated text (lowered in place) as keyboard reports; 8, or -1 on failure.
[[nodiscard]] int hidType(char* text);

}  // namespace tessera
