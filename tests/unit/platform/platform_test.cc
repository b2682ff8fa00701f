#include "platform/platform.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "temp_root.h"

namespace tessera {
namespace {

TEST(Platform, AppliancePathsAreTakenUnderTheRootAndWaitsScaled) {
  platform::Settings s;
  s.waitScale = 0.01;
  platform::configure(s);
  EXPECT_DOUBLE_EQ(platform::scaledSeconds(5.0), 0.05);
  EXPECT_EQ(platform::path("/dev/ttyS2"), "/dev/ttyS2");
  for (const char* root : {"/tmp/r/", "/tmp/r"}) {
    s.root = root;
    platform::configure(s);
    EXPECT_EQ(platform::path("/readerconfig/AdvReaderConfig.xml"),
              "/tmp/r/readerconfig/AdvReaderConfig.xml") << root;
  }
  platform::configure(platform::Settings{});
}

TEST(Platform, RecordedShellCommandsAreWrittenNotRunAndTouchMakesTheFile) {
  test::TempRoot root;
  // No /var/volatile under the fresh root: the recorded touch still leaves the marker.
  EXPECT_EQ(platform::runShell("rmmod g_ether"), 0);
  EXPECT_EQ(platform::runShell("touch /var/volatile/isbooted"), 0);
  EXPECT_EQ(root.read("/shell.txt"), "rmmod g_ether\ntouch /var/volatile/isbooted\n");
  EXPECT_TRUE(std::filesystem::exists(root.dir + "/var/volatile/isbooted"));
}

}  // namespace
}  // namespace tessera
