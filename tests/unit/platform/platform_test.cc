#include "platform/platform.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace tessera {
namespace {

std::string readFile(const std::string& name) {
  std::ifstream in(name);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

TEST(Platform, AppliancePathsAreTakenUnderTheRootAndWaitsScaled) {
  platform::Settings s;
  s.waitScale = 0.01;
  platform::configure(s);
  EXPECT_DOUBLE_EQ(platform::scaledSeconds(5.0), 0.05);
  EXPECT_EQ(platform::path("/dev/ttyS2"), "/dev/ttyS2");
  s.root = "/tmp/r/";
  platform::configure(s);
  EXPECT_EQ(platform::path("/dev/ttyS2"), "/tmp/r/dev/ttyS2");
  s.root = "/tmp/r";
  platform::configure(s);
  EXPECT_EQ(platform::path("/readerconfig/AdvReaderConfig.xml"),
            "/tmp/r/readerconfig/AdvReaderConfig.xml");
  platform::configure(platform::Settings{});
}

TEST(Platform, RecordedShellCommandsAreWrittenNotRunAndTouchMakesTheFile) {
  char dir[] = "/tmp/tessera-platform-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  platform::Settings s;
  s.root = dir;
  s.recordShell = std::string(dir) + "/shell.txt";
  platform::configure(s);
  // No /var/volatile under the fresh root: the recorded touch still leaves the marker.
  EXPECT_EQ(platform::runShell("rmmod g_ether"), 0);
  EXPECT_EQ(platform::runShell("touch /var/volatile/isbooted"), 0);
  EXPECT_EQ(readFile(s.recordShell), "rmmod g_ether\ntouch /var/volatile/isbooted\n");
  EXPECT_EQ(access((std::string(dir) + "/var/volatile/isbooted").c_str(), F_OK), 0);
  platform::configure(platform::Settings{});
}

}  // namespace
}  // namespace tessera
