#include "output/usb_hid.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "platform/logger.h"
#include "state/service_state.h"
#include "platform/platform.h"

namespace tessera {
namespace {

const char* const kHidCommands[] = {
    "pkill dhcpd",
    "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_ether.ko",
    "rm /var/run/dhcpd.leases",
    "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/usb_f_hid.ko",
    "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_hid.ko",
};

const char* const kEthernetCommands[] = {
    "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_hid.ko",
    "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/usb_f_hid.ko",
    "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_ether.ko",
    "ifconfig usb0 169.254.10.1 netmask 255.255.255.0 up",
    "touch /var/run/dhcpd.leases",
    "/usr/sbin/dhcpd -4 -cf /etc/dhcp/dhcpd.conf -lf /var/run/dhcpd.leases usb0 &",
};

// The USB controller's VBUS state: "on" while a host powers the device port. Only the first
// line's start matters ("Vbus on, timeout 1100 msec").
constexpr const char* kVbusStatusFile =
    "/sys/devices/platform/68000000.ocp/5c040000.am35x_otg_hs/musb-hdrc.1.auto/vbus";
constexpr size_t kVbusStatusLength = 99;

constexpr size_t kReportSize = 8;
constexpr size_t kKeySlots = 6;
constexpr uint8_t kRightControl = 0x10;
constexpr uint8_t kUsageEnter = 0x28;
constexpr uint8_t kUsageM = 0x10;

// Keyboard-page usage of a lowered character, 0 for characters that are not typed.
uint8_t usageOf(char c) {
  if (c >= 'a' && c <= 'z') return static_cast<uint8_t>(c - 0x5D);
  if (c >= '1' && c <= '9') return static_cast<uint8_t>(c - 0x13);
  switch (c) {
    case '0':
      return 0x27;
    case ' ':
      return 0x2C;
    case ',':
      return 0x36;
    case '.':
      return 0x37;
    case '-':
      return 0x2D;
    case '=':
      return 0x2E;
    case '\'':
      return 0x34;
    case '\t':
      return 0x2B;
    default:
      return 0;
  }
}

// One keyboard report being filled: the modifier byte, a reserved byte, six key slots.
struct Report {
  uint8_t bytes[kReportSize] = {};
  size_t keys = 0;

  void add(uint8_t usage) {
    if (keys < kKeySlots) bytes[2 + keys++] = usage;
  }
  void clear() { *this = Report{}; }
};

// Presses the report's keys, releases them all and clears the report; 0 or -1.
int sendReport(int fd, Report& report) {
  static const uint8_t kReleased[kReportSize] = {};
  if (write(fd, report.bytes, kReportSize) != static_cast<ssize_t>(kReportSize)) {
    Logger::log(LogLevel::kInfo, "Failed to write data on USB HID Device\n");
    return -1;
  }
  if (write(fd, kReleased, kReportSize) != static_cast<ssize_t>(kReportSize)) {
    Logger::log(LogLevel::kInfo, "Failed to write data on USB HID Device - 2\n");
    return -1;
  }
  // The host polls the gadget; a short pause lets it see each press and release.
  platform::sleepSeconds(100e-6);
  report.clear();
  return 0;
}

}  // namespace

void switchToHidGadget() {
  ServiceState& s = serviceState;
  if (s.hidGadgetLoaded) return;
  for (const char* command : kHidCommands) platform::runShell(command);
  s.hidGadgetLoaded = true;
}

void switchToEthernetGadget() {
  for (const char* command : kEthernetCommands) platform::runShell(command);
  serviceState.hidGadgetLoaded = false;
}

int hidOpen() {
  ServiceState& s = serviceState;
  if (s.hidFd == -1) {
    // No O_CREAT: without the gadget the node must stay absent rather than become a plain file.
    s.hidFd = open(platform::path("/dev/hidg0").c_str(), O_RDWR | O_CLOEXEC, 0666);
    if (s.hidFd < 0) {
      fputs("Unable to open USB HID device.", stdout);
      fflush(stdout);
      s.hidFd = -1;
    }
  }
  if (s.hidFd < 0) {
    Logger::log(LogLevel::kInfo, "Unable to Open USB HID device \n");
    s.hidFd = -1;
    return -1;
  }
  return s.hidFd;
}

int hidClose() {
  ServiceState& s = serviceState;
  if (s.hidFd == -1) {
    Logger::log(LogLevel::kDebug, "USB HID Device is not opened.");
    return 0;
  }
  close(s.hidFd);
  s.hidFd = -1;
  return 0;
}

int hidHostPowered() {
  const std::optional<std::string> status =
      platform::readFirstLine(kVbusStatusFile, kVbusStatusLength);
  if (!status) return -1;
  return status->find("on") != std::string::npos ? 1 : 0;
}

int hidType(char* text) {
  const int fd = serviceState.hidFd;
  if (fd < 0) {
    Logger::log(LogLevel::kInfo, "USB HID Device is not opened.\n");
    return -1;
  }
  for (char* p = text; *p != '\0'; ++p) {
    if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p - 'A' + 'a');
  }
  if (text[0] == '\0') return 8;

  Report report;
  bool sentLast = false;  // the report was sent while handling the latest character
  char c = '\0';
  for (size_t i = 0; text[i] != '\0'; ++i) {
    c = text[i];
    const char next = text[i + 1];
    sentLast = false;
    if (c == '\n' || c == '\r') {
      if (sendReport(fd, report) != 0) return -1;
      if (c == '\n') {
        report.add(kUsageEnter);
      } else {
        report.bytes[0] = kRightControl;
        report.add(kUsageM);
      }
      if (sendReport(fd, report) != 0) return -1;
      sentLast = true;
    } else {
      const uint8_t usage = usageOf(c);
      if (usage != 0) report.add(usage);
    }
    // A key that follows itself must be released in between, or the host sees one press.
    if (next == c || report.keys == kKeySlots) {
      if (sendReport(fd, report) != 0) return -1;
      sentLast = true;
    }
  }
  if (c != '\n' && c != '\r' && !sentLast) {
    if (sendReport(fd, report) != 0) return -1;
  }
  return 8;
}

}  // namespace tessera
