// The USB HID keyboard: reports written to a stand-in /dev/hidg0 under a temporary root are
// decoded back into key presses; shell commands are recorded, not run.
#include "output/usb_hid.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "state/service_state.h"
#include "temp_root.h"

namespace tessera {
namespace {

namespace fs = std::filesystem;

using Press = std::vector<uint8_t>;  // one 8-byte report

class UsbHidTest : public testing::Test {
 protected:
  void SetUp() override {
    root_.settings.waitScale = 0;
    root_.apply();
    serviceState.hidFd = -1;
    serviceState.hidGadgetLoaded = false;
  }
  void TearDown() override {
    hidClose();
    serviceState.hidGadgetLoaded = false;
  }

  // Types the text into a fresh /dev/hidg0 and returns the pressed reports; every press must
  // be followed by an all-released report, and the text is lowered in place.
  std::vector<Press> typed(const std::string& text) {
    root_.write("/dev/hidg0", "");
    hidClose();
    EXPECT_GE(hidOpen(), 0);
    std::string buffer = text;
    EXPECT_EQ(hidType(buffer.data()), 8);
    std::string lowered = text;
    for (char& c : lowered) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(buffer, lowered);
    const std::string raw = root_.read("/dev/hidg0");
    EXPECT_EQ(raw.size() % 16, 0u);
    std::vector<Press> presses;
    for (size_t i = 0; i + 16 <= raw.size(); i += 16) {
      presses.emplace_back(raw.begin() + static_cast<long>(i),
                           raw.begin() + static_cast<long>(i) + 8);
      EXPECT_EQ(raw.substr(i + 8, 8), std::string(8, '\0')) << "release after press " << i / 16;
    }
    return presses;
  }

  test::TempRoot root_;
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
    SCOPED_TRACE(c.text);
    EXPECT_EQ(typed(c.text), c.presses);
  }
}

TEST_F(UsbHidTest, WithoutADeviceOrWhenAWriteFailsNothingIsTyped) {
  char text[] = "abc";
  EXPECT_EQ(hidType(text), -1);  // never opened
  EXPECT_EQ(hidOpen(), -1);      // no device node
  EXPECT_EQ(serviceState.hidFd, -1);
  EXPECT_FALSE(fs::exists(root_.dir + "/dev/hidg0")) << "opening must not create the node";
  root_.write("/dev/hidg0", "");
  const int fd = hidOpen();
  ASSERT_GE(fd, 0);
  EXPECT_EQ(hidOpen(), fd);  // already open: the same descriptor
  EXPECT_EQ(hidClose(), 0);
  EXPECT_EQ(hidClose(), 0);
  EXPECT_EQ(serviceState.hidFd, -1);

  serviceState.hidFd = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(serviceState.hidFd, 0);
  EXPECT_EQ(hidType(text), -1);
}

// The command lists themselves are checked end to end; here, that a switch runs once.
TEST_F(UsbHidTest, AGadgetSwitchRunsOnlyWhenTheGadgetChanges) {
  switchToHidGadget();
  EXPECT_TRUE(serviceState.hidGadgetLoaded);
  const auto afterFirst = root_.read("/shell.txt").size();
  EXPECT_GT(afterFirst, 0u);
  switchToHidGadget();  // already loaded: nothing runs
  EXPECT_EQ(root_.read("/shell.txt").size(), afterFirst);
  switchToEthernetGadget();
  EXPECT_FALSE(serviceState.hidGadgetLoaded);
  EXPECT_GT(root_.read("/shell.txt").size(), afterFirst);
}

TEST_F(UsbHidTest, TheHostIsSeenThroughTheFirstLineOfTheVbusStatusFileUnderTheRoot) {
  const std::string vbus =
      "/sys/devices/platform/68000000.ocp/5c040000.am35x_otg_hs/musb-hdrc.1.auto/vbus";
  root_.write(vbus, "Vbus on, timeout 1100 msec\n");
  EXPECT_EQ(hidHostPowered(), 1);
  root_.write(vbus, "Vbus off, timeout 1100 msec\n");
  EXPECT_EQ(hidHostPowered(), 0);
  // Only the first line counts: a later "on" does not make the port powered.
  root_.write(vbus, "Vbus off\nVbus on\n");
  EXPECT_EQ(hidHostPowered(), 0);
  fs::remove(root_.dir + vbus);
  EXPECT_EQ(hidHostPowered(), -1);
}

}  // namespace
}  // namespace tessera
