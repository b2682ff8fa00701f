// The USB HID keyboard: reports written to a stand-in /dev/hidg0 under a temporary root are
// decoded back into key presses; shell commands are recorded, not run.
#include "output/usb_hid.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/logger.h"
#include "state/service_state.h"
#include "platform/platform.h"

namespace tessera {
namespace {

namespace fs = std::filesystem;

using Press = std::vector<uint8_t>;  // one 8-byte report

std::string readFile(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void writeFile(const std::string& name, const std::string& text) {
  fs::create_directories(fs::path(name).parent_path());
  std::ofstream(name, std::ios::binary) << text;
}

class UsbHidTest : public testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/tessera-hid-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    root_ = dir;
    platform::Settings s;
    s.root = root_;
    s.recordShell = root_ + "/shell.txt";
    s.waitScale = 0;
    platform::configure(s);
    serviceState.hidFd = -1;
    serviceState.hidGadgetLoaded = false;
  }
  void TearDown() override {
    hidClose();
    serviceState.hidGadgetLoaded = false;
    platform::configure(platform::Settings{});
    fs::remove_all(root_);
  }

  // Types the text into a fresh /dev/hidg0 and returns the pressed reports; every press must
  // be followed by an all-released report.
  std::vector<Press> typed(const std::string& text, int* result = nullptr) {
    writeFile(root_ + "/dev/hidg0", "");
    hidClose();
    EXPECT_GE(hidOpen(), 0);
    std::string buffer = text;
    int r = hidType(buffer.data());
    if (result != nullptr) *result = r;
    const std::string raw = readFile(root_ + "/dev/hidg0");
    EXPECT_EQ(raw.size() % 16, 0u);
    std::vector<Press> presses;
    for (size_t i = 0; i + 16 <= raw.size(); i += 16) {
      presses.emplace_back(raw.begin() + static_cast<long>(i),
                           raw.begin() + static_cast<long>(i) + 8);
      EXPECT_EQ(raw.substr(i + 8, 8), std::string(8, '\0')) << "release after press " << i / 16;
    }
    return presses;
  }

