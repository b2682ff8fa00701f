// The platform seam and the Logger, which echoes to stdout here because ctest runs this binary
// with MVM_DEBUG=enable.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/logger.h"
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
              "/tmp/r/readerconfig/AdvReaderConfig.xml")
        << root;
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

std::string logged(unsigned level, const char* format, const char* argument) {
  testing::internal::CaptureStdout();
  Logger::log(static_cast<LogLevel>(level), format, argument);
  return testing::internal::GetCapturedStdout();
}

// A line carries its level letter and a console newline; level 7 and above are formatted (the
// count) but not emitted; an argument is never formatted twice; a message is cut to 2047.
TEST(Logger, Lines) {
  ASSERT_TRUE(Logger::echo());
  EXPECT_EQ(logged(6, "Listener on port %s \n", "50017"), "I-Listener on port 50017 \n\n");
  EXPECT_EQ(logged(3, "%s", "select error\n"), "E-select error\n\n");
  EXPECT_EQ(logged(4, "%s", "x"), "W-x\n");
  EXPECT_EQ(logged(7, "%s", "detail"), "");
  EXPECT_EQ(logged(42, "%s", "detail"), "");
  EXPECT_EQ(Logger::log(LogLevel::kDebug, "%s", "12345"), 5);
  EXPECT_EQ(logged(6, "cmd: %s", "%s%n%d%%"), "I-cmd: %s%n%d%%\n");
  EXPECT_EQ(logged(6, "%s", std::string(5000, 'x').c_str()), "I-" + std::string(2047, 'x') + "\n");
}

}  // namespace
}  // namespace tessera
