// The Logger echoes to stdout here because ctest runs this binary with MVM_DEBUG=enable.
#include "platform/logger.h"

#include <gtest/gtest.h>

#include <string>

namespace tessera {
namespace {

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