  std::string root_;
};

Press keys(std::initializer_list<uint8_t> usages, uint8_t modifier = 0) {
  Press p(8, 0);
  p[0] = modifier;
  size_t i = 2;
  for (uint8_t u : usages) p[i++] = u;
  return p;
}

TEST_F(UsbHidTest, TextIsTypedAsPackedReportsOfTheKeyboardPage) {
  struct Case {
    const char* text;
    std::vector<Press> presses;
  } cases[] = {
      {"AB12", {keys({0x04, 0x05, 0x1E, 0x1F})}},
      {"aa", {keys({0x04}), keys({0x04})}},  // a repeat is pressed anew
      {"abcdefg", {keys({0x04, 0x05, 0x06, 0x07, 0x08, 0x09}), keys({0x0A})}},
      {"aba", {keys({0x04, 0x05, 0x04})}},  // not adjacent: same report
      {"a\nb", {keys({0x04}), keys({0x28}), keys({0x05})}},
      {"\n", {keys({}), keys({0x28})}},
      {"\n\n", {keys({}), keys({0x28}), keys({}), keys({}), keys({0x28})}},
      {"z\r", {keys({0x1D}), keys({0x10}, 0x10)}},
      {"x =,.-'\t0", {keys({0x1B, 0x2C, 0x2E, 0x36, 0x37, 0x2D}), keys({0x34, 0x2B, 0x27})}},
      {R"({"epc":"E2_0A"})", {keys({0x08, 0x13, 0x06, 0x08, 0x1F, 0x27}), keys({0x04})}},
      {"a{{", {keys({0x04}), keys({})}},  // repeats of untyped characters too
      {"", {}},
  };
  for (const Case& c : cases) {
    int result = 0;
    EXPECT_EQ(typed(c.text, &result), c.presses) << "text: " << c.text;
    EXPECT_EQ(result, 8) << "text: " << c.text;
  }
}

TEST_F(UsbHidTest, TheTextIsLoweredInPlace) {
  writeFile(root_ + "/dev/hidg0", "");
  ASSERT_GE(hidOpen(), 0);
  char text[] = "EPC,E2-Q";
  EXPECT_EQ(hidType(text), 8);
  EXPECT_STREQ(text, "epc,e2-q");
}

TEST_F(UsbHidTest, AClosedDeviceTypesNothing) {
  ASSERT_TRUE(Logger::echo());
  char text[] = "abc";
  testing::internal::CaptureStdout();
  EXPECT_EQ(hidType(text), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "I-USB HID Device is not opened.\n\n");
  EXPECT_EQ(hidClose(), 0);
  EXPECT_EQ(hidClose(), 0);
  EXPECT_EQ(serviceState.hidFd, -1);
}

TEST_F(UsbHidTest, OpeningWithoutTheDeviceNodeFailsAndKeepsNoDescriptor) {
  ASSERT_TRUE(Logger::echo());
  testing::internal::CaptureStdout();
  EXPECT_EQ(hidOpen(), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Unable to open USB HID device.I-Unable to Open USB HID device \n\n");
  EXPECT_EQ(serviceState.hidFd, -1);
  EXPECT_FALSE(fs::exists(root_ + "/dev/hidg0"));

  writeFile(root_ + "/dev/hidg0", "");
  const int fd = hidOpen();
  ASSERT_GE(fd, 0);
  EXPECT_EQ(hidOpen(), fd);  // already open: the same descriptor
}

TEST_F(UsbHidTest, AFailedWriteEndsTypingWithMinusOne) {
  ASSERT_TRUE(Logger::echo());
  serviceState.hidFd = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(serviceState.hidFd, 0);
  char text[] = "ab";
  testing::internal::CaptureStdout();
  EXPECT_EQ(hidType(text), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "I-Failed to write data on USB HID Device\n\n");
}

TEST_F(UsbHidTest, GadgetSwitchesRunTheirCommandListsInOrder) {
  switchToHidGadget();
  EXPECT_TRUE(serviceState.hidGadgetLoaded);
  switchToHidGadget();  // already loaded: nothing runs
  switchToEthernetGadget();
  EXPECT_FALSE(serviceState.hidGadgetLoaded);
  EXPECT_EQ(readFile(root_ + "/shell.txt"),
            "pkill dhcpd\n"
            "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_ether.ko\n"
            "rm /var/run/dhcpd.leases\n"
            "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/usb_f_hid.ko\n"
            "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_hid.ko\n"
            "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_hid.ko\n"
            "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/usb_f_hid.ko\n"
            "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_ether.ko\n"
            "ifconfig usb0 169.254.10.1 netmask 255.255.255.0 up\n"
            "touch /var/run/dhcpd.leases\n"
            "/usr/sbin/dhcpd -4 -cf /etc/dhcp/dhcpd.conf -lf /var/run/dhcpd.leases usb0 &\n");
}

TEST_F(UsbHidTest, TheHostIsSeenThroughTheFirstLineOfTheVbusStatusFileUnderTheRoot) {
  const std::string vbus =
      root_ + "/sys/devices/platform/68000000.ocp/5c040000.am35x_otg_hs/musb-hdrc.1.auto/vbus";
  writeFile(vbus, "Vbus on, timeout 1100 msec\n");
  EXPECT_EQ(hidHostPowered(), 1);
  writeFile(vbus, "Vbus off, timeout 1100 msec\n");
  EXPECT_EQ(hidHostPowered(), 0);
  // Only the first line counts: a later "on" does not make the port powered.
  writeFile(vbus, "Vbus off\nVbus on\n");
  EXPECT_EQ(hidHostPowered(), 0);
  fs::remove(vbus);
  EXPECT_EQ(hidHostPowered(), -1);
}

}  // namespace
}  // namespace tessera
